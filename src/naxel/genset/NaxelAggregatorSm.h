#pragma once

/// The aggregator: the first working stage of a kick.
///
/// Reads    the chip's whole ACL configuration.
/// Writes   AggregatorStatus: prefix sets per family and side, range sets per field, the count of
///          direct uses of each set, and per ACL the rules in terms of set keys.
/// Skips    when the digest of the configuration equals that of the last run that succeeded. The
///          digest covers every rule with its index, name, filter and action, the ACLs with their
///          families, and which combinations the chip has, since the counts depend on that.
/// Fails    on input that cannot be compiled: a range with its ends the wrong way round or beyond
///          its field, mixed families in one ACL, an index that refers to a rule that the ACL does
///          not hold. The check runs before anything is touched.
/// Order    ACLs by name, rules by index; sets by ascending key.
///
/// A rule whose content is what it was in the last run keeps its sets without a search for them; they
/// are counted like those of any other rule, and the keys that a search would have spent are spent.
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

  AggregatorConfig const& aggConfig() const { return *aggConfig_; }
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
  AggregatorWorkingSet doBuildWorkingSet() const;
  /// The steps of a run, over the ACLs that doStartKick() has walked.
  void doBuildSets();
  /// The key of the shared set of a list.
  GenSetKey doBuildPrefixSet(PrefixXformKey const& key, Mox::Ptr<IpPrefixList const> const& list);
  void doBuildFieldSets();
  void doBuildAclGenSetRuleById();
  /// Unmarks every set and empties what is rebuilt from scratch.
  void doCleanSm();
  void doDeleteUnusedSets();

  void dumpAllPrefixListsInRules() const;
  void dumpAllPrefixSets() const;
  void dumpAllFieldSetsInRules() const;
  void dumpAllRangeSets() const;

 protected:
  void doForget() noexcept override { aggWorkingSet_.reset(); }

 private:
  AggregatorWorkingSet workingSetOf(std::vector<AclWalk> const& acls) const;
  PrefixDedupMarkAndSweeper& prefixDeduper(PrefixXformKey const& key);
  RangeDedupMarkAndSweeper& rangeDeduper(RangeSetType type);
  /// Turns the ranges of one filter into the key of a shared set and counts the use.
  template <class Ranges>
  GenSetKey buildRangeSet(RangeSetType type, Ranges const& ranges);
  /// The same for `ranges_`.
  GenSetKey buildRangeSet(RangeSetType type);
  /// The rule list that the last run made for an ACL, if the names of its rules are still the same
  /// ones in the same order; null else.
  Mox::Ptr<AclGenSetIpRuleList> reusableList(AclWalk const& walk, Lumox::AddressFamily af) const;
  void rebuildList(AclWalk const& walk, Mox::Ptr<AclGenSetIpRuleList> const& list);
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

  Mox::Ptr<AggregatorConfig> aggConfig_;
  Mox::Ptr<AggregatorStatus> aggStatus_;
  Mox::Ptr<ChipHwCapability const> hwCapability_;
  Mox::Ptr<GenSetKeyGenerator> genSetKeyGen_;
  Mox::OrderedMap<PrefixXformKey, Mox::Ptr<PrefixDedupMarkAndSweeper>> prefixDeduper_;
  Mox::OrderedMap<RangeSetType, Mox::Ptr<RangeDedupMarkAndSweeper>> rangeDeduper_;
  std::optional<AggregatorWorkingSet> aggWorkingSet_;
  bool brokenOff_ = false;  // the last run did not finish
  /// What the last run that finished made of an ACL, and from which contents, by place.
  struct Built {
    Mox::Ptr<AclGenSetIpRuleList> list;
    std::vector<uint64_t> contents;
  };
  Mox::OrderedMap<std::string, Built> built_;

  // For the run at hand.
  std::vector<AclWalk> acls_;
  std::array<PrefixDedupMarkAndSweeper*, 4> prefixDedupers_{};  // by family and side
  std::array<RangeDedupMarkAndSweeper*, 7> rangeDedupers_{};    // by type
  RangeSet::RangeColl ranges_;                                  // of the filter at hand
};
NAXEL_EXPORT Mox::Ptr<AggregatorSm> aggregatorSmFactory(
    Obel::ChipId chipId, Mox::Ptr<AggregatorConfig> config, Mox::Ptr<AggregatorStatus> status,
    Mox::Ptr<ChipHwCapability const> hwCapability, Mox::Ptr<GenSetKeyGenerator> genSetKeyGen);

}  // namespace Naxel
