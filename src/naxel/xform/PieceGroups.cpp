#include "naxel/xform/PieceGroups.h"

#include <algorithm>
#include <iterator>

namespace Naxel {

PieceGroup PieceGroups::changed(PieceGroup const& base, Keys const& more, Keys const& less) {
  // The same sets as the piece before: the object stays the same, which is what makes labels cheap.
  if (base.group && more.empty() && less.empty()) return base;
  PieceGroup result{nullptr, base.hash};
  for (GenSetKey key : more) result.hash.add(key);
  for (GenSetKey key : less) result.hash.remove(key);
  bool const large = base.group && base.group->keyGroups() > smallSize;
  PieceGroupStep step;
  if (large) {
    // The interner keeps every group that it has made, so pointers are names that stay valid for the run.
    auto const identity = [&](Keys const& keys) {
      return keys.empty() ? nullptr : interner_.intern(keys).get();
    };
    step = {base.group.get(), identity(more), identity(less)};
    if (Group const* known = known_.get(step)) {
      result.group = *known;
      return result;
    }
  }
  static Keys const none;
  Keys const* kept = base.group ? &base.group->keyGroup().items() : &none;
  if (!less.empty()) {
    kept_.clear();
    std::ranges::set_difference(*kept, less, std::back_inserter(kept_));
    kept = &kept_;
  }
  united_.clear();
  std::ranges::set_union(*kept, more, std::back_inserter(united_));
  result.group = interner_.intern(united_, result.hash);
  // Without this, a piece of a large group would cost the size of the group each time that it recurs.
  if (large) known_.set(step, result.group);
  return result;
}

}  // namespace Naxel
