#include "session/Session.h"

#include "naxel/control/StageControllerTypes.h"
#include "naxel/encoder/EncoderTypes.h"
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
  stageTimes_.emplace(*root().stageSmStatus());
}

Session::~Session() = default;

bool Session::kick() {
  policy_.temporary.reset();
  stageTimes_->clear();
  double const start = StageTimes::wallSeconds();
  bool success = false;
  pipeline_->kick([&](Naxel::KickResult const& result) { success = bool(result); });
  activity_.runUntil([&] { return !pipeline_->isRunning(); });
  kickSeconds_ = StageTimes::wallSeconds() - start;
  return success;
}

std::vector<LabelUse> Session::labelUse() const {
  std::vector<LabelUse> out;
  Naxel::ChipHwCapability const& widths = *data().hwCapability();
  auto const add = [&](std::string field, unsigned width, Naxel::EncoderStatus const& encoder) {
    out.push_back(
        {std::move(field), width, encoder.plainToEncodedLabel().size(), encoder.labelCode()});
  };
  for (Naxel::PrefixXformKey const& key : Naxel::PrefixXformKey::all())
    add(prefixKeyName(key), widths.prefixXformWidth(key), *root().prefixEncoderStatus(key));
  for (Naxel::RangeSetType const type : Naxel::allRangeSetTypes())
    add(Naxel::stringValue(type), widths.rangeXformWidth(type), *root().rangeEncoderStatus(type));
  for (Naxel::ComboLabelSetType const type : Naxel::allComboLabelSetTypes())
    if (unsigned const width = widths.comboXformWidth(type))
      add(Naxel::stringValue(type), width, *root().comboLabelEncoderStatus(type));
  return out;
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
