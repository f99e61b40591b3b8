#pragma once

/// Multiplies a rule out into entries: one for each combination of one value/mask pair per field.
///
/// Idea. A queue begins with the entry that matches everything. For each field of the rule every entry in it
/// is replaced by as many as the field has pairs. At the end those that occur twice are taken out.
///
/// Example. Source {0/15, 4/12}, destination port {80/65535}: the queue holds one entry, then the two for the
/// sources, then the same two with the port.
///
/// Invariants. A rule without fields has the one entry that matches everything; a field whose set covers
/// nothing has no pairs, and its rule no entry at all. Pairs come ascending, so the entries do.
///
/// Cost. The number of entries. It is the product of the pairs, which crossing lists can drive to any number,
/// so it is counted (RuleRecipes::entriesOf) before any entry is made.

#include "mox/HashMap.h"
#include "naxel/expander/RuleExpanderTypes.h"

#include <functional>
#include <span>

namespace Naxel {

/// First-in first-out queue of partially built entries under rising 32-bit indexes.
class RuleFilterQueue {
 public:
  /// More entries than this one queue cannot number.
  static constexpr uint64_t indexSpace = 0xffffffffu;

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

/// Sets the field of that type; any type that carries no label ends the process.
NAXEL_EXPORT void setTcamField(PDAclFilter& filter, TcamFieldType type,
                               EncodedLabelWithMask const& value);

/// Replaces every entry of the queue by one per pair.
void multiply(RuleFilterQueue& queue, TcamFieldType field, EncodedLabelWithMaskList const& pairs);

/// Empties the queue into a list of entries that differ; `duplicate` is told of those that were left out.
std::vector<PDAclFilter> takeDistinct(RuleFilterQueue& queue, bool tcpInit, bool tcpEstablished,
                                      std::function<void(PDAclFilter const&)> const& duplicate);

/// The pairs that one field of a rule multiplies with. Whoever has recipes keeps the lists alive.
using RuleFactor = EncodedLabelWithMaskList const*;
/// What a rule is built from besides its action.
struct RuleRecipe {
  Mox::Ptr<GenSetIpRule const> rule;
  uint32_t factorsEnd = 0;  // they begin where those of the rule before end
  uint16_t fields = 0;      // a bit for the field of each factor, in their order
  bool tcpInit = false;
  bool tcpEstablished = false;
  bool matchesNothing = false;  // one of the sets covers nothing
};
/// A label code for each field of the entries of one family, by TcamFieldType.
using FieldCodes = std::array<Acl::LabelCode, 16>;

/// The recipes of the rules of an ACL, in their order.
struct RuleRecipes {
  std::vector<RuleFactor> factors;
  std::vector<RuleRecipe> rules;
  std::span<RuleFactor const> factorsOf(size_t rule) const {
    size_t const from = rule == 0 ? 0 : rules[rule - 1].factorsEnd;
    return std::span(factors).subspan(from, rules[rule].factorsEnd - from);
  }
  /// Whether a rule here is built from the same as one of others.
  bool isSame(size_t rule, RuleRecipes const& others, size_t other) const;
  /// Adds the recipe of a rule from others.
  void add(RuleRecipes const& others, size_t other);
  /// Entries of a rule; the largest number where there are even more.
  uint64_t entriesOf(size_t rule) const;
  /// The same where the sets of each field have their pairs by the code that `codes` names for it.
  uint64_t entriesOf(size_t rule, FieldCodes const& codes) const;
};

}  // namespace Naxel
