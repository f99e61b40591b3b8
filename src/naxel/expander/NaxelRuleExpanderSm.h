#pragma once

/// The rule expander: multiplies each rule out into TCAM entries over encoded labels, one for each
/// combination of one value/mask pair per field.
///
/// Reads    the rules in terms of set keys and every encoder's pairs; the transform statuses tell a
///          set that covers nothing from a field that this chip does not transform.
/// Writes   PDAclColl, one PDAclRuleColl per ACL, one PDAclRule per index with the rule's action.
/// Skips    never as a stage; but it does not build what it has built before. It does nothing where
///          none of what it reads has been published anew since its last run, told by stamps, and
///          keeps the rules whose action and pairs are the same, told by the pairs themselves. Rules
///          that it has built are replaced, never edited, because outputs of earlier kicks share them.
/// Fails    when a set has no pairs although its field is constrained and its transform cannot say
///          that it is empty, or when the rules take more entries in all than the agent allows. The
///          entries are counted before any of them is made.
/// Order    ACLs by key, rules by index, entries of a rule in ascending order.
///
/// A rule of a set that covers nothing has no entries: a constrained field never degrades to one
/// that matches everything.

#include "acl/ParamConfig.h"
#include "mox/HashMap.h"
#include "naxel/control/StageSm.h"
#include "naxel/expander/RuleExpanderTypes.h"
#include "naxel/expander/RuleProduct.h"
#include "naxel/genset/KeyPlaces.h"

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
  /// What the rules are multiplied out of, for whoever wants to know what other label codes would make of them. It
  /// refers to the pairs that the encoders have published, and stands as long as they do.
  class Costs {
   public:
    /// The entries of all rules if each encoder published what it has by the code named for its field, IPv4 first;
    /// the largest number where there are even more.
    uint64_t entries(std::array<FieldCodes, 2> const& codes) const;

   private:
    friend RuleExpanderSm;
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
  /// Where the pairs of one field come from.
  struct Source {
    TcamFieldType field;
    EncoderStatus const* encoder;
    XformStatus const* xform;
    KeyPlaces places;  // of the keys in the encoder's lists
  };
  using Recipe = RuleRecipe;
  using Recipes = RuleRecipes;
  /// An ACL and what its rules are to be built from.
  struct Plan {
    AclGenSetIpRuleList const* list;
    Recipes recipes;
  };

  uint64_t entryLimit() const;
  /// The stamps of everything that is read.
  std::vector<Mox::Stamp> inputStamps() const;
  void bindSources();
  void deleteGoneAcls();
  /// With `sameLabels` the pairs of every set are those of the last run.
  /// Of the lists that the recipes refer to those that are published no more, ascending.
  std::vector<RuleFactor> goneLists() const;
  /// Whether a recipe refers to none of these.
  bool stands(Recipes const& known, size_t place) const;
  Plan planOf(AclGenSetIpRuleList const& list, bool sameLabels);
  /// Throws where the rules take more entries than the agent allows.
  void checkEntries(std::vector<Plan> const& plans) const;
  void buildAcl(Plan plan);
  /// Adds the recipe of a rule to those of its ACL.
  void gatherFactors(Mox::Ptr<GenSetIpRule> const& rule, Lumox::AddressFamily af);
  void addFactor(Source const& source, GenSetKey key);
  /// True if the pair is matched through one combination label, which is then done.
  bool addCombo(ComboLabelSetType type, GenSetKey src, GenSetKey dst);
  Mox::Ptr<PDAclRule> expandRule(AceIndex index, GenSetIpRule const& rule, Recipes const& recipes,
                                 size_t place);

  Mox::Ptr<Acl::ParamConfig const> paramConfig_;
  std::function<void()> prepare_;
  Mox::Ptr<RuleExpanderStatus> ruleExStatus_;
  RuleFilterQueue ruleFilter_;

  std::vector<Source> prefixSources_;  // by family, source side first
  std::vector<Source> rangeSources_;   // by type, as are the next
  std::vector<Source> comboSources_;
  std::vector<ComboLabelInfo const*> comboInfos_;
  Recipes recipes_;                    // of the ACL at hand
  Recipe recipe_;                      // of the rule at hand
  std::vector<Mox::Stamp> builtFrom_;  // of everything that was read; empty before the first run
  std::vector<Mox::Ptr<EncodedLabelWithMaskList const>> lists_;  // that the recipes refer to
  std::vector<size_t> listEnds_;                                 // of each source among them
  std::vector<Mox::Stamp> comboStamps_;                          // that they were made with
  // For the run at hand: those of `lists_` that are published no more, ascending; none where all count as gone.
  std::optional<std::vector<RuleFactor>> goneLists_;
  Mox::OrderedMap<PDAclKey, Recipes> builtRecipes_;
};
NAXEL_EXPORT Mox::Ptr<RuleExpanderSm> ruleExpanderSmFactory(
    Obel::ChipId chipId, Mox::Ptr<RuleExpanderConfig> config, Mox::Ptr<RuleExpanderStatus> status,
    Mox::Ptr<Acl::ParamConfig const> paramConfig = nullptr);

}  // namespace Naxel
