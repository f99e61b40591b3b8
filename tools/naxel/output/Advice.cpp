#include "output/Advice.h"

#include "mox/Bounded.h"
#include "naxel/encoder/EncoderTypes.h"
#include "naxel/genset/NaxelAggregatorTypes.h"
#include "naxel/xform/NaxelXformTypes.h"

#include <algorithm>
#include <array>
#include <vector>

namespace NaxelTool {

namespace {

using Naxel::ComboLabelSetType;
using Naxel::GenSetKey;
using Naxel::RangeSetType;

/// Fewer entries than these are not worth a word.
constexpr uint64_t fewEntries = 16;

/// Entries in all by what is counted: as they are, and with one thing changed.
class Estimate {
 public:
  explicit Estimate(Naxel::NaxelRootSm const& root) : root_(root) {
    for (auto const& [name, list] : root.aggregatorStatus()->aclGenSetIpRuleList())
      for (auto const& [index, rule] : list->genSetIpRuleById()) add(*rule, list->af());
  }

  uint64_t present() const { return present_; }
  uint64_t labelled(RangeSetType type) const { return labelled_[static_cast<size_t>(type)]; }
  uint64_t apart(ComboLabelSetType type) const { return apart_[static_cast<size_t>(type)]; }
  /// With one pair for each set that has labels.
  uint64_t compact() const { return compact_; }

 private:
  static uint64_t pairsOf(Naxel::EncoderStatus const& encoder, GenSetKey key) {
    if (!key) return 1;
    auto const* const list = encoder.encodedLabelList(key);
    return list ? list->encLabelAndMask().size() : 0;
  }
  bool isRaw(RangeSetType type) const {
    return root_.rangeEncoderStatus(type)->plainToEncodedLabel().empty();
  }

  void add(Naxel::GenSetIpRule const& rule, Lumox::AddressFamily af) {
    struct Side {
      Naxel::EncoderStatus const& encoder;
      GenSetKey key;
    };
    std::array<uint64_t, Naxel::rangeFieldCount> ranges{};
    std::array<uint64_t, 3> combos;  // pairs if matched as one label, and 0 if not
    std::array<uint64_t, 3> sides;
    combos.fill(0);
    sides.fill(1);
    uint64_t entries = 1;
    uint64_t least = 1;
    auto const pair = [&](ComboLabelSetType type, Side src, Side dst) {
      auto const i = static_cast<size_t>(type);
      sides[i] = Mox::boundedProduct(pairsOf(src.encoder, src.key), pairsOf(dst.encoder, dst.key));
      GenSetKey const combo =
          src.key && dst.key
              ? root_.comboLabelInfo(type)->srcDstToComboMap(Naxel::GenSetKeyPair(src.key, dst.key))
              : GenSetKey();
      if (combo) combos[i] = pairsOf(*root_.comboLabelEncoderStatus(type), combo);
      entries = Mox::boundedProduct(entries, combo ? combos[i] : sides[i]);
    };
    pair(af == Lumox::ipv4() ? ComboLabelSetType::ipv4SrcDstPrefix
                             : ComboLabelSetType::ipv6SrcDstPrefix,
         {*root_.prefixEncoderStatus({af, true}), rule.source()},
         {*root_.prefixEncoderStatus({af, false}), rule.destination()});
    pair(ComboLabelSetType::srcDstL4Port,
         {*root_.rangeEncoderStatus(RangeSetType::srcPort), rule.sport()},
         {*root_.rangeEncoderStatus(RangeSetType::dstPort), rule.dport()});
    for (RangeSetType type : Naxel::allRangeSetTypes()) {
      uint64_t const pairs = pairsOf(*root_.rangeEncoderStatus(type), rule.range(type));
      ranges[static_cast<size_t>(type)] = pairs;
      if (type != RangeSetType::srcPort && type != RangeSetType::dstPort)
        entries = Mox::boundedProduct(entries, pairs);
      if (isRaw(type)) least = Mox::boundedProduct(least, pairs);
    }
    if (!entries) return;
    present_ = Mox::boundedSum(present_, entries);
    compact_ = Mox::boundedSum(compact_, least);
    for (size_t i = 0; i < labelled_.size(); ++i)
      labelled_[i] = Mox::boundedSum(
          labelled_[i], isRaw(static_cast<RangeSetType>(i)) ? entries / ranges[i] : entries);
    for (size_t i = 0; i < apart_.size(); ++i)
      apart_[i] = Mox::boundedSum(
          apart_[i], combos[i] ? Mox::boundedProduct(entries / combos[i], sides[i]) : entries);
  }

  Naxel::NaxelRootSm const& root_;
  uint64_t present_ = 0;
  uint64_t compact_ = 0;
  std::array<uint64_t, Naxel::rangeFieldCount> labelled_{};
  std::array<uint64_t, 3> apart_{};
};

}  // namespace

std::string advice(Session const& session) {
  Estimate const estimate(session.root());
  uint64_t least = estimate.present();
  std::string what;
  auto const consider = [&](uint64_t entries, std::string const& how) {
    if (entries >= least) return;
    least = entries;
    what = how;
  };
  for (RangeSetType type : Naxel::allRangeSetTypes())
    consider(estimate.labelled(type),
             "labels for " + Naxel::stringValue(type) + " in the place of raw values");
  for (ComboLabelSetType type : Naxel::allComboLabelSetTypes())
    consider(estimate.apart(type), "to leave the combination " + Naxel::stringValue(type) + " out");
  if (session.data().labelCode() == Acl::LabelCode::aligned)
    consider(estimate.compact(), "the label code compact");
  uint64_t const saved = estimate.present() - least;
  if (saved < fewEntries || saved < estimate.present() / 5) return {};
  return what + " might save " + std::to_string(saved) + " of " +
         std::to_string(estimate.present()) + " entries";
}

}  // namespace NaxelTool
