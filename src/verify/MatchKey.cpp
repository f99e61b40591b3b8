#include "verify/MatchKey.h"

namespace Verify {

using Naxel::EncodedLabelWithMask;
using Naxel::PDAclFilter;

EncodedLabelWithMask const& fieldOf(PDAclFilter const& f, Field field) {
  switch (field) {
    case Field::source: return f.source();
    case Field::destination: return f.destination();
    case Field::prefixCombo: return f.prefixCombo();
    case Field::sport: return f.sport();
    case Field::dport: return f.dport();
    case Field::portCombo: return f.portCombo();
    case Field::icmpType: return f.icmpType();
    case Field::proto: return f.proto();
    case Field::length: return f.length();
    case Field::fragment: return f.fragment();
    case Field::dscp: return f.dscp();
    case Field::headFragment: break;
  }
  return f.headFragment();
}

std::string text(Labels const& labels) {
  std::string out;
  for (size_t i = 0; i < fieldCount; ++i) {
    Field const field = static_cast<Field>(i);
    if (!labels[field]) continue;
    out +=
        (out.empty() ? "" : " ") + Mox::stringValue(field) + " " + std::to_string(*labels[field]);
  }
  return out;
}

KeyLayout KeyLayout::of(Naxel::PDData const& data, MissYields missYields) {
  Naxel::ChipHwCapability const& capability = *data.hwCapability();
  KeyLayout out;
  for (size_t i = 0; i < out.prefix.size(); ++i)
    out.prefix[i] = capability.prefixXformWidth(Naxel::PrefixXformKey::all()[i]);
  for (Naxel::RangeSetType type : Naxel::allRangeSetTypes())
    out.range[static_cast<size_t>(type)] = capability.rangeXformWidth(type);
  for (Naxel::ComboLabelSetType type : Naxel::allComboLabelSetTypes())
    out.combo[static_cast<size_t>(type)] = capability.comboXformWidth(type);
  out.missYields = missYields;
  return out;
}

std::string text(Verdict const& v) {
  switch (v.kind) {
    case Verdict::Kind::none: break;
    case Verdict::Kind::rule:
      return "rule " + std::to_string(v.rule.value()) + " entry " + std::to_string(v.entry) +
             (v.action.dropEnabled() ? " drop" : " permit");
    case Verdict::Kind::policy: return "policy " + Mox::stringValue(v.policy);
    case Verdict::Kind::disturbed: return "disturbed";
  }
  return "none";
}

}  // namespace Verify
