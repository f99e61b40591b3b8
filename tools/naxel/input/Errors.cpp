#include "input/Errors.h"

#include "input/Diagnostics.h"

#include <algorithm>

namespace NaxelTool {

namespace {

std::string located(std::string const& file, Position at, std::string const& text) {
  std::string out = printable(file) + ":";
  if (at.line) out += std::to_string(at.line) + ":";
  if (at.line && at.column) out += std::to_string(at.column) + ":";
  return out + " error: " + printable(text);
}

}  // namespace

Position positionOf(std::string const& text, size_t offset) {
  auto const end = text.begin() + static_cast<std::ptrdiff_t>(std::min(offset, text.size()));
  auto const lines = std::count(text.begin(), end, '\n');
  size_t const before = static_cast<size_t>(end - text.begin());
  size_t const newline = before ? text.rfind('\n', before - 1) : std::string::npos;
  size_t const lineStart = newline == std::string::npos ? 0 : newline + 1;
  return {static_cast<size_t>(lines) + 1, before - lineStart + 1};
}

InputError::InputError(std::string const& file, Position at, std::string const& text)
    : std::runtime_error(located(file, at, text)), at_(at), text_(text) {}

InputError::~InputError() = default;
RejectedInput::~RejectedInput() = default;

}  // namespace NaxelTool
