#pragma once

/// Base of the objects that can be found and shared by content.

#include "mox/Entity.h"

namespace Naxel {

/// Contract for every override: equal objects hash equally; isEqual is false for null and for an
/// object of another kind. The base versions of these two end the process. A hash never decides that
/// two objects are equal.
class NAXEL_EXPORT Dedupable : public Mox::Entity {
 public:
  std::string_view fwkType() const override { return "Naxel::Dedupable"; }
  /// Content hash, independent of the order in which members were inserted.
  virtual uint32_t hash() const;
  virtual bool isEqual(Mox::Ptr<Dedupable const> const& other) const;
  /// Where the object stands in an index: equal objects have equal places, and nobody outside the
  /// process can tell which others have the same. An override feeds the content itself to
  /// Mox::KeyedHash; the base can only feed hash(), which is public.
  virtual uint64_t place() const;
};

}  // namespace Naxel
