#pragma once

/// The help of the program and its commands: one line for each option, so that it fits a screen.

#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

namespace NaxelTool {

class HelpFormatter : public CLI::FormatterBase {
 public:
  ~HelpFormatter() override;
  std::string make_help(CLI::App const* app, std::string name,
                        CLI::AppFormatMode mode) const override;
};

/// "[OPTIONS] RULES...", what follows the name of a command.
std::string synopsis(CLI::App const& app);
/// The name of the value of an option, "FORMAT"; empty for a flag.
std::string valueName(CLI::Option const& option);
/// The words of which its value is one, "auto|json"; empty where it is not one of several.
std::string choicesOf(CLI::Option const& option);
/// "-o, --output FILE".
std::string optionHead(CLI::Option const& option);
/// What of the text of an option stands in the help: up to the first line break, with its choices and its
/// default.
std::string shortText(CLI::Option const& option);

}  // namespace NaxelTool
