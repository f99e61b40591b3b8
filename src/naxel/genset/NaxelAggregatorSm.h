#pragma once

/// The aggregator: the first working stage of a kick.
///
/// Reads    the chip's whole ACL configuration.
/// Writes   AggregatorStatus: prefix sets per family and side, range sets per field, the count of
///          direct uses of each set, and per ACL the rules in terms of set keys.
/// Skips    when the configuration says what it said at the last run that succeeded: the same ACLs
///          with their families, rules and indexes, every rule with its filter and action, and the
///          same combinations on the chip, since the counts depend on that. Equal stamps show it
///          (mox/Stamp.h), and where they differ a look at the content; the digest of the
///          configuration does not, because different ones of equal digests can be computed.
/// Fails    on input that cannot be compiled: a range with its ends the wrong way round or beyond
///          its field, mixed families in one ACL, an index that refers to a rule that the ACL does
///          not hold. The check runs before anything is touched.
/// Order    ACLs by name, rules by index; sets by ascending key.
///
/// A rule that says what it said in the last run keeps its sets without a search for them; they are
/// counted like those of any other rule, and the keys that a search would have spent are spent.
///
/// A set lives as long as some rule uses equal content in every kick: its key is kept, and a
/// changed list or range makes a new set with a new key.

#include "naxel/control/StageSm.h"
#include "naxel/genset/AclWalk.h"
#include "naxel/genset/NaxelAggregatorTypes.h"
#include "naxel/genset/NaxelDedup.h"
#include "naxel/loader/HwCapability.h"

#include <optional>

namespace Naxel {

/// Shares prefix sets of one family and side.
class NAXEL_EXPORT PrefixDedupMarkAndSweeper : public DedupMarkAndSweeper {
 public:
  PrefixDedupMarkAndSweeper(PrefixXformKey const& key, Mox::Ptr<PrefixAggregatorInfo> info,
                            Obel::ChipId chipId)
      : key_(key), prefixAggInfo_(std::move(info)), chipId_(chipId) {}
  std::string_view fwkType() const override { return "Naxel::PrefixDedupMarkAndSweeper"; }

  Mox::Ptr<PrefixAggregatorInfo> const& prefixAggInfo() const { return prefixAggInfo_; }
  Obel::ChipId chipId() const { return chipId_; }
  /// Marks the set of the content of `list` as in use and returns its key; 0 if it has none.
  GenSetKey markList(IpPrefixList const& list);
  void doCleanupSweptEntry(GenSetKey key) override;
  GenSetKey getGenSetKey(Dedupable const& obj) const override;

 private:
  PrefixXformKey key_;
  Mox::Ptr<PrefixAggregatorInfo> prefixAggInfo_;
  Obel::ChipId chipId_;
};

/// Shares range sets of one type.
class NAXEL_EXPORT RangeDedupMarkAndSweeper : public DedupMarkAndSweeper {
 public:
  RangeDedupMarkAndSweeper(RangeSetType type, Mox::Ptr<RangeSplitAggregatorInfo> info,
                           Obel::ChipId chipId)
      : type_(type), rangeSplitAggInfo_(std::move(info)), chipId_(chipId) {}
  std::string_view fwkType() const override { return "Naxel::RangeDedupMarkAndSweeper"; }

  Mox::Ptr<RangeSplitAggregatorInfo> const& rangeSplitAggInfo() const { return rangeSplitAggInfo_; }
  Obel::ChipId chipId() const { return chipId_; }
  /// Marks the set of these elements as in use and returns its key; 0 if there is none.
  GenSetKey markRanges(RangeSet::RangeColl const& ranges);
  void doCleanupSweptEntry(GenSetKey key) override;
  GenSetKey getGenSetKey(Dedupable const& obj) const override;

 private:
  RangeSetType type_;
  Mox::Ptr<RangeSplitAggregatorInfo> rangeSplitAggInfo_;
  Obel::ChipId chipId_;
};

class NAXEL_EXPORT AggregatorSm : public StageSm {
 public:
  AggregatorSm(Obel::ChipId chipId, Mox::Ptr<AggregatorConfig> config,
               Mox::Ptr<AggregatorStatus> status, Mox::Ptr<ChipHwCapability const> hwCapability,
               Mox::Ptr<GenSetKeyGenerator> genSetKeyGen);

  AggregatorConfig const& aggConfig() const { return configAs<AggregatorConfig>(); }
  AggregatorStatus& aggStatus() const { return *aggStatus_; }
  /// Digest of the last run that succeeded; none before it and after a failure.
  std::optional<AggregatorWorkingSet> const& aggWorkingSet() const { return aggWorkingSet_; }

  /// The deduper of a key, made if absent. Throws NameInUseError where it exists with another info
  /// object or chip.
  Mox::Ptr<PrefixDedupMarkAndSweeper> prefixDeduperIs(PrefixXformKey const& key,
                                                      Mox::Ptr<PrefixAggregatorInfo> const& info,
                                                      Obel::ChipId chipId);
  Mox::Ptr<RangeDedupMarkAndSweeper> rangeDeduperIs(RangeSetType type,
                                                    Mox::Ptr<RangeSplitAggregatorInfo> const& info,
                                                    Obel::ChipId chipId);

  void doStartKick() override;
  /// Digest of the configuration as it is now.
  /// O(rules), of which those that stand as they did cost no hashing.
  AggregatorWorkingSet doBuildWorkingSet() const;
  /// The steps of a run by themselves, in this order; the configuration must be one that can be
  /// compiled. The kick after them does the work again. First: unmarks every set and empties what is
  /// rebuilt from scratch.
  void doCleanSm();
  /// The next two in one.
  void doBuildSets();
  void doBuildFieldSets();
  void doBuildAclGenSetRuleById();
  /// Deletes the sets that no rule has marked since doCleanSm().
  void doDeleteUnusedSets();
  /// The key of the shared set of a list.
  GenSetKey doBuildPrefixSet(PrefixXformKey const& key, Mox::Ptr<IpPrefixList const> const& list);

  /// Write rules and sets to the trace; nothing happens where level 9 is off.
  void dumpAllPrefixListsInRules() const;
  void dumpAllPrefixSets() const;
  void dumpAllFieldSetsInRules() const;
  void dumpAllRangeSets() const;

 protected:
  void doForget() noexcept override { aggWorkingSet_.reset(); }
  Look doLook() override;
  std::optional<std::string> doWork() override;
  void doRemember() noexcept override;

 private:
  using Walks = std::vector<AclWalk>;
  /// What the last run that finished made of an ACL, and of what.
  struct Built {
    Mox::Stamp acl = 0;
    Mox::Ptr<AclGenSetIpRuleList> list;
    std::vector<RuleStamps> stamps;             // of the rules, by place in `ruleByName`
    std::vector<uint64_t> contents;             // their content hashes, likewise
    std::vector<Mox::Ptr<GenSetIpRule>> rules;  // what was made of them, likewise
  };

  /// The content hashes of the rules of each ACL; those of rules that stand as they did are known.
  std::vector<std::vector<uint64_t>> contentsOf(Walks const& walks) const;
  /// A bit for each type of combination that rules are matched through.
  uint32_t enabledCombos() const;
  /// Whether the configuration says what it said at the last run that succeeded.
  bool isUnchanged();
  /// Whether an ACL does. Learns the stamps of what is written differently and says the same.
  bool isUnchanged(AclConfig const& acl, Built& built) const;
  /// Whether a rule says what another one said when that was made of it.
  bool saysTheSame(RuleConfig const& config, Lumox::AddressFamily af,
                   GenSetIpRule const& rule) const;
  bool saysTheSame(IpPrefixList const* list, PrefixXformKey const& key, GenSetKey set) const;
  template <class Ranges>
  bool saysTheSame(Ranges const& ranges, RangeSetType type, GenSetKey key) const;
  /// The rules whose stamps have changed, by ACL and place, where nothing else has and they are few.
  struct Edit {
    size_t walk;
    size_t place;
  };
  std::optional<std::vector<Edit>> fewEdits(Walks const& walks) const;
  /// Brings what the last run has built up to date with them.
  void applyEdits(Walks& walks, std::vector<Edit> const& edits);
  /// The rule as it stands now, with the sets of `before` where it says the same.
  Mox::Ptr<GenSetIpRule> editedRule(RuleConfig const& config, Lumox::AddressFamily af,
                                    GenSetIpRule const& before);
  /// Adds the uses of a rule's sets, or takes them back.
  void countRule(GenSetIpRule const& rule, Lumox::AddressFamily af, int32_t by);
  /// Calls `f(deduper, key)` for the sets of a rule.
  template <class F>
  void forEachSet(GenSetIpRule const& rule, Lumox::AddressFamily af, F f);
  void cleanSm();
  void buildFieldSets(Walks const& walks);
  /// What was made of the rules of an ACL, by place in `ruleByName`.
  std::vector<Mox::Ptr<GenSetIpRule>> rulesOf(AclWalk const& walk) const;
  void buildRuleById(AclWalk const& walk, std::vector<Mox::Ptr<GenSetIpRule>> const& rules);
  PrefixDedupMarkAndSweeper& prefixDeduper(PrefixXformKey const& key);
  RangeDedupMarkAndSweeper& rangeDeduper(RangeSetType type);
  /// Turns the ranges of one filter into the key of a shared set and counts the use.
  template <class Ranges>
  GenSetKey buildRangeSet(RangeSetType type, Ranges const& ranges);
  /// The same for `ranges_`.
  GenSetKey buildRangeSet(RangeSetType type);
  /// What the last run made of an ACL, if the names of its rules are still the same ones in the same
  /// order; null else.
  Built const* reusable(AclWalk const& walk, Lumox::AddressFamily af) const;
  void rebuildList(AclWalk const& walk, Built const& built);
  void buildRule(RuleConfig const& config, Lumox::AddressFamily af, GenSetIpRule& rule);
  /// Marks and counts the sets of a rule that has not changed.
  void reuseRule(GenSetIpRule const& rule, Lumox::AddressFamily af);
  void buildRuleSets(RuleFilter const& filter, Lumox::AddressFamily af, GenSetIpRule& rule);
  /// Takes back the two counts of a pair that is matched through one combination label.
  void uncountPair(ComboLabelSetType type, GenSetIpRule const& rule);
  /// Publishes how often each set was used.
  void countUses();
  /// After a run that did not finish.
  void deleteUnnamedSets();

  Mox::Ptr<AggregatorStatus> aggStatus_;
  Mox::Ptr<ChipHwCapability const> hwCapability_;
  Mox::Ptr<GenSetKeyGenerator> genSetKeyGen_;
  Mox::OrderedMap<PrefixXformKey, Mox::Ptr<PrefixDedupMarkAndSweeper>> prefixDeduper_;
  Mox::OrderedMap<RangeSetType, Mox::Ptr<RangeDedupMarkAndSweeper>> rangeDeduper_;
  std::optional<AggregatorWorkingSet> aggWorkingSet_;
  uint32_t builtCombos_ = 0;  // those that were enabled in that run
  bool brokenOff_ = false;    // the last run did not finish
  Mox::OrderedMap<std::string, Built> built_;

  // For the run at hand.
  Walks walks_;  // between look and work only
  AggregatorWorkingSet workingSet_;
  std::array<PrefixDedupMarkAndSweeper*, 4> prefixDedupers_{};              // by family and side
  std::array<RangeDedupMarkAndSweeper*, rangeFieldCount> rangeDedupers_{};  // by type
  RangeSet::RangeColl ranges_;                                              // of the filter at hand
};

template <class Ranges>
bool AggregatorSm::saysTheSame(Ranges const& ranges, RangeSetType type, GenSetKey key) const {
  if (ranges.empty() || !key) return ranges.empty() && !key;
  auto const set = aggStatus_->rangeSplitInfo(type)->rangeSetColl(key);
  return set && std::equal(ranges.begin(), ranges.end(), set->range().begin(), set->range().end(),
                           [](auto const& r, RangeSetElem const& e) {
                             return r.rangeStart() == e.first() && r.rangeEnd() == e.last();
                           });
}

template <class Ranges>
GenSetKey AggregatorSm::buildRangeSet(RangeSetType type, Ranges const& ranges) {
  // The ends fit: the whole configuration has been checked against the bounds of its fields.
  auto const elem = [](auto const& r) {
    return RangeSetElem(static_cast<uint16_t>(r.rangeStart()), static_cast<uint16_t>(r.rangeEnd()));
  };
  ranges_.clear();
  ranges.forEach([&](auto const& r) { ranges_.insert(elem(r)); });
  return buildRangeSet(type);
}

NAXEL_EXPORT Mox::Ptr<AggregatorSm> aggregatorSmFactory(
    Obel::ChipId chipId, Mox::Ptr<AggregatorConfig> config, Mox::Ptr<AggregatorStatus> status,
    Mox::Ptr<ChipHwCapability const> hwCapability, Mox::Ptr<GenSetKeyGenerator> genSetKeyGen);

}  // namespace Naxel
