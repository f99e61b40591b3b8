#pragma once

/// Base of the objects that can be found and shared by content.

#include "mox/Entity.h"

namespace Naxel {

/// Contract for every override: equal objects hash equally; isEqual is false for null and for an
/// object of another kind. The base versions end the process.
class NAXEL_EXPORT Dedupable : public Mox::Entity {
 public:
  std::string_view fwkType() const override { return "Naxel::Dedupable"; }
  /// Content hash, independent of the order in which members were inserted.
  virtual uint32_t hash() const;
  virtual bool isEqual(Mox::Ptr<Dedupable const> const& other) const;
};

}  // namespace Naxel
