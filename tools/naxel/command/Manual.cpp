#include "command/Manual.h"

#include "command/Help.h"

#include <cctype>

namespace NaxelTool {

namespace {

/// A text as the page formatter takes it: dashes that can be copied, nothing that it would obey.
std::string roff(std::string_view text) {
  std::string out;
  for (char const c : text) {
    if (out.empty() && (c == '.' || c == '\'')) out += "\\&";
    if (c == '-')
      out += "\\-";
    else if (c == '\\')
      out += "\\e";
    else
      out += c;
  }
  return out;
}

std::string bold(std::string_view text) { return "\\fB" + roff(text) + "\\fR"; }
std::string italic(std::string_view text) { return "\\fI" + roff(text) + "\\fR"; }

std::string heading(std::string const& name) {
  std::string upper = name;
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return ".TH " + roff(upper) + " 1 \"\" \"naxel " NAXEL_VERSION "\" \"User Commands\"\n";
}

/// Paragraphs are parted by empty lines.
std::string paragraphs(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    size_t const end = text.find("\n\n");
    out += ".PP\n" + roff(text.substr(0, end)) + '\n';
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 2);
  }
  return out;
}

std::string options(CLI::App const& app) {
  std::string out = ".SH OPTIONS\n";
  for (CLI::Option const* option : app.get_options()) {
    std::string const& text = option->get_description();
    size_t const lineEnd = text.find('\n');
    if (option->get_positional()) {
      out += ".TP\n" + italic(option->get_type_name()) + "\n" + roff(text.substr(0, lineEnd));
    } else if (!option->get_group().empty()) {
      out += ".TP\n";
      std::string names;
      for (std::string const& name : option->get_snames())
        names += (names.empty() ? "" : ", ") + bold("-" + name);
      for (std::string const& name : option->get_lnames())
        names += (names.empty() ? "" : ", ") + bold("--" + name);
      std::string const value = valueName(*option);
      out += names + (value.empty() ? "" : " " + italic(value)) + "\n" + roff(shortText(*option));
    } else {
      continue;
    }
    out += ".\n";
    if (lineEnd != std::string::npos) out += roff(text.substr(lineEnd + 1)) + '\n';
  }
  return out;
}

std::string exitStatus() {
  std::string out = ".SH EXIT STATUS\n";
  for (ExitCode const code : allExitCodes())
    out += ".TP\n" + bold(std::to_string(static_cast<int>(code))) + "\n" + roff(meaningOf(code)) +
           ".\n";
  return out;
}

std::string examples(std::vector<std::string_view> const& lines) {
  std::string out = ".SH EXAMPLES\n";
  for (std::string_view const line : lines) out += ".PP\n.EX\n" + roff(line) + "\n.EE\n";
  return out;
}

std::string lowerFirst(std::string_view text) {
  std::string out(text);
  if (!out.empty()) out[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(out[0])));
  return out;
}

std::string seeAlso(std::vector<std::string> const& names) {
  std::string out = ".SH SEE ALSO\n";
  for (size_t i = 0; i < names.size(); ++i)
    out += ".BR " + roff(names[i]) + " (1)" + (i + 1 < names.size() ? ",\n" : "\n");
  return out;
}

}  // namespace

std::string commandPage(DeclaredCommand const& command) {
  std::string const name = "naxel-" + std::string(command.info->name);
  std::string const alias(command.info->alias);
  std::string const other = alias.empty() ? "" : ", " + roff("naxel-" + alias);
  std::string const called = bold("naxel " + std::string(command.info->name));
  return heading(name) + ".SH NAME\n" + roff(name) + other + " \\- " +
         roff(lowerFirst(command.info->summary)) + "\n.SH SYNOPSIS\n" + called + " " +
         roff(synopsis(*command.app)) +
         (alias.empty() ? "" : "\n.PP\n" + bold("naxel " + alias) + " is the same command.") +
         "\n.SH DESCRIPTION\n" + paragraphs(command.info->text) + options(*command.app) +
         exitStatus() + examples(command.info->examples) + seeAlso({"naxel"});
}

std::string programPage(Declared const& declared) {
  std::string out = heading("naxel") + ".SH NAME\nnaxel \\- " +
                    roff(lowerFirst(declared.program->get_description())) + "\n.SH SYNOPSIS\n" +
                    bold("naxel") + " " + roff(synopsis(*declared.program)) + "\n.SH DESCRIPTION\n";
  out += paragraphs(
      "Reads access control lists, compiles them into the tables of a chip in software, and shows, "
      "checks and explains what came out. What was asked for goes to standard output, messages go "
      "to standard error.\n\n"
      "A message is FILE:LINE:COLUMN: error[CODE]: TEXT, with the line and a mark below the place. "
      "A run tells up to 20 errors, 20 warnings and 20 notes, and how many more there were. With "
      "--json each is a JSON object on a line of its own.\n\n"
      "A file that is named - is standard input, or standard output. Input that is packed with "
      "gzip is unpacked. An output file comes into being complete or not at all; it is never one "
      "of the inputs.");
  out += ".SH COMMANDS\n";
  for (DeclaredCommand const& c : declared.commands)
    out += ".TP\n" + bold(c.info->name) + "\n" + roff(c.info->summary) + ".\n";
  out += options(*declared.program) + exitStatus();
  out += ".SH ENVIRONMENT\n.TP\n" + bold("NO_COLOR") +
         "\nIf it is set and not empty, messages have no colour unless " + bold("--color=always") +
         " asks for it.\n";
  std::vector<std::string_view> lines;
  std::vector<std::string> pages;
  for (DeclaredCommand const& c : declared.commands) {
    lines.push_back(c.info->examples.front());
    pages.push_back("naxel-" + std::string(c.info->name));
  }
  return out + examples(lines) + seeAlso(pages);
}

std::vector<std::pair<std::string, std::string>> documentation(Declared const& declared) {
  std::vector<std::pair<std::string, std::string>> out = {
      {"man/man1/naxel.1", programPage(declared)},
      {"bash-completion/completions/naxel", bashCompletion(declared)},
      {"zsh/site-functions/_naxel", zshCompletion(declared)}};
  for (DeclaredCommand const& c : declared.commands)
    out.emplace_back("man/man1/naxel-" + std::string(c.info->name) + ".1", commandPage(c));
  return out;
}

}  // namespace NaxelTool
