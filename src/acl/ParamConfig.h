#pragma once

/// The agent's ACL parameters.

#include "mox/Entity.h"

namespace Acl {

class NAXEL_EXPORT ParamConfig : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onPermitDuringUpdate() {}
  };
  std::string_view fwkType() const override { return "Acl::ParamConfig"; }
  Mox::AttributeTable const& attributeTable() const override {
    static Mox::AttributeTable const table = {
        Mox::attribute<&ParamConfig::permitDuringUpdate_>("permitDuringUpdate")};
    return table;
  }

  /// Which policy stands in for the ACLs while a change that disturbs traffic is being loaded: true
  /// permits all packets, false denies all. Default false.
  bool permitDuringUpdate() const { return permitDuringUpdate_; }
  void permitDuringUpdateIs(bool v) {
    attrIs(permitDuringUpdate_, v, &Notifiee::onPermitDuringUpdate);
  }

 private:
  bool permitDuringUpdate_ = false;
};

inline Mox::Ptr<ParamConfig> paramConfigFactory() { return Mox::makePtr<ParamConfig>(); }

}  // namespace Acl
