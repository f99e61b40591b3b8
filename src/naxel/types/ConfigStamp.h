#pragma once

/// Stamps of what agents write, and whether anything has been written at all.

#include "mox/Stamp.h"

namespace Naxel {

/// How many changes have been made to configurations of this process, of whatever chip. While it stands nothing has
/// changed in any of them, and nobody need look. It takes part in no output. May be called from any thread.
NAXEL_EXPORT uint64_t configChanges() noexcept;

/// A content stamp in a configuration: each change is counted, too.
class NAXEL_EXPORT ConfigStamp {
 public:
  /// The content has changed, or is about to.
  void renew() noexcept;
  Mox::Stamp get() const noexcept { return stamp_.get(); }
  /// See Mox::ContentStamp; no change.
  void agreeWith(ConfigStamp const& other) const noexcept { stamp_.agreeWith(other.stamp_); }

 private:
  Mox::ContentStamp stamp_;
};

}  // namespace Naxel
