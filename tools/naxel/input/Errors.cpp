#include "input/Errors.h"

#include "input/Diagnostics.h"

#include <algorithm>
#include <cerrno>

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

std::string_view meaningOf(ExitCode code) {
  switch (code) {
    case ExitCode::success: return "done, and nothing was found";
    case ExitCode::findings: return "rules and tables differ, or something else was found";
    case ExitCode::badInput: return "the command line or the input cannot be used";
    case ExitCode::noRoom: return "the rules do not fit";
    case ExitCode::refused: return "the driver refused";
    case ExitCode::device: return "a file could not be read or written: no permission, disk full";
    case ExitCode::internal: return "a fault of the program, or memory that ran out";
  }
  return {};
}

std::vector<ExitCode> const& allExitCodes() {
  static std::vector<ExitCode> const all = {
      ExitCode::success, ExitCode::findings, ExitCode::badInput, ExitCode::noRoom,
      ExitCode::refused, ExitCode::device,   ExitCode::internal};
  return all;
}

bool isExitCode(int number) {
  auto const& all = allExitCodes();
  return std::find(all.begin(), all.end(), static_cast<ExitCode>(number)) != all.end();
}

InputError::InputError(std::string const& file, Position at, std::string const& text, ExitCode code)
    : std::runtime_error(located(file, at, text)), file_(file), at_(at), text_(text), code_(code) {}

InputError::InputError(std::string const& file, Position at, std::string const& text,
                       std::string help)
    : std::runtime_error(located(file, at, text)),
      file_(file),
      at_(at),
      text_(text),
      help_(std::move(help)) {}

ExitCode codeOfSystemError(int error) {
  for (int const names : {ENOENT, ENOTDIR, EISDIR, ELOOP, ENAMETOOLONG, EINVAL})
    if (error == names) return ExitCode::badInput;
  return ExitCode::device;
}

InputError::~InputError() = default;
UnsupportedError::~UnsupportedError() = default;
NeverMatches::~NeverMatches() = default;
OutputError::~OutputError() = default;
EndOfRun::~EndOfRun() = default;
RejectedInput::~RejectedInput() = default;

}  // namespace NaxelTool
