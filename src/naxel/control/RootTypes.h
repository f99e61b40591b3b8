#pragma once

/// The entities through which the agent requests kicks and learns their outcome.

#include "mox/Entity.h"
#include "naxel/types/ControlEnums.h"
#include "obel/ChipId.h"

#include <string>

namespace Naxel {

/// Written by the agent, after the root state machine has been built: what stands here at its
/// construction is no request. Write `naxelKickRequest` first, then `naxelKickTime`.
class NAXEL_EXPORT RootConfig : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onNaxelKickRequest() {}
    virtual void onNaxelKickTime() {}
  };
  explicit RootConfig(Obel::ChipId chipId) : chipId_(chipId) {}
  std::string_view fwkType() const override { return "Naxel::RootConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  Obel::ChipId chipId() const { return chipId_; }
  /// What the next kick time asks for; writing it alone requests nothing.
  NaxelKickRequest naxelKickRequest() const { return naxelKickRequest_; }
  void naxelKickRequestIs(NaxelKickRequest v) {
    attrIs(naxelKickRequest_, v, &Notifiee::onNaxelKickRequest);
  }
  /// Writing a value other than the present one requests a kick. The value is the agent's own; the
  /// pipeline goes by its own clock.
  Mox::Seconds naxelKickTime() const { return naxelKickTime_; }
  void naxelKickTimeIs(Mox::Seconds v) { attrIs(naxelKickTime_, v, &Notifiee::onNaxelKickTime); }

 private:
  Obel::ChipId chipId_;
  NaxelKickRequest naxelKickRequest_ = NaxelKickRequest::naxelStart;
  Mox::Seconds naxelKickTime_ = 0;
};
inline Mox::Ptr<RootConfig> rootConfigFactory(Obel::ChipId chipId) {
  return Mox::makePtr<RootConfig>(chipId);
}

/// Written by the root state machine.
class NAXEL_EXPORT RootStatus : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onKickCount() {}
    virtual void onKickTime() {}
    virtual void onKickProgress() {}
    virtual void onKickMessage() {}
  };
  explicit RootStatus(Obel::ChipId chipId) : chipId_(chipId) {}
  std::string_view fwkType() const override { return "Naxel::RootStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  Obel::ChipId chipId() const { return chipId_; }
  /// Number of requests handled.
  uint32_t kickCount() const { return kickCount_; }
  void kickCountIs(uint32_t v) { attrIs(kickCount_, v, &Notifiee::onKickCount); }
  /// The `naxelKickTime` of the last request handled.
  Mox::Seconds kickTime() const { return kickTime_; }
  void kickTimeIs(Mox::Seconds v) { attrIs(kickTime_, v, &Notifiee::onKickTime); }
  /// Where the last request stands. It is written after everything that explains it, so a reaction to it
  /// finds `kickMessage` in place.
  NaxelProgress kickProgress() const { return kickProgress_; }
  void kickProgressIs(NaxelProgress v) { attrIs(kickProgress_, v, &Notifiee::onKickProgress); }
  /// Which stage failed on which chip; empty from the next start on.
  std::string const& kickMessage() const { return kickMessage_; }
  void kickMessageIs(std::string v) {
    attrIs(kickMessage_, std::move(v), &Notifiee::onKickMessage);
  }

 private:
  Obel::ChipId chipId_;
  uint32_t kickCount_ = 0;
  Mox::Seconds kickTime_ = 0;
  NaxelProgress kickProgress_ = NaxelProgress::naxelInitialized;
  std::string kickMessage_;
};
inline Mox::Ptr<RootStatus> rootStatusFactory(Obel::ChipId chipId) {
  return Mox::makePtr<RootStatus>(chipId);
}

}  // namespace Naxel
