#include "naxel/loader/HwCapability.h"

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

bool ChipHwCapability::comboEnabled(ComboLabelSetType type) const {
  if (comboXformWidth(type) == 0) return false;
  if (type == ComboLabelSetType::srcDstL4Port)
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
