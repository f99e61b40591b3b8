#include "naxel/control/PipelineParts.h"

#include "naxel/control/NaxelStageControllerSm.h"
#include "naxel/encoder/NaxelLabelEncoderSm.h"
#include "naxel/expander/NaxelRuleExpanderSm.h"
#include "naxel/genset/NaxelAggregatorSm.h"
#include "naxel/loader/NaxelLoaderSm.h"
#include "naxel/xform/NaxelComboLabelResolverSm.h"
#include "naxel/xform/NaxelComboLabelSplitSm.h"
#include "naxel/xform/NaxelPrefixXformSm.h"
#include "naxel/xform/NaxelRangeSplitSm.h"

namespace Naxel {

namespace {

/// Binds a configuration to the state machine, if there is one.
template <class Sm>
void bind(Mox::Ptr<Sm> const& sm, Mox::Ptr<StageConfig> config) {
  // Binding anew makes a stage forget its last input, so the same configuration again is left alone.
  if (sm && sm->config() != config) sm->configIs(std::move(config));
}

template <class Sm>
void takeDownOne(Mox::Ptr<Sm> const& sm) {
  if (sm) sm->moxDoZombieReactors(true);
}

/// Puts a state machine in place of another one, which reacts to nothing any more.
template <class Sm>
void replace(Mox::Ptr<Sm>& place, Mox::Ptr<Sm> sm) {
  if (place == sm) return;
  // Somebody else may still hold the old one, and it must not answer beside the new one.
  takeDownOne(place);
  place = std::move(sm);
}
template <class Sms, class K>
void replace(Sms& sms, K const& key, typename Sms::mapped_type sm) {
  auto* const place = sms.get(key);
  if (place) replace(*place, sm);
  if (!sm)
    sms.erase(key);
  else if (!place)
    sms.set(key, std::move(sm));
}
template <class Sms>
void removeAll(Sms& sms) {
  for (auto const& [key, sm] : sms) takeDownOne(sm);
  sms.clear();
}

}  // namespace

PipelineParts::PipelineParts()
    : stageSmConfig_(Mox::makePtr<StageSmConfig>()),
      stageSmStatus_(Mox::makePtr<StageSmStatus>()) {}

PipelineParts::~PipelineParts() = default;

void PipelineParts::takeDown() {
  // The controller first, so that nothing is started any more.
  takeDownOne(stageControllerSm_);
  takeDownOne(aggregatorSm_);
  takeDownOne(ruleExpanderSm_);
  takeDownOne(loaderSm_);
  for (auto const& [key, sm] : prefixXformSm_) takeDownOne(sm);
  for (auto const& [key, sm] : prefixEncoderSm_) takeDownOne(sm);
  for (auto const& [key, sm] : rangeSplitSm_) takeDownOne(sm);
  for (auto const& [key, sm] : rangeEncoderSm_) takeDownOne(sm);
  for (auto const& [key, sm] : comboLabelResolverSm_) takeDownOne(sm);
  for (auto const& [key, sm] : comboLabelSplitSm_) takeDownOne(sm);
  for (auto const& [key, sm] : comboLabelEncoderSm_) takeDownOne(sm);
}

void PipelineParts::stageControllerConfigIs(Mox::Ptr<StageControllerConfig> v) {
  stageControllerConfig_ = std::move(v);
  bind(stageControllerSm_, stageControllerConfig_);
}
void PipelineParts::stageControllerStatusIs(Mox::Ptr<StageControllerStatus> v) {
  stageControllerStatus_ = std::move(v);
  onStageControllerStatus();
}
void PipelineParts::stageControllerSmIs(Mox::Ptr<NaxelStageControllerSm> v) {
  replace(stageControllerSm_, std::move(v));
}

Mox::Ptr<AggregatorConfig> PipelineParts::aggregatorConfig() const {
  return Mox::dynamicPtrCast<AggregatorConfig>(stageSmConfig_->aggregatorConfig());
}
void PipelineParts::aggregatorConfigIs(Mox::Ptr<AggregatorConfig> v) {
  bind(aggregatorSm_, v);
  stageSmConfig_->aggregatorConfigIs(std::move(v));
}
void PipelineParts::aggregatorConfigDel() { aggregatorConfigIs(nullptr); }
Mox::Ptr<AggregatorStatus> PipelineParts::aggregatorStatus() const {
  return Mox::dynamicPtrCast<AggregatorStatus>(stageSmStatus_->aggregatorStatus());
}
void PipelineParts::aggregatorStatusIs(Mox::Ptr<AggregatorStatus> v) {
  stageSmStatus_->aggregatorStatusIs(std::move(v));
}
void PipelineParts::aggregatorStatusDel() { aggregatorStatusIs(nullptr); }
void PipelineParts::aggregatorSmIs(Mox::Ptr<AggregatorSm> v) {
  replace(aggregatorSm_, std::move(v));
}
void PipelineParts::aggregatorSmDel() { aggregatorSmIs(nullptr); }

Mox::Ptr<RuleExpanderConfig> PipelineParts::ruleExpanderConfig() const {
  return Mox::dynamicPtrCast<RuleExpanderConfig>(stageSmConfig_->ruleExpanderConfig());
}
void PipelineParts::ruleExpanderConfigIs(Mox::Ptr<RuleExpanderConfig> v) {
  bind(ruleExpanderSm_, v);
  stageSmConfig_->ruleExpanderConfigIs(std::move(v));
}
void PipelineParts::ruleExpanderConfigDel() { ruleExpanderConfigIs(nullptr); }
Mox::Ptr<RuleExpanderStatus> PipelineParts::ruleExpanderStatus() const {
  return Mox::dynamicPtrCast<RuleExpanderStatus>(stageSmStatus_->ruleExpanderStatus());
}
void PipelineParts::ruleExpanderStatusIs(Mox::Ptr<RuleExpanderStatus> v) {
  stageSmStatus_->ruleExpanderStatusIs(std::move(v));
}
void PipelineParts::ruleExpanderStatusDel() { ruleExpanderStatusIs(nullptr); }
void PipelineParts::ruleExpanderSmIs(Mox::Ptr<RuleExpanderSm> v) {
  replace(ruleExpanderSm_, std::move(v));
}
void PipelineParts::ruleExpanderSmDel() { ruleExpanderSmIs(nullptr); }

Mox::Ptr<LoaderConfig> PipelineParts::loaderConfig() const {
  return Mox::dynamicPtrCast<LoaderConfig>(stageSmConfig_->loaderConfig());
}
void PipelineParts::loaderConfigIs(Mox::Ptr<LoaderConfig> v) {
  bind(loaderSm_, v);
  stageSmConfig_->loaderConfigIs(std::move(v));
}
void PipelineParts::loaderConfigDel() { loaderConfigIs(nullptr); }
Mox::Ptr<LoaderStatus> PipelineParts::loaderStatus() const {
  return Mox::dynamicPtrCast<LoaderStatus>(stageSmStatus_->loaderStatus());
}
void PipelineParts::loaderStatusIs(Mox::Ptr<LoaderStatus> v) {
  stageSmStatus_->loaderStatusIs(std::move(v));
}
void PipelineParts::loaderStatusDel() { loaderStatusIs(nullptr); }
void PipelineParts::loaderSmIs(Mox::Ptr<LoaderSm> v) { replace(loaderSm_, std::move(v)); }
void PipelineParts::loaderSmDel() { loaderSmIs(nullptr); }

void PipelineParts::prefixXformConfigIs(PrefixXformKey const& key, Mox::Ptr<PrefixXformConfig> v) {
  bind(prefixXformSm(key), v);
  stageSmConfig_->prefixXformConfigIs(key, std::move(v));
}
void PipelineParts::prefixXformConfigDel(PrefixXformKey const& key) {
  // As with every key below: a stage that stayed bound would take part in no kick and still react to its
  // configuration.
  bind(prefixXformSm(key), nullptr);
  stageSmConfig_->prefixXformConfigDel(key);
}
void PipelineParts::prefixXformConfigDelAll() {
  for (auto const& [key, sm] : prefixXformSm_) bind(sm, nullptr);
  stageSmConfig_->prefixXformConfigDelAll();
}
Mox::Ptr<NaxelPrefixXformSm> PipelineParts::prefixXformSm(PrefixXformKey const& key) const {
  return Mox::lookup(prefixXformSm_, key);
}
void PipelineParts::prefixXformSmIs(PrefixXformKey const& key, Mox::Ptr<NaxelPrefixXformSm> v) {
  replace(prefixXformSm_, key, std::move(v));
}
void PipelineParts::prefixXformSmDel(PrefixXformKey const& key) {
  replace(prefixXformSm_, key, nullptr);
}
void PipelineParts::prefixXformSmDelAll() { removeAll(prefixXformSm_); }

void PipelineParts::prefixEncoderConfigIs(PrefixXformKey const& key, Mox::Ptr<EncoderConfig> v) {
  bind(prefixEncoderSm(key), v);
  stageSmConfig_->prefixEncoderConfigIs(key, std::move(v));
}
void PipelineParts::prefixEncoderConfigDel(PrefixXformKey const& key) {
  bind(prefixEncoderSm(key), nullptr);
  stageSmConfig_->prefixEncoderConfigDel(key);
}
void PipelineParts::prefixEncoderConfigDelAll() {
  for (auto const& [key, sm] : prefixEncoderSm_) bind(sm, nullptr);
  stageSmConfig_->prefixEncoderConfigDelAll();
}
Mox::Ptr<PrefixLabelEncoderSm> PipelineParts::prefixEncoderSm(PrefixXformKey const& key) const {
  return Mox::lookup(prefixEncoderSm_, key);
}
void PipelineParts::prefixEncoderSmIs(PrefixXformKey const& key, Mox::Ptr<PrefixLabelEncoderSm> v) {
  replace(prefixEncoderSm_, key, std::move(v));
}
void PipelineParts::prefixEncoderSmDel(PrefixXformKey const& key) {
  replace(prefixEncoderSm_, key, nullptr);
}
void PipelineParts::prefixEncoderSmDelAll() { removeAll(prefixEncoderSm_); }

void PipelineParts::rangeSplitConfigIs(RangeSetType const& key, Mox::Ptr<RangeSplitConfig> v) {
  bind(rangeSplitSm(key), v);
  stageSmConfig_->rangeSplitConfigIs(key, std::move(v));
}
void PipelineParts::rangeSplitConfigDel(RangeSetType const& key) {
  bind(rangeSplitSm(key), nullptr);
  stageSmConfig_->rangeSplitConfigDel(key);
}
void PipelineParts::rangeSplitConfigDelAll() {
  for (auto const& [key, sm] : rangeSplitSm_) bind(sm, nullptr);
  stageSmConfig_->rangeSplitConfigDelAll();
}
Mox::Ptr<RangeSplitSm> PipelineParts::rangeSplitSm(RangeSetType const& key) const {
  return Mox::lookup(rangeSplitSm_, key);
}
void PipelineParts::rangeSplitSmIs(RangeSetType const& key, Mox::Ptr<RangeSplitSm> v) {
  replace(rangeSplitSm_, key, std::move(v));
}
void PipelineParts::rangeSplitSmDel(RangeSetType const& key) {
  replace(rangeSplitSm_, key, nullptr);
}
void PipelineParts::rangeSplitSmDelAll() { removeAll(rangeSplitSm_); }

void PipelineParts::rangeEncoderConfigIs(RangeSetType const& key, Mox::Ptr<RangeEncoderConfig> v) {
  bind(rangeEncoderSm(key), v);
  stageSmConfig_->rangeEncoderConfigIs(key, std::move(v));
}
void PipelineParts::rangeEncoderConfigDel(RangeSetType const& key) {
  bind(rangeEncoderSm(key), nullptr);
  stageSmConfig_->rangeEncoderConfigDel(key);
}
void PipelineParts::rangeEncoderConfigDelAll() {
  for (auto const& [key, sm] : rangeEncoderSm_) bind(sm, nullptr);
  stageSmConfig_->rangeEncoderConfigDelAll();
}
Mox::Ptr<RangeEncoderSm> PipelineParts::rangeEncoderSm(RangeSetType const& key) const {
  return Mox::lookup(rangeEncoderSm_, key);
}
void PipelineParts::rangeEncoderSmIs(RangeSetType const& key, Mox::Ptr<RangeEncoderSm> v) {
  replace(rangeEncoderSm_, key, std::move(v));
}
void PipelineParts::rangeEncoderSmDel(RangeSetType const& key) {
  replace(rangeEncoderSm_, key, nullptr);
}
void PipelineParts::rangeEncoderSmDelAll() { removeAll(rangeEncoderSm_); }

void PipelineParts::comboLabelResolverConfigIs(ComboLabelSetType const& key,
                                               Mox::Ptr<ComboLabelResolverConfig> v) {
  bind(comboLabelResolverSm(key), v);
  stageSmConfig_->comboLabelResolverConfigIs(key, std::move(v));
}
void PipelineParts::comboLabelResolverConfigDel(ComboLabelSetType const& key) {
  bind(comboLabelResolverSm(key), nullptr);
  stageSmConfig_->comboLabelResolverConfigDel(key);
}
void PipelineParts::comboLabelResolverConfigDelAll() {
  for (auto const& [key, sm] : comboLabelResolverSm_) bind(sm, nullptr);
  stageSmConfig_->comboLabelResolverConfigDelAll();
}
Mox::Ptr<ComboLabelResolverSm> PipelineParts::comboLabelResolverSm(
    ComboLabelSetType const& key) const {
  return Mox::lookup(comboLabelResolverSm_, key);
}
void PipelineParts::comboLabelResolverSmIs(ComboLabelSetType const& key,
                                           Mox::Ptr<ComboLabelResolverSm> v) {
  replace(comboLabelResolverSm_, key, std::move(v));
}
void PipelineParts::comboLabelResolverSmDel(ComboLabelSetType const& key) {
  replace(comboLabelResolverSm_, key, nullptr);
}
void PipelineParts::comboLabelResolverSmDelAll() { removeAll(comboLabelResolverSm_); }

void PipelineParts::comboLabelSplitConfigIs(ComboLabelSetType const& key,
                                            Mox::Ptr<ComboLabelSplitConfig> v) {
  bind(comboLabelSplitSm(key), v);
  stageSmConfig_->comboLabelSplitConfigIs(key, std::move(v));
}
void PipelineParts::comboLabelSplitConfigDel(ComboLabelSetType const& key) {
  bind(comboLabelSplitSm(key), nullptr);
  stageSmConfig_->comboLabelSplitConfigDel(key);
}
void PipelineParts::comboLabelSplitConfigDelAll() {
  for (auto const& [key, sm] : comboLabelSplitSm_) bind(sm, nullptr);
  stageSmConfig_->comboLabelSplitConfigDelAll();
}
Mox::Ptr<ComboLabelSplitSm> PipelineParts::comboLabelSplitSm(ComboLabelSetType const& key) const {
  return Mox::lookup(comboLabelSplitSm_, key);
}
void PipelineParts::comboLabelSplitSmIs(ComboLabelSetType const& key,
                                        Mox::Ptr<ComboLabelSplitSm> v) {
  replace(comboLabelSplitSm_, key, std::move(v));
}
void PipelineParts::comboLabelSplitSmDel(ComboLabelSetType const& key) {
  replace(comboLabelSplitSm_, key, nullptr);
}
void PipelineParts::comboLabelSplitSmDelAll() { removeAll(comboLabelSplitSm_); }

void PipelineParts::comboLabelEncoderConfigIs(ComboLabelSetType const& key,
                                              Mox::Ptr<ComboLabelEncoderConfig> v) {
  bind(comboLabelEncoderSm(key), v);
  stageSmConfig_->comboLabelEncoderConfigIs(key, std::move(v));
}
void PipelineParts::comboLabelEncoderConfigDel(ComboLabelSetType const& key) {
  bind(comboLabelEncoderSm(key), nullptr);
  stageSmConfig_->comboLabelEncoderConfigDel(key);
}
void PipelineParts::comboLabelEncoderConfigDelAll() {
  for (auto const& [key, sm] : comboLabelEncoderSm_) bind(sm, nullptr);
  stageSmConfig_->comboLabelEncoderConfigDelAll();
}
Mox::Ptr<ComboLabelEncoderSm> PipelineParts::comboLabelEncoderSm(
    ComboLabelSetType const& key) const {
  return Mox::lookup(comboLabelEncoderSm_, key);
}
void PipelineParts::comboLabelEncoderSmIs(ComboLabelSetType const& key,
                                          Mox::Ptr<ComboLabelEncoderSm> v) {
  replace(comboLabelEncoderSm_, key, std::move(v));
}
void PipelineParts::comboLabelEncoderSmDel(ComboLabelSetType const& key) {
  replace(comboLabelEncoderSm_, key, nullptr);
}
void PipelineParts::comboLabelEncoderSmDelAll() { removeAll(comboLabelEncoderSm_); }

Mox::Ptr<PrefixXformConfig> PipelineParts::prefixXformConfig(PrefixXformKey const& key) const {
  return Mox::dynamicPtrCast<PrefixXformConfig>(stageSmConfig_->prefixXformConfig(key));
}
Mox::Ptr<PrefixXformStatus> PipelineParts::prefixXformStatus(PrefixXformKey const& key) const {
  return Mox::dynamicPtrCast<PrefixXformStatus>(stageSmStatus_->prefixXformStatus(key));
}
void PipelineParts::prefixXformStatusIs(PrefixXformKey const& key, Mox::Ptr<PrefixXformStatus> v) {
  stageSmStatus_->prefixXformStatusIs(key, std::move(v));
}
Mox::Ptr<EncoderConfig> PipelineParts::prefixEncoderConfig(PrefixXformKey const& key) const {
  return Mox::dynamicPtrCast<EncoderConfig>(stageSmConfig_->prefixEncoderConfig(key));
}
Mox::Ptr<PrefixEncoderStatus> PipelineParts::prefixEncoderStatus(PrefixXformKey const& key) const {
  return Mox::dynamicPtrCast<PrefixEncoderStatus>(stageSmStatus_->prefixEncoderStatus(key));
}
void PipelineParts::prefixEncoderStatusIs(PrefixXformKey const& key,
                                          Mox::Ptr<PrefixEncoderStatus> v) {
  stageSmStatus_->prefixEncoderStatusIs(key, std::move(v));
}
Mox::Ptr<RangeSplitConfig> PipelineParts::rangeSplitConfig(RangeSetType const& key) const {
  return Mox::dynamicPtrCast<RangeSplitConfig>(stageSmConfig_->rangeSplitConfig(key));
}
Mox::Ptr<RangeSplitStatus> PipelineParts::rangeSplitStatus(RangeSetType const& key) const {
  return Mox::dynamicPtrCast<RangeSplitStatus>(stageSmStatus_->rangeSplitStatus(key));
}
void PipelineParts::rangeSplitStatusIs(RangeSetType const& key, Mox::Ptr<RangeSplitStatus> v) {
  stageSmStatus_->rangeSplitStatusIs(key, std::move(v));
}
Mox::Ptr<RangeEncoderConfig> PipelineParts::rangeEncoderConfig(RangeSetType const& key) const {
  return Mox::dynamicPtrCast<RangeEncoderConfig>(stageSmConfig_->rangeEncoderConfig(key));
}
Mox::Ptr<RangeEncoderStatus> PipelineParts::rangeEncoderStatus(RangeSetType const& key) const {
  return Mox::dynamicPtrCast<RangeEncoderStatus>(stageSmStatus_->rangeEncoderStatus(key));
}
void PipelineParts::rangeEncoderStatusIs(RangeSetType const& key, Mox::Ptr<RangeEncoderStatus> v) {
  stageSmStatus_->rangeEncoderStatusIs(key, std::move(v));
}
void PipelineParts::comboLabelInfoIs(ComboLabelSetType type, Mox::Ptr<ComboLabelInfo> v) {
  comboLabelInfo_.set(type, std::move(v));
}
Mox::Ptr<ComboLabelResolverConfig> PipelineParts::comboLabelResolverConfig(
    ComboLabelSetType const& key) const {
  return Mox::dynamicPtrCast<ComboLabelResolverConfig>(
      stageSmConfig_->comboLabelResolverConfig(key));
}
Mox::Ptr<ComboLabelResolverStatus> PipelineParts::comboLabelResolverStatus(
    ComboLabelSetType const& key) const {
  return Mox::dynamicPtrCast<ComboLabelResolverStatus>(
      stageSmStatus_->comboLabelResolverStatus(key));
}
void PipelineParts::comboLabelResolverStatusIs(ComboLabelSetType const& key,
                                               Mox::Ptr<ComboLabelResolverStatus> v) {
  stageSmStatus_->comboLabelResolverStatusIs(key, std::move(v));
}
Mox::Ptr<ComboLabelSplitConfig> PipelineParts::comboLabelSplitConfig(
    ComboLabelSetType const& key) const {
  return Mox::dynamicPtrCast<ComboLabelSplitConfig>(stageSmConfig_->comboLabelSplitConfig(key));
}
Mox::Ptr<ComboLabelSplitStatus> PipelineParts::comboLabelSplitStatus(
    ComboLabelSetType const& key) const {
  return Mox::dynamicPtrCast<ComboLabelSplitStatus>(stageSmStatus_->comboLabelSplitStatus(key));
}
void PipelineParts::comboLabelSplitStatusIs(ComboLabelSetType const& key,
                                            Mox::Ptr<ComboLabelSplitStatus> v) {
  stageSmStatus_->comboLabelSplitStatusIs(key, std::move(v));
}
Mox::Ptr<ComboLabelEncoderConfig> PipelineParts::comboLabelEncoderConfig(
    ComboLabelSetType const& key) const {
  return Mox::dynamicPtrCast<ComboLabelEncoderConfig>(stageSmConfig_->comboLabelEncoderConfig(key));
}
Mox::Ptr<ComboLabelEncoderStatus> PipelineParts::comboLabelEncoderStatus(
    ComboLabelSetType const& key) const {
  return Mox::dynamicPtrCast<ComboLabelEncoderStatus>(stageSmStatus_->comboLabelEncoderStatus(key));
}
void PipelineParts::comboLabelEncoderStatusIs(ComboLabelSetType const& key,
                                              Mox::Ptr<ComboLabelEncoderStatus> v) {
  stageSmStatus_->comboLabelEncoderStatusIs(key, std::move(v));
}

void PipelineParts::stageControllerConfigDel() { stageControllerConfigIs(nullptr); }
void PipelineParts::stageControllerStatusDel() { stageControllerStatusIs(nullptr); }
void PipelineParts::stageControllerSmDel() { stageControllerSmIs(nullptr); }
void PipelineParts::genSetKeyGenDel() { genSetKeyGenIs(nullptr); }
void PipelineParts::genSetKeyGenIs(Mox::Ptr<GenSetKeyGenerator> v) { genSetKeyGen_ = std::move(v); }
void PipelineParts::comboLabelInfoDel(ComboLabelSetType type) { comboLabelInfo_.erase(type); }
void PipelineParts::comboLabelInfoDelAll() { comboLabelInfo_.clear(); }
Mox::Ptr<ComboLabelInfo> PipelineParts::comboLabelInfo(ComboLabelSetType type) const {
  return Mox::lookup(comboLabelInfo_, type);
}

}  // namespace Naxel
