#include "naxel/types/ConfigStamp.h"

#include <atomic>

namespace Naxel {

namespace {

std::atomic<uint64_t> allConfigChanges{
    0};  // agents may write the configurations of several threads

}  // namespace

uint64_t configChanges() noexcept { return allConfigChanges.load(std::memory_order_relaxed); }

void ConfigStamp::renew() noexcept {
  stamp_.renew();
  // Whoever kicks from another thread than he writes from orders the two himself, and so sees it.
  allConfigChanges.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace Naxel
