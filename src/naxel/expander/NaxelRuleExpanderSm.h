#pragma once

/// The rule expander: multiplies each rule out into TCAM entries over encoded labels, one for each
/// combination of one value/mask pair per field.
///
/// Reads    the rules in terms of set keys and every encoder's pairs; the transform statuses tell a
///          set that covers nothing from a field that this chip does not transform.
/// Writes   PDAclColl, one PDAclRuleColl per ACL, one PDAclRule per index with the rule's action.
/// Skips    never as a stage; but it does not build what it has built before. It does nothing where
///          none of what it reads has been published anew since its last run, told by stamps, looks
///          at no rule that is the same object with the same lists, and keeps those whose action and
///          pairs are the same, told by the pairs themselves. Rules and ACLs that it has built are
///          replaced, never edited, because outputs of earlier kicks share them.
/// Fails    when a set has no pairs although its field is constrained and its transform cannot say
///          that it is empty, or when the rules take more entries in all than the agent allows. The
///          entries are counted before any of them is made. All that the last run has left stands then.
/// Order    ACLs by key, rules by index, entries of a rule in ascending order.
///
/// A rule of a set that covers nothing has no entries: a constrained field never degrades to one
/// that matches everything.

#include "acl/ParamConfig.h"
#include "naxel/control/StageSm.h"
#include "naxel/expander/RuleProduct.h"
#include "naxel/expander/RuleRecipes.h"

#include <functional>
#include <optional>

namespace Naxel {

class NAXEL_EXPORT RuleExpanderSm : public StageSm {
 public:
  /// `paramConfig` says how many entries may be made; null for the default number.
  RuleExpanderSm(Obel::ChipId chipId, Mox::Ptr<RuleExpanderConfig> config,
                 Mox::Ptr<RuleExpanderStatus> status,
                 Mox::Ptr<Acl::ParamConfig const> paramConfig = nullptr);

  RuleExpanderConfig const& ruleExConfig() const { return configAs<RuleExpanderConfig>(); }
  RuleExpanderStatus& ruleExStatus() const { return *ruleExStatus_; }

  void doStartKick() override;
  /// Brings the entries of all rules up to date. Throws std::length_error where they are too many and
  /// std::logic_error where the pairs of a set are missing, in words for the operator.
  void doBuildExpandedRules();
  /// Multiplies the work list with the pairs of one field.
  void buildTcamEntry(TcamFieldType fieldType, EncodedLabelWithMaskList const& encLabelList);
  /// Add the pairs of these fields to what the rule at hand is built from.
  void buildSrcDstIpField(GenSetKey source, GenSetKey destination, Lumox::AddressFamily af);
  void buildSrcDstL4PortField(GenSetKey sport, GenSetKey dport);
  /// What is done before rules are expanded; what it throws fails the stage.
  void prepareIs(std::function<void()> prepare) { prepare_ = std::move(prepare); }
  /// What the rules are multiplied out of, for whoever wants to know what other label codes would make of them.
  class Costs {
   public:
    /// The entries of all rules if each encoder published what it has by the code named for its field, IPv4 first;
    /// the largest number where there are even more.
    uint64_t entries(std::array<FieldCodes, 2> const& codes) const;

   private:
    friend RuleExpanderSm;
    PairLists lists_;
    std::vector<std::pair<Lumox::AddressFamily, RuleRecipes>> acls_;
  };
  Costs costs();
  /// Whether nothing that is read has been published anew since the entries were built.
  bool isUpToDate() const { return builtFrom_ == inputStamps(); }
  void dumpRuleExpanderConfig() const;
  void dumpRuleExpanderStatus() const;

 protected:
  void doForget() noexcept override { builtFrom_.clear(); }

 private:
  /// What becomes of an ACL.
  struct Plan {
    PDAclKey key;
    AclGenSetIpRuleList const* list;
    RulePlan rules;
    // Made before anything is changed: what takes the place of the present one, and room for its recipes.
    Mox::Ptr<PDAclRuleColl const> next;
    RuleRecipes recipes;  // not needed where rules only replace others
    bool replacesOnly = false;
  };

  uint64_t entryLimit() const;
  /// The stamps of everything that is read.
  std::vector<Mox::Stamp> inputStamps() const;
  void bindSources();
  /// Brings what has been built up to date. With `sameLabels` the pairs of every set are those of the last run.
  void update(bool sameLabels);
  void deleteGoneAcls();
  /// Where among the factors of recipes those of lists stand that are gone, ascending.
  std::vector<uint32_t> goneFactors(RuleRecipes const& known) const;
  Plan planOf(AclGenSetIpRuleList const& list);
  /// The entries of the rules that stay.
  uint64_t entriesKept(Plan const& plan) const;
  /// Throws where the rules take more entries than the agent allows.
  void checkEntries(std::vector<Plan> const& plans) const;
  [[noreturn]] void throwTooMany(std::vector<Plan> const& plans, uint64_t all) const;
  void makeAcl(Plan& plan);
  /// The rule of a fresh recipe: the one of its index where that says the same.
  Mox::Ptr<PDAclRule const> madeRule(Plan const& plan, AceIndex index, size_t fresh);
  /// Puts it into the output.
  void adopt(Plan& plan) noexcept;
  /// The rules of an ACL in the output; none where it is new.
  PDAclRuleColl::RuleColl const& rulesOf(PDAclKey const& key) const;
  /// Adds the recipe of a rule to those of its ACL.
  void gatherFactors(Mox::Ptr<GenSetIpRule const> rule, Lumox::AddressFamily af);
  void addFactor(PairSource& source, GenSetKey key);
  /// True if the pair is matched through one combination label, which is then done.
  bool addCombo(ComboLabelSetType type, GenSetKey src, GenSetKey dst);
  Mox::Ptr<PDAclRule> expandRule(AceIndex index, NaxelActionValue const& action,
                                 RuleRecipes const& recipes, size_t place);

  Mox::Ptr<Acl::ParamConfig const> paramConfig_;
  std::function<void()> prepare_;
  Mox::Ptr<RuleExpanderStatus> ruleExStatus_;
  RuleFilterQueue ruleFilter_;

  // For the run at hand.
  std::vector<PairSource> sources_;  // prefixes by family, source side first; ranges, combinations
  std::vector<ComboLabelInfo const*> comboInfos_;
  PairLists now_;                       // what is published, unless it is what `lists_` holds
  PairLists const* current_ = nullptr;  // the lists that fresh recipes refer to
  // The numbers now of `lists_`; absent where all count as gone.
  std::optional<std::vector<RuleFactor>> renumbered_;
  RuleRecipes recipes_;  // of the ACL at hand
  RuleRecipe recipe_;    // of the rule at hand

  std::vector<Mox::Stamp> builtFrom_;  // of everything that was read; empty before the first run
  // What stands in the output, whether or not the last run has succeeded.
  PairLists lists_;
  std::vector<Mox::Stamp> comboStamps_;
  Mox::OrderedMap<PDAclKey, RuleRecipes> builtRecipes_;
};
NAXEL_EXPORT Mox::Ptr<RuleExpanderSm> ruleExpanderSmFactory(
    Obel::ChipId chipId, Mox::Ptr<RuleExpanderConfig> config, Mox::Ptr<RuleExpanderStatus> status,
    Mox::Ptr<Acl::ParamConfig const> paramConfig = nullptr);

}  // namespace Naxel
