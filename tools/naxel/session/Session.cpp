#include "session/Session.h"

#include "acl/ParamConfig.h"
#include "obel/TimerWheel.h"

#include <chrono>

namespace NaxelTool {

using Naxel::NaxelActiveStage;
using Naxel::NaxelProgress;

void Session::PolicyReactor::onGlobalAclControl() {
  auto const policy = static_cast<Naxel::PDConfig*>(notifier())->globalAclControl();
  if (policy != Naxel::GlobalAclControl::doNotApply) temporary = policy;
}

Session::Session(ChipSetup const& setup, Mox::Ptr<Naxel::AclConfigColl const> acls)
    : chip_(setup.capability->chipId()),
      wheel_(Mox::makePtr<Obel::TimerWheel>(activity_)),
      capability_(setup.capability),
      acls_(std::move(acls)),
      rootConfig_(Mox::makePtr<Naxel::RootConfig>(chip_)),
      rootStatus_(Mox::makePtr<Naxel::RootStatus>(chip_)),
      pdConfig_(Naxel::pDConfigFactory(chip_)),
      pdStatus_(Mox::makePtr<Naxel::PDStatus>(chip_)),
      softChip_(std::make_unique<SoftChip::Chip>(pdConfig_, pdStatus_, wheel_, setup.softChip)) {
  auto const param = Acl::paramConfigFactory();
  param->permitDuringUpdateIs(setup.permitDuringUpdate);
  root_ = Naxel::naxelRootSmFactory(chip_, capability_, rootConfig_, rootStatus_, acls_, param,
                                    pdConfig_, pdStatus_, wheel_);
  policy_.notifierIs(pdConfig_.get());
  watchStages();
}

Session::~Session() = default;

template <class P>
void Session::watch(NaxelActiveStage stage, P const& status, std::string key) {
  stageTimes_.watch(stage, *status);
  statuses_.push_back({stage, std::move(key), status});
}

void Session::watchStages() {
  using enum NaxelActiveStage;
  watch(stageAggregator, root_->aggregatorStatus());
  for (Naxel::PrefixXformKey const& key : Naxel::PrefixXformKey::all()) {
    watch(stagePrefixXform, root_->prefixXformStatus(key), prefixKeyName(key));
    watch(stagePrefixEncoder, root_->prefixEncoderStatus(key), prefixKeyName(key));
  }
  for (Naxel::RangeSetType const type : Naxel::allRangeSetTypes()) {
    watch(stageRangeSplit, root_->rangeSplitStatus(type), Naxel::stringValue(type));
    watch(stageRangeEncoder, root_->rangeEncoderStatus(type), Naxel::stringValue(type));
  }
  for (Naxel::ComboLabelSetType const type : Naxel::allComboLabelSetTypes()) {
    std::string const key = Naxel::stringValue(type);
    watch(stageComboLabelResolver, root_->comboLabelResolverStatus(type), key);
    watch(stageComboLabelSplit, root_->comboLabelSplitStatus(type), key);
    watch(stageComboLabelEncoder, root_->comboLabelEncoderStatus(type), key);
  }
  watch(stageRuleExpander, root_->ruleExpanderStatus());
  watch(stageLoader, root_->loaderStatus());
}

bool Session::kick() {
  policy_.temporary.reset();
  uint32_t const before = rootStatus_->kickCount();
  auto const start = std::chrono::steady_clock::now();
  rootConfig_->naxelKickRequestIs(Naxel::NaxelKickRequest::naxelStart);
  rootConfig_->naxelKickTimeIs(clock_.now());
  activity_.runUntil([&] {
    NaxelProgress const now = rootStatus_->kickProgress();
    return rootStatus_->kickCount() != before && now != NaxelProgress::naxelRunning;
  });
  kickSeconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return rootStatus_->kickProgress() == NaxelProgress::naxelFinishedSuccess;
}

std::vector<LabelUse> Session::labelUse() const {
  std::vector<LabelUse> out;
  Naxel::ChipHwCapability const& widths = *data().hwCapability();
  auto const add = [&](std::string field, unsigned width, Naxel::EncoderStatus const& encoder) {
    out.push_back({std::move(field), width, encoder.plainToEncodedLabel().size()});
  };
  for (Naxel::PrefixXformKey const& key : Naxel::PrefixXformKey::all())
    add(prefixKeyName(key), widths.prefixXformWidth(key), *root_->prefixEncoderStatus(key));
  for (Naxel::RangeSetType const type : Naxel::allRangeSetTypes())
    add(Naxel::stringValue(type), widths.rangeXformWidth(type), *root_->rangeEncoderStatus(type));
  for (Naxel::ComboLabelSetType const type : Naxel::allComboLabelSetTypes())
    if (unsigned const width = widths.comboXformWidth(type))
      add(Naxel::stringValue(type), width, *root_->comboLabelEncoderStatus(type));
  return out;
}

std::vector<std::string> Session::failureTexts() const {
  std::vector<std::string> out;
  NaxelActiveStage const failed = root_->stageControllerStatus()->lastFailedStage();
  for (Status const& s : statuses_) {
    if (s.stage != failed || s.status->status() != Naxel::StageStatusType::finishedFailed ||
        s.status->failureText().empty())
      continue;
    out.push_back((s.key.empty() ? "" : s.key + ": ") + s.status->failureText());
  }
  if (std::string const& caution = root_->loaderStatus()->caution(); !caution.empty())
    out.push_back(caution);
  if (failed == NaxelActiveStage::stageLoader)
    for (SoftChip::Shortfall const& s : softChip_->shortfalls()) out.push_back(SoftChip::text(s));
  return out;
}

}  // namespace NaxelTool
