#include "verify/MatchKey.h"

namespace Verify {

std::string text(Labels const& labels) {
  std::string out;
  for (Field field : Naxel::allLabelFields()) {
    if (!labels[field]) continue;
    if (!out.empty()) out += " ";
    out += std::string(Naxel::labelFieldName(field)) + " " + std::to_string(*labels[field]);
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
