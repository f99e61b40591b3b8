#include "session/Session.h"

#include "naxel/control/StageControllerTypes.h"
#include "naxel/loader/NaxelLoaderTypes.h"

namespace NaxelTool {

using Naxel::NaxelActiveStage;

void Session::PolicyReactor::onGlobalAclControl() {
  auto const policy = static_cast<Naxel::PDConfig*>(notifier())->globalAclControl();
  if (policy != Naxel::GlobalAclControl::doNotApply) temporary = policy;
}

namespace {

Naxel::ChipEntities entitiesOf(ChipSetup const& setup, Mox::Ptr<Naxel::AclConfigColl> acls) {
  Naxel::ChipEntities entities(setup.capability->chipId());
  entities.capability = setup.capability;
  entities.acls = std::move(acls);
  entities.params->permitDuringUpdateIs(setup.permitDuringUpdate);
  entities.params->labelCodeIs(setup.labelCode);
  entities.params->keepLabelsIs(setup.keepLabels);
  entities.params->entryLimitIs(setup.entryLimit);
  return entities;
}

std::string nameOf(std::monostate) { return {}; }
std::string nameOf(Naxel::PrefixXformKey const& key) { return prefixKeyName(key) + ": "; }
template <class Type>
std::string nameOf(Type type) {
  return Naxel::stringValue(type) + ": ";
}

}  // namespace

Session::Session(ChipSetup const& setup, Mox::Ptr<Naxel::AclConfigColl> acls)
    : wheel_(Mox::makePtr<Obel::TimerWheel>(activity_)) {
  Naxel::ChipEntities const entities = entitiesOf(setup, std::move(acls));
  softChip_ = std::make_unique<SoftChip::Chip>(entities.pdConfig, entities.pdStatus, wheel_,
                                               setup.softChip);
  pipeline_ = std::make_unique<Naxel::Pipeline>(entities, wheel_);
  policy_.notifierIs(entities.pdConfig.get());
}

Session::~Session() = default;

void Session::setupIs(ChipSetup const& setup) {
  pipeline_->capability()->valuesIs(*setup.capability);
  pipeline_->params()->labelCodeIs(setup.labelCode);
  pipeline_->params()->entryLimitIs(setup.entryLimit);
}

bool Session::kick() {
  policy_.temporary.reset();
  bool success = false;
  pipeline_->kick([&](Naxel::KickResult const& result) { success = bool(result); });
  activity_.runUntil([&] { return !pipeline_->isRunning(); });
  return success;
}

NaxelActiveStage Session::failedStage() const {
  return root().stageControllerStatus()->lastFailedStage();
}

std::vector<KickReason> Session::kickReasons() const {
  std::vector<KickReason> out;
  root().stageSmStatus()->forEachKeyed(
      failedStage(), [&](auto const& key, Mox::Ptr<Naxel::StageStatus> const& status) {
        if (status->status() == Naxel::StageStatusType::finishedFailed &&
            !status->failureText().empty())
          out.push_back({key, nameOf(key) + status->failureText()});
      });
  if (std::string const& caution = root().loaderStatus()->caution(); !caution.empty())
    out.push_back({{}, caution});
  return out;
}

std::vector<std::string> Session::failureTexts() const {
  std::vector<std::string> out;
  for (KickReason& reason : kickReasons()) out.push_back(std::move(reason.text));
  if (failedStage() == NaxelActiveStage::stageLoader)
    for (SoftChip::Shortfall const& s : softChip_->shortfalls()) out.push_back(SoftChip::text(s));
  return out;
}

}  // namespace NaxelTool
