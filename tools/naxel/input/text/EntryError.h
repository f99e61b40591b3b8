#pragma once

/// Why an entry of a list gives no rules.

#include "input/text/Words.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace NaxelTool {

class EntryError : public std::runtime_error {
 public:
  enum class Kind : uint8_t {
    wrong,        ///< cannot mean anything, or nothing that the file tells
    unsupported,  ///< means something that rules cannot say
    ineffective,  ///< means nothing to packets, such as an entry that is switched off
  };

  EntryError(Kind ofKind, Place at, std::string theCode, std::string const& text,
             std::string theHelp = {})
      : std::runtime_error(text),
        kind(ofKind),
        place(at),
        code(std::move(theCode)),
        help(std::move(theHelp)) {}
  ~EntryError() override;

  Kind kind;
  Place place;
  std::string code;
  std::string help;
};

/// The word in quotes, or that the line ends there.
std::string quoted(Word word);

[[noreturn]] void failSyntax(Word at, std::string const& text, std::string help = {});
/// What `feature` names is nothing that rules can say.
[[noreturn]] void failUnsupported(Word at, std::string const& feature);
/// Wrong in a way that has a code of its own, such as a name that the file or the dialect does not have.
[[noreturn]] void failWith(Word at, std::string code, std::string const& text,
                           std::string help = {});

}  // namespace NaxelTool
