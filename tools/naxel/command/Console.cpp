#include "command/Console.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace NaxelTool {

MessageStyle messageStyle(TalkOptions const& options) {
  auto const wanted = [] {
    char const* const no = std::getenv("NO_COLOR");
    char const* const term = std::getenv("TERM");
    return !(no && *no) && !(term && std::strcmp(term, "dumb") == 0) && isatty(STDERR_FILENO);
  };
  bool const color =
      options.color == ColorMode::automatic ? wanted() : options.color == ColorMode::always;
  return {options.json, color && !options.json, options.quiet};
}

Console::Console(TalkOptions const& options)
    : options_(options),
      messages_(std::cerr, messageStyle(options)),
      progress_(!options.quiet && !options.json && isatty(STDERR_FILENO)) {
  messages_.roomMakerIs([this] { progress_.hide(); });
}

void Console::finish() {
  progress_.end();
  out_.flush();
  if (int const error = out_.error())
    throw OutputError("standard output", "cannot be written: " + std::string(std::strerror(error)),
                      ExitCode::device);
}

}  // namespace NaxelTool
