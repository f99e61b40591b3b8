#pragma once

/// The lists of pairs that all encoders publish, under the numbers by which recipes of rules refer to them.
///
/// Idea. A rule refers to its lists by number: one array of lists stands beside the rules, and what a run of an encoder
/// has changed is found once for each list and not once for each rule that uses it.
///
/// Cost. To bind and to number them, a pass over the lists; a search for a key is logarithmic, and constant once many
/// have been looked up.

#include "naxel/expander/RuleExpanderTypes.h"
#include "naxel/genset/KeyPlaces.h"

#include <optional>
#include <span>
#include <vector>

namespace Naxel {

/// Number of a list.
using RuleFactor = uint32_t;

/// Lists by number. They are kept as long as rules refer to them.
struct PairLists {
  static constexpr RuleFactor none = ~RuleFactor{0};

  std::vector<Mox::Ptr<EncodedLabelWithMaskList const>> lists;
  std::vector<RuleFactor> ends;  // of each source among them

  EncodedLabelWithMaskList::Pairs const& pairs(RuleFactor f) const {
    return lists[f]->encLabelAndMask();
  }
};

/// Where the pairs of one field come from; for one run, because an encoder publishes new lists in its next.
class PairSource {
 public:
  PairSource(TcamFieldType field, EncoderStatus const& encoder, XformStatus const& xform)
      : field_(field), encoder_(&encoder), xform_(&xform) {}

  TcamFieldType field() const { return field_; }
  EncoderStatus const& encoder() const { return *encoder_; }
  XformStatus const& xform() const { return *xform_; }
  EncoderStatus::MaskListMap const& published() const { return encoder_->encodedLabelList(); }
  /// The number of the list of the first key.
  void firstIs(RuleFactor v) { first_ = v; }
  /// The number of a key's list; PairLists::none where it has none.
  RuleFactor of(GenSetKey key);

 private:
  TcamFieldType field_;
  EncoderStatus const* encoder_;
  XformStatus const* xform_;
  RuleFactor first_ = 0;
  size_t asked_ = 0;
  std::optional<KeyPlaces> places_;  // made where many are asked for
};

/// The lists of all sources, one source behind the other.
PairLists publishedLists(std::span<PairSource> sources);
/// For each number of `before` the one of the list that says the same of the same set; none where there is none.
std::vector<RuleFactor> renumbered(PairLists const& before, PairLists const& now);

}  // namespace Naxel
