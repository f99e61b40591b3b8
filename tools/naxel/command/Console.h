#pragma once

/// How a command talks: data to standard output, messages to standard error, and in which form.

#include "input/Diagnostics.h"
#include "input/Errors.h"
#include "output/FdStream.h"
#include "output/Progress.h"

#include <iostream>
#include <unistd.h>

namespace NaxelTool {

enum class ColorMode : uint8_t { automatic, always, never };

/// What every command takes.
struct TalkOptions {
  bool json = false;
  bool quiet = false;
  ColorMode color = ColorMode::automatic;
};

/// The style of messages on standard error by the options and, where they leave the choice, by NO_COLOR
/// and by what standard error is.
MessageStyle messageStyle(TalkOptions const& options);

class Console {
 public:
  explicit Console(TalkOptions const& options);

  TalkOptions const& options() const { return options_; }
  /// For the data that was asked for.
  std::ostream& out() { return out_; }
  /// What was asked for must have arrived before a run may be called a success. Throws InputError.
  void finish();
  Diagnostics& messages() { return messages_; }
  /// What takes long, on a terminal.
  Progress& progress() { return progress_; }

  void error(std::string code, std::string text, std::string help = {}) {
    messages_.say({Severity::error, std::move(code), {}, {}, std::move(text), std::move(help), {}});
  }
  void note(std::string code, std::string text) {
    messages_.say({Severity::note, std::move(code), {}, {}, std::move(text), {}, {}});
  }

 private:
  TalkOptions options_;
  FdStream out_{STDOUT_FILENO};
  Diagnostics messages_;
  Progress progress_;
};

}  // namespace NaxelTool
