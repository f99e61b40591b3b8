#pragma once

/// Options as all commands take them. Numbers are decimal or begin with 0x, in their range and nothing
/// else; choices are made by name; texts and paths are not empty. Whatever is wrong with a value is a
/// CLI::ValidationError that names the option.
///
/// The text of an option is one line for the help; what follows behind a line break is for the manual
/// page alone. The kind of the value, which completion goes by, is the name of its type: FILE, one of
/// several in "a|b|c", or anything else.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

namespace NaxelTool {

/// Reads "443" or "0x1bb"; zeros in front mean nothing. Throws std::invalid_argument with a text for
/// the user.
uint64_t numberFromText(std::string_view text, uint64_t min, uint64_t max);
/// The same with an ending K, M or G, for 2^10, 2^20 and 2^30.
uint64_t sizeFromText(std::string_view text, uint64_t min, uint64_t max);

/// A name, or several of one option, as "-o,--output".
using OptionName = std::string;

CLI::Option* addNumber(CLI::App& app, OptionName const& name, std::function<void(uint64_t)> set,
                       uint64_t min, uint64_t max, std::string const& text);
/// What `to` holds beforehand is shown as the default.
template <class T>
CLI::Option* addNumber(CLI::App& app, OptionName const& name, T& to, uint64_t min, uint64_t max,
                       std::string const& text) {
  return addNumber(
             app, name, [&to](uint64_t v) { to = static_cast<T>(v); }, min, max, text)
      ->default_str(std::to_string(to));
}
CLI::Option* addSize(CLI::App& app, OptionName const& name, uint64_t& to, uint64_t min,
                     std::string const& text);

/// A text that is not empty.
CLI::Option* addText(CLI::App& app, OptionName const& name, std::string& to,
                     std::string const& typeName, std::string const& text);
inline CLI::Option* addFile(CLI::App& app, OptionName const& name, std::string& to,
                            std::string const& text) {
  return addText(app, name, to, "FILE", text);
}
CLI::Option* addFlag(CLI::App& app, OptionName const& name, bool& to, std::string const& text);

/// One of `names`, whose place there is handed to `set`.
CLI::Option* addChoice(CLI::App& app, OptionName const& name, std::vector<std::string_view> names,
                       std::function<void(size_t)> set, std::string const& text);
template <class E>
using Choices = std::vector<std::pair<std::string_view, E>>;
/// `to` is an E or an optional one.
template <class E, class T>
CLI::Option* addChoice(CLI::App& app, OptionName const& name, T& to, Choices<E> const& choices,
                       std::string const& text) {
  std::vector<std::string_view> names;
  names.reserve(choices.size());
  for (auto const& [word, value] : choices) names.push_back(word);
  return addChoice(
      app, name, std::move(names), [&to, choices](size_t i) { to = choices[i].second; }, text);
}

}  // namespace NaxelTool
