#pragma once

/// Multiplies a rule out into entries: one for each combination of one value/mask pair per field.
///
/// Idea. A queue begins with the entry that matches everything. For each field of the rule every entry in it
/// is replaced by as many as the field has pairs. Fields of one pair are written into that first entry.
///
/// Example. Source {0/15, 4/12}, destination port {80/65535}: the queue holds one entry, then the two for the
/// sources, then the same two with the port.
///
/// Invariants. A rule without fields has the one entry that matches everything; a field whose set covers
/// nothing has no pairs, and its rule no entry at all. The pairs of a list ascend, and fields come in the order of an
/// entry's members, so the entries ascend and none occurs twice.
///
/// Cost. The number of entries. It is the product of the pairs, which crossing lists can drive to any number,
/// so it is counted (RuleRecipes::entriesOf) before any entry is made.

#include "naxel/expander/RuleExpanderTypes.h"

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
  /// The entries in their order, while the queue does not change.
  std::span<PDAclFilter const> items() const { return std::span(items_).subspan(head_); }
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

}  // namespace Naxel
