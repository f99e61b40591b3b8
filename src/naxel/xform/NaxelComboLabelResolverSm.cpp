#include "naxel/xform/NaxelComboLabelResolverSm.h"

#include "mox/Assert.h"
#include "naxel/genset/FieldNames.h"
#include "naxel/types/NaxelTrace.h"

#include <stdexcept>

namespace Naxel {

namespace {

/// The labels of a set; empty where the transform has no list for it.
Mox::FlatSetView<PlainLabel> labelsOf(XformStatus const& xform, GenSetKey key) {
  PlainLabelList const* list = xform.plainLabelListMap()->plainLabelList(key);
  return list ? list->label() : Mox::FlatSetView<PlainLabel>();
}

}  // namespace

void ComboLabelDedupMarkAndSweeper::doCleanupSweptEntry(GenSetKey key) {
  if (auto line = trace(6))
    line << "ComboDeduper(" << chipId_ << ", " << type_
         << ") Cleaning up comboSet with key: " << key;
  comboLabelInfo_->comboLabelSetCollDel(key);
}

GenSetKey ComboLabelDedupMarkAndSweeper::getGenSetKey(Dedupable const& obj) const {
  auto const* comboSet = dynamic_cast<ComboLabelSet const*>(&obj);
  MOX_ASSERT(comboSet);
  return comboSet->key();
}

ComboLabelResolverSm::ComboLabelResolverSm(Obel::ChipId chipId,
                                           Mox::Ptr<ComboLabelResolverConfig> config,
                                           Mox::Ptr<ComboLabelResolverStatus> status,
                                           Mox::Ptr<ChipHwCapability const> hwCapability,
                                           ComboLabelSetType type,
                                           Mox::Ptr<GenSetKeyGenerator> genSetKeyGenerator)
    : StageSm(chipId, std::move(config), status),
      status_(std::move(status)),
      hwCapability_(std::move(hwCapability)),
      type_(type),
      genSetKeyGenerator_(std::move(genSetKeyGenerator)) {
  MOX_ASSERT_TEXT(type_ < ComboLabelSetType::comboLabelSetMax, "Invalid comboSet type");
  handleInitialized();
}

void ComboLabelResolverSm::handleInitialized() {
  traceStep(8, "handleInitialized");
  comboLabelDeduper_ =
      Mox::makePtr<ComboLabelDedupMarkAndSweeper>(type_, status_->comboLabelInfo(), chipId());
}

Mox::TraceLine ComboLabelResolverSm::traceStep(int level, char const* step) const {
  Mox::TraceLine line = trace(level);
  if (line) line << "ComboLabelResolverSm(" << type_ << ")::" << step;
  return line;
}

void ComboLabelResolverSm::doStartKick() {
  traceStep(8, "doStartKick");
  doRunStage();
}

StageSm::Look ComboLabelResolverSm::doLook() {
  XformStatus const& src = *comboLabelConfig().srcXform();
  XformStatus const& dst = *comboLabelConfig().dstXform();
  // Every pair would be a product of empty lists, and the rules that constrain both sides would lose their
  // entries. Off, they match the two fields separately.
  bool const sideOff = src.status() == StageStatusType::finishedNotEnabled ||
                       dst.status() == StageStatusType::finishedNotEnabled;
  if (width() == 0 || sideOff) {
    traceStep(2, "doStartKick") << ": Combo not enabled for: " << type_;
    return {Look::At::off};
  }
  for (XformStatus const* side : {&src, &dst})
    if (side->outputUnusable()) return {Look::At::unusable, side->unusableReason()};
  // Behind the checks, because the label lists of a side that is off or unusable mean nothing.
  now_ = input();
  // That both sides have skipped is not enough: the kick before may have ended between them and this stage,
  // with labels numbered anew.
  if (src.status() == StageStatusType::finishedSkipped &&
      dst.status() == StageStatusType::finishedSkipped && workingSetHash_ && builtFrom_ == now_) {
    traceStep(2, "doStartKick") << ": Working set has not changed, skipping";
    return {Look::At::unchanged};
  }
  return {Look::At::work};
}

std::optional<std::string> ComboLabelResolverSm::doWork() {
  doCleanSm();
  checkRulesForSrcDstSets();
  doDeleteUnusedSets();
  // Published for whoever asks; whether the input has changed is told by the input itself.
  workHash_ = doComputeComboHash();
  return std::nullopt;
}

void ComboLabelResolverSm::doRemember() noexcept {
  workingSetHash_ = workHash_;
  builtFrom_ = std::move(now_);
}

ComboLabelResolverSm::Input ComboLabelResolverSm::input() const {
  Input now{width(),
            {},
            comboLabelConfig().srcXform()->plainLabelListMap(),
            comboLabelConfig().dstXform()->plainLabelListMap()};
  forEachPair([&](GenSetKey src, GenSetKey dst) { now.pairs.emplace_back(src, dst); });
  return now;
}

template <class F>
void ComboLabelResolverSm::forEachPair(F f) const {
  for (auto const& [name, list] : comboLabelConfig().aggInfo()->aclGenSetIpRuleList()) {
    // Sets of the other family have no labels here and would only make empty products.
    if (type_ != ComboLabelSetType::srcDstL4Port && prefixComboType(list->af()) != type_) continue;
    for (Mox::Ptr<GenSetIpRule> const& rule : list->genSetIpRule()) {
      GenSetKeyPair const pair = rule->comboPair(type_);
      if (pair.src() && pair.dst()) f(pair.src(), pair.dst());
    }
  }
}

uint64_t ComboLabelResolverSm::doComputeComboHash() const {
  traceStep(8, "doComputeComboHash");
  Mox::OneAtATime high;
  Mox::OneAtATime low;
  auto const word = [&](uint64_t v) {
    uint64_t const mixed = Mox::mix64(v);
    high.word(static_cast<uint32_t>(mixed >> 32));
    low.word(static_cast<uint32_t>(mixed));
  };
  word(width());
  XformStatus const& srcXform = *comboLabelConfig().srcXform();
  XformStatus const& dstXform = *comboLabelConfig().dstXform();
  Mox::HashSet<GenSetKey> srcSeen;
  Mox::HashSet<GenSetKey> dstSeen;
  auto const labels = [&](Mox::HashSet<GenSetKey>& seen, XformStatus const& xform, GenSetKey key) {
    if (!seen.insert(key)) return;
    auto const list = labelsOf(xform, key);
    word(list.size());
    for (PlainLabel l : list) word(l.value());
  };
  forEachPair([&](GenSetKey src, GenSetKey dst) {
    word(src.value());
    word(dst.value());
    labels(srcSeen, srcXform, src);
    labels(dstSeen, dstXform, dst);
  });
  return uint64_t{high.finish()} << 32 | low.finish();
}

void ComboLabelResolverSm::doClearOutput() {
  doCleanSm();
  doDeleteUnusedSets();
}

void ComboLabelResolverSm::doCleanSm() {
  traceStep(8, "doCleanSm");
  comboLabelDeduper_->unmarkAll();
  ComboLabelInfo& info = *status_->comboLabelInfo();
  // A run that was broken off by an exception may leave sets that no record stands for.
  Mox::HashSet<GenSetKey> named;
  comboLabelDeduper_->forEachKey([&](GenSetKey key) { named.insert(key); });
  // Gathered before deleting, which would end the walk.
  std::vector<GenSetKey> unnamed;
  for (auto const& [key, set] : info.comboLabelSetColl())
    if (!named.contains(key)) unnamed.push_back(key);
  for (GenSetKey key : unnamed) info.comboLabelSetCollDel(key);
  info.srcDstToComboMapDelAll();
  status_->genSetUsageInfo()->refCountDelAll();
  combos_ = 0;
}

void ComboLabelResolverSm::checkRulesForSrcDstSets() {
  traceStep(8, "checkRulesForSrcDstSets");
  forEachPair([&](GenSetKey src, GenSetKey dst) { doBuildComboLabelSet(src, dst); });
}

void ComboLabelResolverSm::countProduct(GenSetKey src, GenSetKey dst, uint64_t combos) {
  combos_ += combos;
  if (combos_ <= comboCap) return;
  std::string which;
  for (auto const& [name, list] : comboLabelConfig().aggInfo()->aclGenSetIpRuleList())
    for (auto const& [index, rule] : list->genSetIpRuleById())
      if (which.empty() && rule->comboPair(type_) == GenSetKeyPair(src, dst))
        which = "; rule " + valueToStrep(index) + " '" + rule->name() + "' of '" + name +
                "' alone has " + Mox::withCommas(combos);
  // Thrown from within the walk over the rules; the frame of the stage turns it into the failure.
  throw std::length_error(fieldName(type_) + ": at least " + Mox::withCommas(combos_) +
                          " pairs of labels needed, at most " + Mox::withCommas(comboCap) +
                          " are built" + which);
}

void ComboLabelResolverSm::doBuildComboLabelSet(GenSetKey src, GenSetKey dst) {
  traceStep(8, "doBuildComboLabelSet") << " source " << src << " destination " << dst;
  ComboLabelInfo& info = *status_->comboLabelInfo();
  GenSetKeyPair const pair(src, dst);
  if (GenSetKey const known = info.srcDstToComboMap(pair)) {
    traceStep(6, "doBuildComboLabelSet") << " ComboSet was previously computed Key: " << known;
    status_->genSetUsageInfo()->refCountIs(known).valueInc(1);
    return;
  }
  auto const srcLabels = labelsOf(*comboLabelConfig().srcXform(), src);
  auto const dstLabels = labelsOf(*comboLabelConfig().dstXform(), dst);
  // Before anything is made for the pair: a product has no bound, and memory has.
  countProduct(src, dst, uint64_t{srcLabels.size()} * dstLabels.size());

  GenSetKey key = genSetKeyGenerator_->newKey();
  auto const set = info.comboLabelSetCollIs(key, type_);
  std::vector<GenCombo> combos;
  combos.reserve(srcLabels.size() * dstLabels.size());
  for (PlainLabel s : srcLabels)
    for (PlainLabel d : dstLabels) combos.emplace_back(s, d);
  if (naxelTrace().on(9))
    for (GenCombo const& c : combos)
      traceStep(9, "doBuildComboLabelSet")
          << "src label: " << c.srcLabel() << " dst label: " << c.dstLabel();
  set->comboLabelIs(std::move(combos));
  GenSetKey const canonical = comboLabelDeduper_->addDeduped(set);
  if (canonical == key) {
    if (auto line = traceStep(6, "doBuildComboLabelSet"))
      line << "Creating comboSet : " << set->stringValue();
  } else {
    // An equal set exists already. The new one has served to be compared, and its key is spent.
    info.comboLabelSetCollDel(key);
    traceStep(6, "doBuildComboLabelSet") << "Reusing comboSet with key: " << canonical;
    key = canonical;
  }
  info.srcDstToComboMapIs(pair, key);
  status_->genSetUsageInfo()->refCountIs(key).valueInc(1);
}

void ComboLabelResolverSm::doDeleteUnusedSets() {
  traceStep(8, "doDeleteUnusedSets");
  comboLabelDeduper_->sweepUnmarked();
}

Mox::Ptr<ComboLabelResolverSm> comboLabelResolverSmFactory(
    Obel::ChipId chipId, Mox::Ptr<ComboLabelResolverConfig> config,
    Mox::Ptr<ComboLabelResolverStatus> status, Mox::Ptr<ChipHwCapability const> hwCapability,
    ComboLabelSetType type, Mox::Ptr<GenSetKeyGenerator> genSetKeyGenerator) {
  return Mox::makePtr<ComboLabelResolverSm>(chipId, std::move(config), std::move(status),
                                            std::move(hwCapability), type,
                                            std::move(genSetKeyGenerator));
}

}  // namespace Naxel
