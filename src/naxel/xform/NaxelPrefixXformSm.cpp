#include "naxel/xform/NaxelPrefixXformSm.h"

#include "mox/Assert.h"
#include "naxel/genset/FieldNames.h"
#include "naxel/types/NaxelTrace.h"
#include "naxel/xform/PrefixCut.h"

namespace Naxel {

NaxelPrefixXformSm::NaxelPrefixXformSm(Obel::ChipId chipId, Mox::Ptr<PrefixXformConfig> config,
                                       Mox::Ptr<PrefixXformStatus> status,
                                       Mox::Ptr<ChipHwCapability const> hwCapability)
    : XformSmBase(chipId, std::move(config), status, std::move(hwCapability)),
      status_(std::move(status)) {}

NaxelPrefixXformSm::~NaxelPrefixXformSm() = default;

uint32_t NaxelPrefixXformSm::xformWidth() const {
  return hwCapability()->prefixXformWidth(status_->key());
}

std::string NaxelPrefixXformSm::traceStr() const {
  return "PrefixXformSm(" + Mox::stringValue(status_->key().af()) +
         (status_->key().src() ? ", src" : ", dst") + ")::";
}

std::string NaxelPrefixXformSm::subject() const { return fieldName(status_->key()); }

Mox::Ptr<Routing::TrieGen> NaxelPrefixXformSm::trieIs(Mox::Name const& name,
                                                      Lumox::AddressFamily af) {
  if (!trie_ || trie_->name() != name || trie_->af() != af)
    trie_ = Mox::makePtr<Routing::TrieGen>(name, af);
  return trie_;
}

Mox::Ptr<GenSetKeyGroup> NaxelPrefixXformSm::prefixToGenSetGrp(Lumox::IpGenPrefix const& p) const {
  auto const* group = prefixToGenSetGrp_.get(p);
  return group ? *group : nullptr;
}

void NaxelPrefixXformSm::doBuildWorkingSet() {
  traceStep(8, "doBuildWorkingSet");
  workingSetIsKeysOf(prefixAggregatorInfo().prefixSetColl());
}

void NaxelPrefixXformSm::doBuildSetGroup() {
  traceStep(8, "doBuildSetGroup");
  auto const root = Mox::valueFromText<Lumox::IpGenPrefix>(
      status_->key().af() == Lumox::ipv4() ? "0.0.0.0/0" : "0::0/0");
  doInitSetGroup();
  doBuildTrie();
  auto const dump = [&](char const* title) {
    if (!naxelTrace().on(6)) return;
    traceStep(6, title);
    DumpWalkCallback callback(*this);
    trie_->preOrderWalk(root, callback);
  };
  // The trie drives the walk in the order of its nodes; the groups themselves are found by the cut.
  dump("*** Trie built ***");
  UpdatePrefixSetListCallback callback(*this);
  trie_->preOrderWalk(root, callback);
  dump("*** PrefixSetLists updated ***");
  // It takes memory in proportion to the sets, and nothing behind this needs it.
  cut_.reset();
}

namespace {

PrefixSetViews viewsOf(PrefixAggregatorInfo const& info) {
  PrefixSetViews views;
  views.reserve(info.prefixSetColl().size());
  for (auto const& [key, set] : info.prefixSetColl())
    views.push_back({key, &set->prefix(), &set->exceptPrefix()});
  return views;
}

}  // namespace

void NaxelPrefixXformSm::doInitSetGroup() {
  traceStep(8, "doInitSetGroup");
  cut_ = std::make_unique<PrefixCut>(viewsOf(prefixAggregatorInfo()), limit());
  prefixToGenSetGrp_ = cut_->takeSeeds();
}

PieceCount NaxelPrefixXformSm::doCountGroups() {
  return countPrefixPieces(viewsOf(prefixAggregatorInfo()));
}

void NaxelPrefixXformSm::doBuildTrie() {
  traceStep(8, "doBuildTrie");
  trieDel();
  trieIs("NaxelPrefixXformTrie", status_->key().af());
  trie_->reserve(prefixToGenSetGrp_.size());
  for (auto const& [prefix, group] : prefixToGenSetGrp_) {
    traceStep(9, "doBuildTrie") << " prefix " << prefix;
    trie_->routeIs(prefix, true);
  }
}

void NaxelPrefixXformSm::doAllocLabels() {
  traceStep(8, "doAllocLabels");
  status_->prefixToLabelMapIs(labelsOf(prefixToGenSetGrp_));
}

void NaxelPrefixXformSm::doClearGroups() {
  prefixToGenSetGrp_ = {};
  trieDel();
}

int UpdatePrefixSetListCallback::handlePrefix(Lumox::IpGenPrefix const& prefix) {
  if (sm_.overflow()) return 1;
  if (auto line = sm_.traceStep(9, "handlePrefix"))
    line << " prefix " << prefix << " ...parent " << sm_.trie()->findParent(prefix);
  // The walk meets the prefixes in the order in which the groups stand.
  Mox::Ptr<GenSetKeyGroup>& setList = sm_.prefixToGenSetGrp_.valueAt(at_);
  MOX_ASSERT(sm_.prefixToGenSetGrp_[at_].first == prefix && setList);
  ++at_;
  setList = sm_.cut_->complete(prefix, *setList);
  if (auto const hit = sm_.cut_->hitException())
    if (auto line = sm_.traceStep(9, "handlePrefix"))
      line << (*hit ? " ......hit exceptPrefix" : " ......did not hit exceptPrefix");
  if (sm_.cut_->isExceededBy(sm_.prefixToGenSetGrp_, at_)) sm_.overflowIs(true);
  return 1;
}

int DumpWalkCallback::handlePrefix(Lumox::IpGenPrefix const& prefix) {
  if (auto line = trace(6))
    line << sm_.traceStr() << "handlePrefix"
         << " prefix " << prefix;
  auto const group = sm_.prefixToGenSetGrp(prefix);
  if (!group) return 1;
  for (GenSetKey key : group->keyGroup()) {
    if (auto line = trace(6)) line << "...label " << key;
    auto const set = sm_.prefixAggregatorInfo().prefixSetColl(key);
    for (auto const& p : set->prefix())
      if (auto line = trace(6)) line << "......prefix " << p;
    for (auto const& p : set->exceptPrefix())
      if (auto line = trace(6)) line << "......prefix " << p << " except";
  }
  return 1;
}

Mox::Ptr<NaxelPrefixXformSm> naxelPrefixXformSmFactory(
    Obel::ChipId chipId, Mox::Ptr<PrefixXformConfig> config, Mox::Ptr<PrefixXformStatus> status,
    Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<NaxelPrefixXformSm>(chipId, std::move(config), std::move(status),
                                          std::move(hwCapability));
}

}  // namespace Naxel
