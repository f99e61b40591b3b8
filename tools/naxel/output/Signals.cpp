#include "output/Signals.h"

#include "input/Errors.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

#include <climits>

namespace NaxelTool {

namespace {

/// Read by handlers, so that it consists of plain memory: a slot is in use while its first byte is set.
struct Slot {
  std::array<char, PATH_MAX> path;
  std::atomic<bool> used = false;
};
std::array<Slot, 4> slots;
bool inJson = false;
std::atomic<bool> lineShown = false;

constexpr std::array<int, 4> ending = {SIGHUP, SIGINT, SIGTERM, SIGPIPE};

/// No handler runs between the making of a file and its entry in the table.
class SignalsHeld {
 public:
  SignalsHeld() {
    sigset_t set;
    sigemptyset(&set);
    for (int const s : ending) sigaddset(&set, s);
    sigprocmask(SIG_BLOCK, &set, &before_);
  }
  SignalsHeld(SignalsHeld const&) = delete;
  SignalsHeld& operator=(SignalsHeld const&) = delete;
  ~SignalsHeld() {
    int const kept = errno;
    sigprocmask(SIG_SETMASK, &before_, nullptr);
    errno = kept;
  }

 private:
  sigset_t before_;
};

volatile std::sig_atomic_t noted = 0;
std::array<struct sigaction, ending.size()> actionBefore;

void note(int number) {
  if (!noted) noted = number;
}

void removeTraces() {
  for (Slot& slot : slots)
    if (slot.used) unlink(slot.path.data());
  static constexpr char erase[] = "\r\x1b[K";
  if (lineShown) static_cast<void>(!write(STDERR_FILENO, erase, sizeof erase - 1));
}

/// The handler has been taken out by then, so the signal does what it does to any program.
void endBySignal(int number) {
  removeTraces();
  raise(number);
}

void endByFault(int) {
  static constexpr char text[] = "naxel: error[internal]: a fault of the program\n";
  static constexpr char json[] =
      R"({"schema":"naxel-message","version":1,"severity":"error","code":"internal",)"
      R"("text":"a fault of the program"})"
      "\n";
  removeTraces();
  auto const ignored = inJson ? write(STDERR_FILENO, json, sizeof json - 1)
                              : write(STDERR_FILENO, text, sizeof text - 1);
  static_cast<void>(ignored);
  _exit(static_cast<int>(ExitCode::internal));
}

}  // namespace

void signalsAreHandled(bool json) {
  inJson = json;
  struct sigaction action {};
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  action.sa_handler = endBySignal;
  for (int const s : ending) {
    struct sigaction before {};
    if (sigaction(s, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
      sigaction(s, &action, nullptr);
  }
  action.sa_handler = endByFault;
  sigaction(SIGABRT, &action, nullptr);
}

void passingLineIs(bool shown) { lineShown = shown; }

SignalsNoted::SignalsNoted() {
  noted = 0;
  sigset_t set;
  sigemptyset(&set);
  for (int const s : ending) sigaddset(&set, s);
  sigprocmask(SIG_BLOCK, &set, &before_);
  struct sigaction action {};
  action.sa_handler = note;
  for (size_t i = 0; i < ending.size(); ++i)
    if (sigaction(ending[i], nullptr, &actionBefore[i]) == 0 &&
        actionBefore[i].sa_handler != SIG_IGN)
      sigaction(ending[i], &action, nullptr);
}

SignalsNoted::~SignalsNoted() {
  for (size_t i = 0; i < ending.size(); ++i) sigaction(ending[i], &actionBefore[i], nullptr);
  sigprocmask(SIG_SETMASK, &before_, nullptr);
}

int SignalsNoted::number() { return noted; }

TemporaryFile::TemporaryFile(std::string const& beside) {
  std::filesystem::path const folder = std::filesystem::path(beside).parent_path();
  path_ = (folder / ".naxel-XXXXXX").string();
  if (path_.size() >= PATH_MAX) {
    errno = ENAMETOOLONG;
    return;
  }
  SignalsHeld const held;
  fd_ = mkostemp(path_.data(), O_CLOEXEC);
  if (fd_ < 0) return;
  for (size_t i = 0; i < slots.size() && slot_ < 0; ++i) {
    if (slots[i].used) continue;
    std::memcpy(slots[i].path.data(), path_.c_str(), path_.size() + 1);
    slots[i].used = true;
    slot_ = static_cast<int>(i);
  }
}

TemporaryFile::~TemporaryFile() {
  if (fd_ < 0) return;
  close(fd_);
  if (path_.empty()) return;
  SignalsHeld const held;
  unlink(path_.c_str());
  forget();
}

bool TemporaryFile::moveTo(std::string const& path) {
  SignalsHeld const held;
  if (rename(path_.c_str(), path.c_str()) != 0) return false;
  forget();
  return true;
}

void TemporaryFile::forget() {
  if (slot_ >= 0) slots[static_cast<size_t>(slot_)].used = false;
  slot_ = -1;
  path_.clear();
}

}  // namespace NaxelTool
