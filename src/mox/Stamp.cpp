#include "mox/Stamp.h"

#include <atomic>

namespace Mox {

Stamp newStamp() noexcept {
  static std::atomic<Stamp> last{0};  // pipelines of several threads share the numbering
  // A number has to be unique and says nothing about the order of other writes. 64 bits do not run out.
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

}  // namespace Mox
