#include "input/text/EntryError.h"

namespace NaxelTool {

EntryError::~EntryError() = default;

std::string quoted(Word word) {
  return word ? "'" + std::string(word.text.substr(0, 200)) + "'" : "the end of the line";
}

void failSyntax(Word at, std::string const& text, std::string help) {
  throw EntryError(EntryError::Kind::wrong, at.place, "syntax", text, std::move(help));
}

void failUnsupported(Word at, std::string const& feature) {
  throw EntryError(EntryError::Kind::unsupported, at.place, "unsupported",
                   "rules cannot match " + feature);
}

void failWith(Word at, std::string code, std::string const& text, std::string help) {
  throw EntryError(EntryError::Kind::wrong, at.place, std::move(code), text, std::move(help));
}

}  // namespace NaxelTool
