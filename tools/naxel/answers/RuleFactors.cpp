#include "answers/RuleFactors.h"

#include "input/ChipReader.h"
#include "mox/Bounded.h"
#include "naxel/encoder/EncoderTypes.h"
#include "naxel/xform/NaxelXformTypes.h"

namespace NaxelTool {

namespace {

using Naxel::ComboLabelSetType;
using Naxel::GenSetKey;
using Naxel::TcamFieldType;

class Gathering {
 public:
  Gathering(Naxel::NaxelRootSm const& root, Naxel::GenSetIpRule const& rule,
            Lumox::AddressFamily af)
      : root_(root), rule_(rule), af_(af) {}

  std::vector<RuleFactorView> all() {
    if (!combo(Naxel::prefixComboType(af_), TcamFieldType::tcamFieldTypeSrcDstIp)) {
      prefix(true, rule_.source());
      prefix(false, rule_.destination());
    }
    if (!combo(ComboLabelSetType::srcDstL4Port, TcamFieldType::tcamFieldTypeSrcDstPort)) {
      range(Naxel::RangeSetType::srcPort);
      range(Naxel::RangeSetType::dstPort);
    }
    for (Naxel::RangeSetType const type : Naxel::allRangeSetTypes())
      if (type != Naxel::RangeSetType::srcPort && type != Naxel::RangeSetType::dstPort) range(type);
    return std::move(out_);
  }

 private:
  void add(TcamFieldType field, std::string name, Naxel::EncoderStatus const& encoder,
           GenSetKey key, bool isCombo) {
    auto const* const list = encoder.encodedLabelList(key);
    out_.push_back(
        {field, std::move(name), key, isCombo, list ? list->encLabelAndMask().size() : 0});
  }
  bool combo(ComboLabelSetType type, TcamFieldType field) {
    Naxel::GenSetKeyPair const pair = rule_.comboPair(type);
    GenSetKey const key =
        pair.src() && pair.dst() ? root_.comboLabelInfo(type)->srcDstToComboMap(pair) : GenSetKey();
    if (!key) return false;
    add(field, Naxel::stringValue(type), *root_.comboLabelEncoderStatus(type), key, true);
    return true;
  }
  void prefix(bool src, GenSetKey key) {
    Naxel::PrefixXformKey const which(af_, src);
    if (key)
      add(src ? TcamFieldType::tcamFieldTypeSrcIp : TcamFieldType::tcamFieldTypeDstIp,
          prefixKeyName(which), *root_.prefixEncoderStatus(which), key, false);
  }
  void range(Naxel::RangeSetType type) {
    if (GenSetKey const key = rule_.range(type))
      add(Naxel::rangeField(type).tcamField, Naxel::stringValue(type),
          *root_.rangeEncoderStatus(type), key, false);
  }

  Naxel::NaxelRootSm const& root_;
  Naxel::GenSetIpRule const& rule_;
  Lumox::AddressFamily af_;
  std::vector<RuleFactorView> out_;
};

}  // namespace

std::vector<RuleFactorView> factorsOf(Naxel::NaxelRootSm const& root,
                                      Naxel::GenSetIpRule const& rule, Lumox::AddressFamily af) {
  return Gathering(root, rule, af).all();
}

uint64_t entriesOf(std::vector<RuleFactorView> const& factors) {
  uint64_t out = 1;
  for (RuleFactorView const& f : factors) out = Mox::boundedProduct(out, f.pairs);
  return out;
}

uint64_t entriesOf(Naxel::NaxelRootSm const& root) {
  uint64_t out = 0;
  for (auto const& [name, list] : root.aggregatorStatus()->aclGenSetIpRuleList())
    for (auto const& [index, rule] : list->genSetIpRuleById())
      out = Mox::boundedSum(out, entriesOf(factorsOf(root, *rule, list->af())));
  return out;
}

size_t labelsOf(Naxel::XformStatus const& xform, Naxel::GenSetKey key) {
  auto const* const list = xform.plainLabelListMap()->plainLabelList(key);
  return list ? list->label().size() : 0;
}

}  // namespace NaxelTool
