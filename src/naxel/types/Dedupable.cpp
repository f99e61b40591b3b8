#include "naxel/types/Dedupable.h"

#include "mox/Assert.h"
#include "mox/KeyedHash.h"

namespace Naxel {

uint32_t Dedupable::hash() const {
  MOX_ASSERT(false && "Not implemented");
  return 0;
}

bool Dedupable::isEqual(Mox::Ptr<Dedupable const> const&) const {
  MOX_ASSERT(false && "Not implemented");
  return false;
}

uint64_t Dedupable::place() const { return Mox::KeyedHash().word(hash()).finish(); }

}  // namespace Naxel
