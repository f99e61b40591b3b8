#pragma once

/// One chip's pipeline as the benchmarks time it, with a driver that answers at once and copies
/// nothing.

#include "naxel/agent/Pipeline.h"
#include "naxel/agent/StageTimes.h"
#include "naxel/driver/Driver.h"
#include "obel/TimerWheel.h"

namespace Bench {

/// Seconds that this thread has spent on the processor: on an idle machine the time of the wall, and
/// little disturbed by other programs on a busy one.
double threadSeconds();

/// Has room for everything.
class AtOnceDriver final : public Naxel::Driver {
 public:
  using Driver::Driver;

 private:
  void acquire(Offer const&) override { answerAll(Naxel::ResponseState::hitless); }
  void load(Offer const&) override { answerAll(Naxel::ResponseState::loaded); }
  void revert(Offer const&) override { answerAll(Naxel::ResponseState::reverted); }
  void policy(Naxel::GlobalAclControl) override { confirmPolicy(); }
};

class Pipeline {
 public:
  static constexpr size_t stages = Naxel::stageCount;

  Pipeline(Mox::Ptr<Naxel::AclConfigColl> acls, Mox::Ptr<Naxel::ChipHwCapability> capability);

  /// For the kicks that follow.
  void labelCodeIs(Acl::LabelCode code) { entities_.params->labelCodeIs(code); }
  void keepLabelsIs(bool keeps) { entities_.params->keepLabelsIs(keeps); }
  /// The output in force.
  Mox::Ptr<Naxel::PDData const> output() const { return entities_.pdConfig->currPDData(); }
  /// Kicks and runs the activity until the kick has ended. Returns its seconds. Throws
  /// std::runtime_error, with the reason, where it did not succeed.
  double kick();

  /// Seconds of a stage in the last kick, all its keys together.
  double stageSeconds(Naxel::NaxelActiveStage stage) const { return times_.stage(stage).seconds; }
  /// How often a field was encoded afresh although its labels were to be kept.
  uint64_t encodedAfresh() const;
  /// TCAM entries of all ACLs.
  size_t entries() const { return pipeline_.output().pdAclColl()->numFilters(); }

 private:
  Mox::ManualClock clock_;
  Mox::Activity activity_{clock_};
  Mox::Ptr<Obel::TimerWheel> wheel_;
  Naxel::ChipEntities entities_;
  AtOnceDriver driver_;
  Naxel::Pipeline pipeline_;
  Naxel::StageTimes times_;
};

}  // namespace Bench
