#include "command/Help.h"
#include "command/Manual.h"

#include <algorithm>

namespace NaxelTool {

namespace {

/// Options that take part in completion: all that have a name and are shown.
std::vector<CLI::Option const*> namedOptions(CLI::App const& app) {
  return app.get_options([](CLI::Option const* option) {
    return !option->get_positional() && !option->get_group().empty();
  });
}

std::vector<std::string> namesOf(CLI::Option const& option) {
  std::vector<std::string> out;
  for (std::string const& name : option.get_snames()) out.push_back("-" + name);
  for (std::string const& name : option.get_lnames()) out.push_back("--" + name);
  return out;
}

std::string join(std::vector<std::string> const& words, char const* separator) {
  std::string out;
  for (std::string const& word : words) out += (out.empty() ? "" : separator) + word;
  return out;
}

std::string allNames(CLI::App const& app) {
  std::vector<std::string> out;
  for (CLI::Option const* option : namedOptions(app))
    for (std::string const& name : namesOf(*option)) out.push_back(name);
  return join(out, " ");
}

std::string replaced(std::string text, char from, std::string const& to) {
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, 1, to);
  return text;
}

bool takesFiles(CLI::App const& app) {
  auto const all = app.get_options();
  return std::any_of(all.begin(), all.end(),
                     [](CLI::Option const* option) { return option->get_positional(); });
}

/// What bash does behind the options that take a value.
std::string bashValues(CLI::App const& app) {
  std::string out;
  for (CLI::Option const* option : namedOptions(app)) {
    if (option->get_expected_max() == 0) continue;
    std::string const choices = choicesOf(*option);
    std::string action = ":";
    if (!choices.empty())
      action = "words='" + replaced(choices, '|', " ") + "'";
    else if (option->get_type_name() == "FILE")
      action = "files=1";
    out += "        " + join(namesOf(*option), "|") + ") " + action + "; return ;;\n";
  }
  return out;
}

/// A text within an argument of _arguments that describes an option, between quotes.
std::string zshText(std::string const& text) {
  std::string out;
  for (char const c : text) {
    if (c == '\'')
      out += "'\\'";
    else if (c == '[' || c == ']' || c == ':' || c == '\\')
      out += '\\';
    out += c;
  }
  return out;
}

std::string zshOption(CLI::Option const& option) {
  std::vector<std::string> const names = namesOf(option);
  std::string const& text = option.get_description();
  std::string described = "[" + zshText(text.substr(0, text.find('\n'))) + "]";
  if (option.get_expected_max() > 0) {
    std::string const choices = choicesOf(option);
    described += ":" + zshText(valueName(option)) + ":";
    if (!choices.empty())
      described += "(" + replaced(choices, '|', " ") + ")";
    else if (option.get_type_name() == "FILE")
      described += "_files";
    else
      described += " ";
  }
  if (names.size() == 1) return "'" + names[0] + described + "'";
  return "'(" + join(names, " ") + ")'{" + join(names, ",") + "}'" + described + "'";
}

/// The name of the command, also where its other one was written.
std::string zshCommandWord(Declared const& declared) {
  std::string out = "$words[1]";
  for (DeclaredCommand const& c : declared.commands)
    if (!c.info->alias.empty())
      out = "${words[1]/#%" + std::string(c.info->alias) + "/" + std::string(c.info->name) + "}";
  return out;
}

}  // namespace

std::string bashCompletion(Declared const& declared) {
  std::string out =
      "# Completion of naxel for bash.\n"
      "\n"
      "# Sets what may stand at the cursor: words, files or both.\n"
      "_naxel_choices() {\n"
      "  case $1 in\n";
  for (DeclaredCommand const& c : declared.commands) {
    out += "    " + std::string(c.info->name) + ")\n      case $2 in\n" + bashValues(*c.app) +
           "      esac\n      words='" + allNames(*c.app) + "'\n";
    if (takesFiles(*c.app)) out += "      [[ $3 == -* ]] || { words='' files=1; }\n";
    out += "      ;;\n";
    if (!c.info->alias.empty())
      out += "    " + std::string(c.info->alias) + ") _naxel_choices " + std::string(c.info->name) +
             " \"$2\" \"$3\" ;;\n";
  }
  out +=
      "  esac\n}\n\n_naxel() {\n"
      "  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} words='' files=''\n"
      "  COMPREPLY=()\n"
      "  if ((COMP_CWORD == 1)); then\n    words='";
  for (DeclaredCommand const& c : declared.commands) out += std::string(c.info->name) + " ";
  out += allNames(*declared.program) +
         "'\n  else\n"
         "    # \"--option=value\" is three words to bash.\n"
         "    if [[ $cur == = ]]; then cur=''; elif [[ $prev == = ]]; then\n"
         "      prev=${COMP_WORDS[COMP_CWORD - 2]}; fi\n"
         "    _naxel_choices \"${COMP_WORDS[1]}\" \"$prev\" \"$cur\"\n"
         "  fi\n"
         "  if [[ -n $files ]]; then\n"
         "    compopt -o filenames 2>/dev/null\n"
         "    mapfile -t COMPREPLY < <(compgen -f -- \"$cur\")\n"
         "  else\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$cur\")\n"
         "  fi\n"
         "}\n"
         "complete -F _naxel naxel\n";
  return out;
}

std::string zshCompletion(Declared const& declared) {
  std::string out =
      "#compdef naxel\n"
      "# Completion of naxel for zsh.\n"
      "\n"
      "local curcontext=$curcontext state line\n"
      "typeset -A opt_args\n"
      "local -a commands=(\n";
  for (DeclaredCommand const& c : declared.commands)
    out += "  '" + std::string(c.info->name) + ":" + zshText(std::string(c.info->summary)) + "'\n";
  out += ")\n_arguments -C \\\n";
  for (CLI::Option const* option : namedOptions(*declared.program))
    out += "  " + zshOption(*option) + " \\\n";
  out +=
      "  '1:command:->command' '*::argument:->argument' && return\n"
      "case $state in\n"
      "  command) _describe -t commands command commands ;;\n"
      "  argument)\n    case " +
      zshCommandWord(declared) + " in\n";
  for (DeclaredCommand const& c : declared.commands) {
    out += "      " + std::string(c.info->name) + ")\n        _arguments";
    for (CLI::Option const* option : namedOptions(*c.app))
      out += " \\\n          " + zshOption(*option);
    if (takesFiles(*c.app)) out += " \\\n          '*:file:_files'";
    out += "\n        ;;\n";
  }
  return out + "    esac\n    ;;\nesac\n";
}

}  // namespace NaxelTool
