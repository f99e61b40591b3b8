#include "Pipeline.h"

#include "naxel/control/NaxelRootSm.h"
#include "naxel/encoder/EncoderTypes.h"

#include <ctime>
#include <stdexcept>

namespace Bench {

double threadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

namespace {

Naxel::ChipEntities entitiesOf(Mox::Ptr<Naxel::AclConfigColl> acls,
                               Mox::Ptr<Naxel::ChipHwCapability> capability) {
  Naxel::ChipEntities entities(capability->chipId());
  entities.acls = std::move(acls);
  entities.capability = std::move(capability);
  return entities;
}

}  // namespace

Pipeline::Pipeline(Mox::Ptr<Naxel::AclConfigColl> acls,
                   Mox::Ptr<Naxel::ChipHwCapability> capability)
    : wheel_(Mox::makePtr<Obel::TimerWheel>(activity_)),
      entities_(entitiesOf(std::move(acls), std::move(capability))),
      driver_(entities_.pdConfig, entities_.pdStatus),
      pipeline_(entities_, wheel_),
      times_(*pipeline_.root().stageSmStatus(), threadSeconds) {
  driver_.start();
}

double Pipeline::kick() {
  times_.clear();
  Naxel::KickResult ended;
  double const start = threadSeconds();
  pipeline_.kick([&](Naxel::KickResult const& result) { ended = result; });
  activity_.runUntil([&] { return !pipeline_.isRunning(); });
  double const seconds = threadSeconds() - start;
  if (!ended) throw std::runtime_error("the kick did not succeed: " + text(ended));
  return seconds;
}

uint64_t Pipeline::encodedAfresh() const {
  uint64_t sum = 0;
  for (auto const& key : Naxel::PrefixXformKey::all())
    if (auto const status = pipeline_.root().prefixEncoderStatus(key))
      sum += status->encodedAfresh();
  for (auto const type : Naxel::allRangeSetTypes())
    if (auto const status = pipeline_.root().rangeEncoderStatus(type))
      sum += status->encodedAfresh();
  return sum;
}

}  // namespace Bench
