#include "output/Progress.h"

#include "input/Diagnostics.h"
#include "output/Signals.h"

#include <csignal>
#include <string_view>
#include <unistd.h>

namespace NaxelTool {

namespace {

constexpr auto patience = std::chrono::seconds(1);
constexpr auto pace = std::chrono::milliseconds(200);
/// A longer line would wrap, and could not be taken off again.
constexpr size_t widestLine = 78;

void writeTerminal(std::string_view text) {
  [[maybe_unused]] auto const ignored = write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace

void Progress::stepIs(std::string const& text, uint64_t of) {
  if (!shown_) return;
  std::lock_guard const lock(mutex_);
  text_ = printable(text);
  of_ = of;
  doneIs(0);
  if (thread_.joinable()) return;
  begin_ = std::chrono::steady_clock::now();
  ending_ = false;
  // Signals are for the thread that works: the new one inherits that all are blocked.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  thread_ = std::thread([this] { run(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void Progress::run() {
  std::unique_lock lock(mutex_);
  auto wait = std::chrono::steady_clock::duration(patience);
  while (!wake_.wait_for(lock, wait, [this] { return ending_; })) {
    passingLineIs(true);
    writeTerminal("\r\x1b[K" + line());
    visible_ = true;
    wait = pace;
  }
}

std::string Progress::line() const {
  auto const seconds =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin_);
  std::string const time = " (" + std::to_string(seconds.count()) + " s)";
  std::string out = text_;
  if (of_)
    out +=
        ": " + std::to_string(done_.load(std::memory_order_relaxed)) + " of " + std::to_string(of_);
  // What is cut may be the middle of a character.
  if (out.size() + time.size() > widestLine)
    out = out.substr(0, widestLine - time.size() - 3) + "...";
  for (char& c : out)
    if (static_cast<unsigned char>(c) >= 0x7f) c = '.';
  return out + time;
}

void Progress::hide() {
  if (!shown_) return;
  std::lock_guard const lock(mutex_);
  hideLocked();
}

void Progress::hideLocked() {
  if (visible_) writeTerminal("\r\x1b[K");
  visible_ = false;
  passingLineIs(false);
}

void Progress::end() {
  if (!thread_.joinable()) return;
  {
    std::lock_guard const lock(mutex_);
    ending_ = true;
    hideLocked();
  }
  wake_.notify_all();
  thread_.join();
}

}  // namespace NaxelTool
