#pragma once

/// The rule expander: multiplies each rule out into TCAM entries over encoded labels, one for each
/// combination of one value/mask pair per field.
///
/// Reads    the rules in terms of set keys and every encoder's pairs; the transform statuses tell a
///          set that covers nothing from a field that this chip does not transform.
/// Writes   PDAclColl, one PDAclRuleColl per ACL, one PDAclRule per index with the rule's action.
/// Skips    never as a stage; but it does not build what it has built before. It does nothing where
///          none of what it reads has been published anew since its last run, and keeps the rules
///          whose action and pairs are the same, told by a digest over the pairs. Rules that it has
///          built are replaced, never edited, because outputs of earlier kicks share them.
/// Fails    when a set has no pairs although its field is constrained and its transform cannot say
///          that it is empty, or when a product exceeds the index space of the work list.
/// Order    ACLs by key, rules by index, entries of a rule in ascending order.
///
/// A rule of a set that covers nothing has no entries: a constrained field never degrades to one
/// that matches everything.

#include "mox/HashMap.h"
#include "naxel/control/StageSm.h"
#include "naxel/expander/RuleExpanderTypes.h"
#include "naxel/genset/KeyPlaces.h"

namespace Naxel {

/// First-in first-out queue of partially built entries under rising 32-bit indexes.
class RuleFilterQueue {
 public:
  size_t size() const { return items_.size() - head_; }
  bool empty() const { return size() == 0; }
  /// Appends at the next index. Throws when the index space is exhausted.
  void enq(PDAclFilter const& f);
  /// Removes and returns the head.
  PDAclFilter deq();
  /// Puts `change(entry)` in the place of every entry.
  template <class Change>
  void replaceAll(Change change) {
    for (size_t i = head_; i < items_.size(); ++i) change(items_[i]);
  }
  /// Empties the queue and starts again with index 0.
  void delAll();

 private:
  std::vector<PDAclFilter> items_;
  size_t head_ = 0;
  uint32_t nextIndex_ = 0;
};

class NAXEL_EXPORT RuleExpanderSm : public StageSm {
 public:
  RuleExpanderSm(Obel::ChipId chipId, Mox::Ptr<RuleExpanderConfig> config,
                 Mox::Ptr<RuleExpanderStatus> status);

  RuleExpanderConfig const& ruleExConfig() const { return *ruleExConfig_; }
  RuleExpanderStatus& ruleExStatus() const { return *ruleExStatus_; }

  void doStartKick() override;
  void doBuildExpandedRules();
  /// Multiplies the work list with the pairs of one field.
  void buildTcamEntry(TcamFieldType fieldType, EncodedLabelWithMaskList const& encLabelList);
  /// Add the pairs of these fields to what the rule at hand is built from.
  void buildSrcDstIpField(GenSetKey source, GenSetKey destination, Lumox::AddressFamily af);
  void buildSrcDstL4PortField(GenSetKey sport, GenSetKey dport);
  void dumpRuleExpanderConfig() const;
  void dumpRuleExpanderStatus() const;

 protected:
  void doForget() noexcept override { builtFrom_.clear(); }

 private:
  /// Where the pairs of one field come from.
  struct Source {
    TcamFieldType field;
    EncoderStatus const* encoder;
    XformStatus const* xform;
    KeyPlaces places;  // of the keys in the encoder's lists
  };
  /// Pairs that one field of the rule at hand multiplies with.
  struct Factor {
    TcamFieldType field;
    EncodedLabelWithMaskList const* list;
  };
  /// What the rules of an ACL have been built from, in their order.
  using Digests = std::vector<uint64_t>;

  size_t ruleFilters() const { return ruleFilter_.size(); }
  void ruleFilterEnq(PDAclFilter const& f) { ruleFilter_.enq(f); }
  PDAclFilter ruleFilterDeq() { return ruleFilter_.deq(); }
  void ruleFilterDelAll() { ruleFilter_.delAll(); }

  /// The revisions of everything that is read.
  std::vector<uint64_t> inputRevisions() const;
  void bindSources();
  void deleteGoneAcls();
  void buildAcl(AclGenSetIpRuleList const& list);
  /// Fills `factors_` and `matchesNothing_`, and returns their digest.
  uint64_t gatherFactors(GenSetIpRule const& rule, Lumox::AddressFamily af);
  void addFactor(Source const& source, GenSetKey key);
  /// True if the pair is matched through one combination label, which is then done.
  bool addCombo(ComboLabelSetType type, GenSetKey src, GenSetKey dst);
  Mox::Ptr<PDAclRule> expandRule(AceIndex index, GenSetIpRule const& rule);
  std::vector<PDAclFilter> collectFilters(GenSetIpRule const& rule);

  Mox::Ptr<RuleExpanderConfig> ruleExConfig_;
  Mox::Ptr<RuleExpanderStatus> ruleExStatus_;
  RuleFilterQueue ruleFilter_;
  Mox::HashSet<PDAclFilter> ruleFilterDeduper_;

  std::vector<Source> prefixSources_;  // by family, source side first
  std::vector<Source> rangeSources_;   // by type, as are the next
  std::vector<Source> comboSources_;
  std::vector<Factor> factors_;
  bool matchesNothing_ = false;  // one of the sets covers nothing
  std::vector<uint64_t> builtFrom_;
  Mox::OrderedMap<PDAclKey, Digests> digests_;
};
NAXEL_EXPORT Mox::Ptr<RuleExpanderSm> ruleExpanderSmFactory(Obel::ChipId chipId,
                                                            Mox::Ptr<RuleExpanderConfig> config,
                                                            Mox::Ptr<RuleExpanderStatus> status);

/// Sets the field of that type; any type that carries no label ends the process.
NAXEL_EXPORT void setTcamField(PDAclFilter& filter, TcamFieldType type,
                               EncodedLabelWithMask const& value);

}  // namespace Naxel
