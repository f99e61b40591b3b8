/// Rule files as they lie on the disk: plain or gzip, with or without a byte order mark, of a format
/// that their first character tells.

#include "Readers.h"
#include "input/InputFile.h"
#include "input/RuleFiles.h"

#include <sstream>
#include <sys/mman.h>
#include <unistd.h>

using namespace NaxelTool;

namespace {

/// A file in memory that has a path.
class File {
 public:
  File(uint8_t const* data, size_t size) : fd_(memfd_create("rules", 0)) {
    Fuzz::expect(fd_ >= 0 && write(fd_, data, size) == static_cast<ssize_t>(size), "no file");
  }
  File(File const&) = delete;
  File& operator=(File const&) = delete;
  ~File() { close(fd_); }

  std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

 private:
  int fd_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  File const file(data, size);
  std::string content;
  if (!Fuzz::takes(file.path(), {}, Fuzz::Place::none,
                   [&](auto const& path, auto const&) { content = readInput(path); }))
    return 0;
  RuleSet rules(Obel::ChipId(0));
  std::ostringstream remarks;
  if (Fuzz::takes(file.path(), content, Fuzz::Place::none, [&](auto const& path, auto const&) {
        readRuleFiles({path}, RuleFormat::automatic, FlagsMode::ignore, rules, remarks);
      }))
    Fuzz::checkRules(rules);
  return 0;
}
