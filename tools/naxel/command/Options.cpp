#include "command/Options.h"

#include "input/Diagnostics.h"

#include <charconv>
#include <stdexcept>

namespace NaxelTool {

namespace {

/// The text that stands for a value too long to be one.
constexpr size_t longestNumber = 20;

std::optional<uint64_t> numberIn(std::string_view text) {
  bool const hex = text.starts_with("0x") || text.starts_with("0X");
  if (hex) text.remove_prefix(2);
  uint64_t value = 0;
  char const* const end = text.data() + text.size();
  auto const [at, error] = std::from_chars(text.data(), end, value, hex ? 16 : 10);
  if (text.empty() || text.size() > longestNumber || error != std::errc() || at != end)
    return std::nullopt;
  return value;
}

std::string shownValue(std::string_view text) { return "'" + printable(text) + "'"; }

[[noreturn]] void failRange(std::string_view text, uint64_t min, uint64_t max) {
  throw std::invalid_argument(shownValue(text) + " is not a whole number from " +
                              std::to_string(min) + " to " + std::to_string(max));
}

/// Gives what is wrong with a value the name of its option.
template <class F>
CLI::Option* addValue(CLI::App& app, OptionName const& name, std::string const& typeName,
                      std::string const& text, F take) {
  std::string const shown = name.substr(name.find("--") == std::string::npos ? 0 : name.find("--"));
  return app
      .add_option_function<std::string>(
          name,
          [take = std::move(take), shown](std::string const& value) {
            try {
              if (value.empty()) throw std::invalid_argument("the value is empty");
              take(value);
            } catch (std::invalid_argument const& e) {
              throw CLI::ValidationError(shown, e.what());
            }
          },
          text)
      ->type_name(typeName);
}

}  // namespace

uint64_t numberFromText(std::string_view text, uint64_t min, uint64_t max) {
  auto const value = numberIn(text);
  if (!value || *value < min || *value > max) failRange(text, min, max);
  return *value;
}

uint64_t sizeFromText(std::string_view text, uint64_t min, uint64_t max) {
  static constexpr std::string_view endings = "KMG";
  std::string_view digits = text;
  unsigned shift = 0;
  if (size_t const i = text.empty() ? std::string_view::npos : endings.find(text.back());
      i != std::string_view::npos) {
    shift = 10 * (static_cast<unsigned>(i) + 1);
    digits.remove_suffix(1);
  }
  auto const value = numberIn(digits);
  if (!value || *value > max >> shift || *value << shift < min)
    throw std::invalid_argument(shownValue(text) +
                                " is not a number of bytes, such as 65536, 64K, 10M or 2G");
  return *value << shift;
}

CLI::Option* addNumber(CLI::App& app, OptionName const& name, std::function<void(uint64_t)> set,
                       uint64_t min, uint64_t max, std::string const& text) {
  return addValue(app, name, "NUMBER", text,
                  [set = std::move(set), min, max](std::string const& value) {
                    set(numberFromText(value, min, max));
                  });
}

CLI::Option* addSize(CLI::App& app, OptionName const& name, uint64_t& to, uint64_t min,
                     std::string const& text) {
  return addValue(app, name, "SIZE", text, [&to, min](std::string const& value) {
    to = sizeFromText(value, min, ~uint64_t{0} >> 1);
  });
}

CLI::Option* addText(CLI::App& app, OptionName const& name, std::string& to,
                     std::string const& typeName, std::string const& text) {
  return addValue(app, name, typeName, text, [&to](std::string const& value) { to = value; });
}

CLI::Option* addFlag(CLI::App& app, OptionName const& name, bool& to, std::string const& text) {
  return app.add_flag(name, to, text)->disable_flag_override();
}

CLI::Option* addChoice(CLI::App& app, OptionName const& name, std::vector<std::string_view> names,
                       std::function<void(size_t)> set, std::string const& text) {
  std::string all;
  for (std::string_view const word : names) all += (all.empty() ? "" : "|") + std::string(word);
  return addValue(app, name, all, text,
                  [names = std::move(names), set = std::move(set), all](std::string const& value) {
                    for (size_t i = 0; i < names.size(); ++i)
                      if (names[i] == value) return set(i);
                    std::string const hint = didYouMean(value, names);
                    throw std::invalid_argument(shownValue(value) + " is none of " + all +
                                                (hint.empty() ? "" : "; " + hint));
                  });
}

}  // namespace NaxelTool
