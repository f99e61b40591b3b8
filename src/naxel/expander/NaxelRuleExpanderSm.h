#pragma once

/// The rule expander: multiplies each rule out into TCAM entries over encoded labels, one for each
/// combination of one value/mask pair per field.
///
/// Reads    the rules in terms of set keys and every encoder's pairs; the transform statuses tell a
///          set that covers nothing from a field that this chip does not transform.
/// Writes   PDAclColl, one PDAclRuleColl per ACL, one PDAclRule per index with the rule's action.
/// Skips    never.
/// Fails    when a set has no pairs although its field is constrained and its transform cannot say
///          that it is empty, or when a product exceeds the index space of the work list.
/// Order    ACLs by key, rules by index, entries of a rule in ascending order.
///
/// A rule of a set that covers nothing has no entries: a constrained field never degrades to one
/// that matches everything.

#include "mox/HashMap.h"
#include "naxel/control/StageSm.h"
#include "naxel/expander/RuleExpanderTypes.h"

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
  void buildSrcDstIpField(GenSetKey source, GenSetKey destination, Lumox::AddressFamily af);
  void buildSrcDstL4PortField(GenSetKey sport, GenSetKey dport);
  void dumpRuleExpanderConfig() const;
  void dumpRuleExpanderStatus() const;

 private:
  size_t ruleFilters() const { return ruleFilter_.size(); }
  void ruleFilterEnq(PDAclFilter const& f) { ruleFilter_.enq(f); }
  PDAclFilter ruleFilterDeq() { return ruleFilter_.deq(); }
  void ruleFilterDelAll() { ruleFilter_.delAll(); }

  void expandRule(GenSetIpRule const& rule, Lumox::AddressFamily af, PDAclRule& out);
  void collectFilters(GenSetIpRule const& rule, PDAclRule& out);
  /// Multiplies with a set of a field; empties the work list for a set that covers nothing.
  void buildField(TcamFieldType fieldType, GenSetKey key, EncoderStatus const& encoder,
                  XformStatus const& xform);
  /// True if the pair is matched through one combination label, which is then done.
  bool buildCombo(ComboLabelSetType type, TcamFieldType fieldType, GenSetKey src, GenSetKey dst);

  Mox::Ptr<RuleExpanderConfig> ruleExConfig_;
  Mox::Ptr<RuleExpanderStatus> ruleExStatus_;
  RuleFilterQueue ruleFilter_;
  Mox::HashSet<PDAclFilter> ruleFilterDeduper_;
};
NAXEL_EXPORT Mox::Ptr<RuleExpanderSm> ruleExpanderSmFactory(Obel::ChipId chipId,
                                                            Mox::Ptr<RuleExpanderConfig> config,
                                                            Mox::Ptr<RuleExpanderStatus> status);

/// Sets the field of that type; any type that carries no label ends the process.
NAXEL_EXPORT void setTcamField(PDAclFilter& filter, TcamFieldType type,
                               EncodedLabelWithMask const& value);

}  // namespace Naxel
