#include "naxel/loader/HwCapability.h"

#include <algorithm>
#include <type_traits>
#include <vector>

namespace Naxel {

Mox::AttributeTable const& ChipHwCapability::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&ChipHwCapability::chipId_>("chipId"),
      Mox::attribute<&ChipHwCapability::prefixXformWidth_>("prefixXformWidth"),
      Mox::attribute<&ChipHwCapability::rangeXformWidth_>("rangeXformWidth"),
      Mox::attribute<&ChipHwCapability::comboXformWidth_>("comboXformWidth"),
      Mox::attribute<&ChipHwCapability::tcpFlagsXformSupported_>("tcpFlagsXformSupported"),
      Mox::attribute<&ChipHwCapability::tcpFlagsXformWidth_>("tcpFlagsXformWidth")};
  return table;
}

void ChipHwCapability::handleInitialized() {
  for (PrefixXformKey const& key : PrefixXformKey::all()) prefixXformWidthIs(key, 16);
}

void ChipHwCapability::valuesIs(ChipHwCapability const& from) {
  if (hasValuesOf(from)) return;
  auto const takeOver = [](auto const& now, auto const& wanted, auto set, auto del) {
    // Gathered first, because deleting ends the iterators of the walk.
    std::vector<std::remove_cvref_t<decltype(now.begin()->first)>> gone;
    for (auto const& [key, width] : now)
      if (!wanted.contains(key)) gone.push_back(key);
    for (auto const& key : gone) del(key);
    for (auto const& [key, width] : wanted) set(key, width);
  };
  takeOver(
      prefixXformWidth_, from.prefixXformWidth_,
      [&](auto const& key, uint8_t width) { prefixXformWidthIs(key, width); },
      [&](auto const& key) { prefixXformWidthDel(key); });
  takeOver(
      rangeXformWidth_, from.rangeXformWidth_,
      [&](auto const& key, uint8_t width) { rangeXformWidthIs(key, width); },
      [&](auto const& key) { rangeXformWidthDel(key); });
  takeOver(
      comboXformWidth_, from.comboXformWidth_,
      [&](auto const& key, uint8_t width) { comboXformWidthIs(key, width); },
      [&](auto const& key) { comboXformWidthDel(key); });
  tcpFlagsXformSupportedIs(from.tcpFlagsXformSupported_);
  tcpFlagsXformWidthIs(from.tcpFlagsXformWidth_);
}

bool ChipHwCapability::hasValuesOf(ChipHwCapability const& other) const {
  return std::ranges::equal(prefixXformWidth_, other.prefixXformWidth_) &&
         std::ranges::equal(rangeXformWidth_, other.rangeXformWidth_) &&
         std::ranges::equal(comboXformWidth_, other.comboXformWidth_) &&
         tcpFlagsXformSupported_ == other.tcpFlagsXformSupported_ &&
         tcpFlagsXformWidth_ == other.tcpFlagsXformWidth_;
}

bool ChipHwCapability::comboEnabled(ComboLabelSetType type) const {
  if (comboXformWidth(type) == 0) return false;
  if (type == ComboLabelSetType::srcDstL4Port)
    // A side without labels has nothing to combine. If one label were expected all the same, every pair
    // would be an empty set, and the rules that constrain both sides would vanish.
    return rangeXformWidth(RangeSetType::srcPort) && rangeXformWidth(RangeSetType::dstPort);
  auto const af = type == ComboLabelSetType::ipv4SrcDstPrefix ? Lumox::ipv4() : Lumox::ipv6();
  return prefixXformWidth(PrefixXformKey(af, true)) && prefixXformWidth(PrefixXformKey(af, false));
}

Mox::AttributeTable const& HwCapabilityColl::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&HwCapabilityColl::chipHwCapability_>("chipHwCapability")};
  return table;
}

}  // namespace Naxel
