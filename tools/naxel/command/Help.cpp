#include "command/Help.h"

#include <algorithm>
#include <cctype>

namespace NaxelTool {

namespace {

/// Where the texts begin, and how wide a line may be.
constexpr size_t textColumn = 24;
constexpr size_t lineWidth = 80;

/// One row of the help: what stands on the left, and its text.
struct Row {
  std::string head;
  std::string text;
};

/// How much of a text fits a line: up to a blank, or to where one of several choices ends.
size_t fitting(std::string const& text, size_t room) {
  if (text.size() <= room) return text.size();
  size_t const end = text.find_last_of(" |", room);
  if (end == std::string::npos || end == 0) return text.size();
  return text[end] == '|' && end < room ? end + 1 : end;
}

void print(std::string& out, Row const& row) {
  std::string line = "  " + row.head;
  if (line.size() + 2 > textColumn) {
    out += line + '\n';
    line.clear();
  }
  std::string rest = row.text;
  do {
    line.resize(textColumn, ' ');
    size_t const length = fitting(rest, lineWidth - textColumn);
    out += line + rest.substr(0, length) + '\n';
    rest.erase(0, rest.find_first_not_of(' ', length));
    line.clear();
  } while (!rest.empty());
}

/// Options that stand behind each other with the same text share a row.
std::vector<Row> rowsOf(CLI::App const& app) {
  std::vector<Row> rows;
  CLI::Option const* last = nullptr;
  for (CLI::Option const* option : app.get_options()) {
    if (option->get_positional() || option->get_group().empty()) continue;
    std::string const text = shortText(*option);
    if (last && shortText(*last) == text && valueName(*last) == valueName(*option))
      rows.back().head.insert(rows.back().head.size() - valueName(*last).size() - 1,
                              ", " + option->get_name());
    else
      rows.push_back({optionHead(*option), text});
    last = option;
  }
  return rows;
}

}  // namespace

HelpFormatter::~HelpFormatter() = default;

std::string valueName(CLI::Option const& option) {
  if (option.get_expected_max() == 0) return {};
  if (choicesOf(option).empty()) return option.get_type_name();
  std::string name = option.get_lnames().front();
  name.erase(0, name.rfind('-') + 1);
  for (char& c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return name;
}

std::string choicesOf(CLI::Option const& option) {
  std::string const type = option.get_type_name();
  return type.find('|') == std::string::npos ? std::string() : type;
}

std::string shortText(CLI::Option const& option) {
  std::string const& text = option.get_description();
  std::string out = text.substr(0, text.find('\n'));
  if (std::string const choices = choicesOf(option); !choices.empty()) out += ": " + choices;
  if (!option.get_default_str().empty() && option.get_expected_max() > 0)
    out += ", " + option.get_default_str() + " by default";
  return out;
}

std::string optionHead(CLI::Option const& option) {
  std::string out;
  for (std::string const& name : option.get_snames()) out += (out.empty() ? "-" : ", -") + name;
  for (std::string const& name : option.get_lnames()) out += (out.empty() ? "--" : ", --") + name;
  std::string const value = valueName(option);
  return out + (value.empty() ? "" : " " + value);
}

std::string synopsis(CLI::App const& app) {
  if (!app.get_subcommands([](CLI::App const*) { return true; }).empty())
    return "COMMAND [OPTIONS] ...";
  std::string out = "[OPTIONS]";
  for (CLI::Option const* option : app.get_options()) {
    if (option->get_required()) out += " " + optionHead(*option);
    if (option->get_positional())
      out += " " + option->get_type_name() + (option->get_expected_max() > 1 ? "..." : "");
  }
  return out;
}

std::string HelpFormatter::make_help(CLI::App const* app, std::string, CLI::AppFormatMode) const {
  bool const isCommand = app->get_parent() != nullptr;
  std::string const name = isCommand ? "naxel " + app->get_name() : app->get_name();
  std::string out = app->get_description() + "\n\nUsage: " + name + " " + synopsis(*app) + "\n\n";
  auto const commands =
      app->get_subcommands([](CLI::App const* c) { return !c->get_group().empty(); });
  for (CLI::App const* c : commands) print(out, {c->get_name(), c->get_description()});
  if (!commands.empty()) out += '\n';
  for (std::string const& alias : app->get_aliases()) print(out, {"alias", "naxel " + alias});
  for (Row const& row : rowsOf(*app)) print(out, row);
  out += "\nExample:\n  " + app->get_footer() + '\n';
  if (!isCommand) out += "\nMore of a command: naxel COMMAND --help, and man naxel-COMMAND.\n";
  return out;
}

}  // namespace NaxelTool
