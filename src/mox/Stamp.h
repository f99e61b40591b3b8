#pragma once

/// Stamps: how unchanged content is told from changed content without a look at it.
///
/// A stamp is a number that the process gives to one content of one object, and never again to
/// another one. The object draws a new stamp with every write that changes something. So equal stamps
/// are the same content, whoever wrote it and however he chose it; different stamps say nothing, and
/// whoever must know compares the contents. A hash could only tell that contents differ, and an
/// address says nothing about an object that was made in the place of another.

#include "mox/Export.h"

#include <algorithm>
#include <cstdint>

namespace Mox {

/// 0 is no stamp.
using Stamp = uint64_t;

/// A stamp that has not been given before. May be called from any thread.
NAXEL_EXPORT Stamp newStamp() noexcept;

/// The stamp of an object's content. A copy of the object has the same content and keeps it.
class ContentStamp {
 public:
  /// The content has changed.
  void renew() noexcept { stamp_ = 0; }
  /// Drawn at the first question after a change: an object that is filled member by member draws one.
  Stamp get() const noexcept {
    if (stamp_ == 0) stamp_ = newStamp();
    return stamp_;
  }
  /// Another object was found to have the same content, member by member: both take the older stamp, so
  /// that nobody has to look again. (Of the newer one, two objects could be turned into each other for ever.)
  void agreeWith(ContentStamp const& other) const noexcept {
    stamp_ = other.stamp_ = std::min(get(), other.get());
  }

 private:
  mutable Stamp stamp_ = 0;
};

}  // namespace Mox
