#pragma once

/// The two entities by which every stage is driven and answers.

#include "mox/Entity.h"
#include "naxel/types/ControlEnums.h"

#include <string>

namespace Naxel {

/// Written by the stage's owner. A new kick time starts a kick of the stage.
class NAXEL_EXPORT StageConfig : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onKickTime() {}
  };
  std::string_view fwkType() const override { return "Naxel::StageConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// Identifies the kick; seconds.
  Mox::Seconds kickTime() const { return kickTime_; }
  void kickTimeIs(Mox::Seconds v) { attrIs(kickTime_, v, &Notifiee::onKickTime); }

 private:
  Mox::Seconds kickTime_ = 0;
};

/// Written by the stage. A status whose kick time differs from the configuration's belongs to an
/// older kick.
class NAXEL_EXPORT StageStatus : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onKickTime() {}
    virtual void onStatus() {}
    virtual void onFailureText() {}
    virtual void onCaution() {}
    virtual void onProgress() {}
  };
  std::string_view fwkType() const override { return "Naxel::StageStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// The kick that this status answers.
  Mox::Seconds kickTime() const { return kickTime_; }
  void kickTimeIs(Mox::Seconds v) { attrIs(kickTime_, v, &Notifiee::onKickTime); }
  /// How far the kick of `kickTime` has come in this stage. Written last, so that whoever reacts to it
  /// finds everything else that the stage has published.
  StageStatusType status() const { return status_; }
  void statusIs(StageStatusType v) { attrIs(status_, v, &Notifiee::onStatus); }
  /// Why the stage failed: what is too many or refused, how many are needed and how many there are.
  /// Set before `finishedFailed`, empty after any other outcome.
  std::string const& failureText() const { return failureText_; }
  void failureTextIs(std::string v) {
    attrIs(failureText_, std::move(v), &Notifiee::onFailureText);
  }
  /// What whoever learns of a failed kick must know besides, whichever stage has failed: a policy that is
  /// still in force, say. Empty as a rule.
  std::string const& caution() const { return caution_; }
  void cautionIs(std::string v) { attrIs(caution_, std::move(v), &Notifiee::onCaution); }
  /// Rises with whatever brings a stage on that takes its time, so that silence can be told.
  uint64_t progress() const { return progress_; }
  void progressInc() { attrIs(progress_, progress_ + 1, &Notifiee::onProgress); }

 private:
  Mox::Seconds kickTime_ = 0;
  StageStatusType status_ = StageStatusType::init;
  std::string failureText_;
  std::string caution_;
  uint64_t progress_ = 0;
};

}  // namespace Naxel
