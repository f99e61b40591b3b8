#pragma once

/// The aggregator: the first working stage of a kick.
///
/// Reads    the chip's whole ACL configuration.
/// Writes   AggregatorStatus: prefix sets per family and side, range sets per field, the count of
///          direct uses of each set, and per ACL the rules in terms of set keys.
/// Skips    when the configuration says what it said at the last run that succeeded: the same ACLs
///          with their families, rules and indexes, every rule with its filter and action, and the
///          same combinations on the chip, since the counts depend on that. Equal stamps show it
///          (mox/Stamp.h), and where they differ a look at the content; a digest of the
///          configuration would not, because different ones of equal digests can be computed.
/// Fails    on input that cannot be compiled: a range with its ends the wrong way round or beyond
///          its field, mixed families in one ACL, an index that refers to a rule that the ACL does
///          not hold. The check runs before anything is touched.
/// Order    ACLs by name, rules by index; sets by ascending key.
///
/// A run compiles the rules that say something else than in the last one, or that have come, and takes those
/// back that have gone (AclEdit.h); all others keep their objects, and the keys that they would have spent are
/// spent. The first run, and one after a run that broke off, compiles all rules in the same way.
///
/// A set lives as long as some rule uses equal content in every kick: its key is kept, and a
/// changed list or range makes a new set with a new key.

#include "naxel/control/StageSm.h"
#include "naxel/genset/AclEdit.h"
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
  /// Digest of what the last run has compiled, where it succeeded; none before it and after a failure.
  /// O(members): nothing else needs it.
  std::optional<AggregatorWorkingSet> aggWorkingSet() const;

  /// The deduper of a key, made if absent. Throws NameInUseError where it exists with another info
  /// object or chip.
  Mox::Ptr<PrefixDedupMarkAndSweeper> prefixDeduperIs(PrefixXformKey const& key,
                                                      Mox::Ptr<PrefixAggregatorInfo> const& info,
                                                      Obel::ChipId chipId);
  Mox::Ptr<RangeDedupMarkAndSweeper> rangeDeduperIs(RangeSetType type,
                                                    Mox::Ptr<RangeSplitAggregatorInfo> const& info,
                                                    Obel::ChipId chipId);

  void doStartKick() override;
  /// Digest of the configuration as it is now. O(members).
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
  void doForget() noexcept override { remembers_ = false; }
  Look doLook() override;
  std::optional<std::string> doWork() override;
  void doRemember() noexcept override {
    remembers_ = true;
    seenChanges_ = lookedAt_;
  }

 private:
  /// A bit for each type of combination that rules are matched through.
  uint32_t enabledCombos() const;
  /// Gathers what has to be done; nothing where the configuration says what it said. Learns the stamps of what
  /// is written anew and says the same.
  void findEdits();
  /// Brings what was built up to date with the edits.
  void applyEdits(std::vector<AclEdit>& edits);
  /// Also rules that have not changed take keys as if their range sets had been built.
  void spendKeys(std::vector<AclEdit> const& edits);
  using Rules = std::vector<Mox::Ptr<GenSetIpRule>>;
  /// The rules of an edit as they stand now; their sets are marked.
  Rules compiled(AclEdit const& edit);
  /// One of them, with the sets of `before` where it says the same.
  Mox::Ptr<GenSetIpRule> compiledRule(RuleConfig const& config, Lumox::AddressFamily af,
                                      GenSetIpRule const* before);
  GenSetKey prefixSetOf(Mox::Ptr<IpPrefixList> const& list, Lumox::AddressFamily af, bool src,
                        GenSetKey before);
  template <class Ranges>
  GenSetKey rangeSetOf(RangeSetType type, Ranges const& ranges, GenSetKey before);
  /// Publishes the rules of an edit.
  void publish(AclEdit& edit, Rules const& made);
  void publishArranged(AclEdit& edit, Rules const& made);
  /// Takes back the uses of a rule that has gone or was replaced.
  void release(GenSetIpRule const& rule, Lumox::AddressFamily af);
  /// Adds the counts of a rule's sets, or takes them back.
  void countRule(GenSetIpRule const& rule, Lumox::AddressFamily af, int32_t by);
  /// Calls `f(deduper, key)` for the sets of a rule.
  template <class F>
  void forEachSet(GenSetIpRule const& rule, Lumox::AddressFamily af, F f);
  /// Calls `f(deduper)` for all dedupers.
  template <class F>
  void forEachDeduper(F f);
  void cleanSm();
  PrefixDedupMarkAndSweeper& prefixDeduper(Lumox::AddressFamily af, bool src) {
    auto* const known = prefixDedupers_[(af == Lumox::ipv4() ? 0u : 2u) + (src ? 0u : 1u)];
    return known ? *known : madeDeduper(PrefixXformKey(af, src));
  }
  RangeDedupMarkAndSweeper& rangeDeduper(RangeSetType type) {
    auto* const known = rangeDedupers_[static_cast<size_t>(type)];
    return known ? *known : madeDeduper(type);
  }
  PrefixDedupMarkAndSweeper& madeDeduper(PrefixXformKey const& key);
  RangeDedupMarkAndSweeper& madeDeduper(RangeSetType type);
  GenSetKey buildPrefixSet(PrefixDedupMarkAndSweeper& deduper,
                           Mox::Ptr<IpPrefixList const> const& list);
  /// The key of the shared set of `ranges_`, whose use it counts.
  GenSetKey buildRangeSet(RangeSetType type);
  /// Calls `f(key)` for the two sets of each pair of a rule that is matched through one combination label: such a
  /// rule does not use the pairs of either side, and must not make them look expensive.
  template <class F>
  static void forEachPaired(GenSetIpRule const& rule, Lumox::AddressFamily af, uint32_t combos,
                            F f) {
    for (ComboLabelSetType type : {prefixComboType(af), ComboLabelSetType::srcDstL4Port}) {
      if (!(combos >> static_cast<unsigned>(type) & 1)) continue;
      GenSetKeyPair const pair = rule.comboPair(type);
      if (!pair.src() || !pair.dst()) continue;
      f(pair.src());
      f(pair.dst());
    }
  }
  /// Publishes how often each set was used.
  void countUses();
  /// After a run that did not finish.
  void deleteUnnamedSets();

  Mox::Ptr<AggregatorStatus> aggStatus_;
  Mox::Ptr<ChipHwCapability const> hwCapability_;
  Mox::Ptr<GenSetKeyGenerator> genSetKeyGen_;
  Mox::OrderedMap<PrefixXformKey, Mox::Ptr<PrefixDedupMarkAndSweeper>> prefixDeduper_;
  Mox::OrderedMap<RangeSetType, Mox::Ptr<RangeDedupMarkAndSweeper>> rangeDeduper_;
  std::array<PrefixDedupMarkAndSweeper*, 4> prefixDedupers_{};              // by family and side
  std::array<RangeDedupMarkAndSweeper*, rangeFieldCount> rangeDedupers_{};  // by type
  bool remembers_ = false;    // the last run succeeded
  uint64_t seenChanges_ = 0;  // of all configurations, at the last look that found what was built
  uint64_t lookedAt_ = 0;     // likewise at the last look
  uint32_t builtCombos_ = 0;  // those that were enabled in the last run that finished
  bool brokenOff_ = false;    // the last run did not finish
  Mox::OrderedMap<std::string, BuiltAcl> built_;

  // For the run at hand. The edits refer to the configuration: between look and work only.
  std::vector<AclEdit> edits_;
  std::vector<std::string> goneAcls_;
  bool counts_ = false;         // each edit brings the counts of use up to date
  RangeSet::RangeColl ranges_;  // of the filter at hand
};

template <class F>
void AggregatorSm::forEachDeduper(F f) {
  for (auto const& [key, deduper] : prefixDeduper_) f(*deduper);
  for (auto const& [type, deduper] : rangeDeduper_) f(*deduper);
}

NAXEL_EXPORT Mox::Ptr<AggregatorSm> aggregatorSmFactory(
    Obel::ChipId chipId, Mox::Ptr<AggregatorConfig> config, Mox::Ptr<AggregatorStatus> status,
    Mox::Ptr<ChipHwCapability const> hwCapability, Mox::Ptr<GenSetKeyGenerator> genSetKeyGen);

}  // namespace Naxel
