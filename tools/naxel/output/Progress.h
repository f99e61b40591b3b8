#pragma once

/// One line on the terminal about what a run does that takes more than a second, written over as it goes
/// on and gone at the end.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace NaxelTool {

/// The line is written by a thread of its own, which wakes a few times a second; it reads nothing but what
/// stands here, so that the work needs no looks at the clock.
class Progress {
 public:
  /// Does nothing at all unless `shown`.
  explicit Progress(bool shown) : shown_(shown) {}
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;
  ~Progress() { end(); }

  /// What is being done from now on: "reading edge.cfg".
  void stepIs(std::string const& text, uint64_t of = 0);
  /// How many of those that the step has are done; cheap enough for every one of them.
  void doneIs(uint64_t done) { done_.store(done, std::memory_order_relaxed); }

  /// Takes the line off the terminal until the thread writes it again.
  void hide();
  /// Takes it off for good, until the next step.
  void end();

 private:
  void run();
  std::string line() const;
  void hideLocked();

  bool const shown_;
  std::thread thread_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool ending_ = false;
  bool visible_ = false;
  std::string text_;
  uint64_t of_ = 0;
  std::atomic<uint64_t> done_ = 0;
  std::chrono::steady_clock::time_point begin_;
};

}  // namespace NaxelTool
