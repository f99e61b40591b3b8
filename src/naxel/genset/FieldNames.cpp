#include "naxel/genset/FieldNames.h"

#include "mox/Assert.h"

namespace Naxel {

namespace {

char const* familyName(Lumox::AddressFamily af) { return af == Lumox::ipv4() ? "IPv4" : "IPv6"; }

}  // namespace

std::string fieldName(PrefixXformKey const& key) {
  return std::string(familyName(key.af())) + (key.src() ? " source" : " destination") + " address";
}

std::string fieldName(RangeSetType type) {
  MOX_ASSERT(type < RangeSetType::rangeSetMax);
  return rangeField(type).title;
}

std::string fieldName(TcamFieldType field) {
  switch (field) {
    case TcamFieldType::tcamFieldTypeSrcIp: return "source address";
    case TcamFieldType::tcamFieldTypeDstIp: return "destination address";
    case TcamFieldType::tcamFieldTypeSrcDstIp: return "the pair of addresses";
    case TcamFieldType::tcamFieldTypeSrcDstPort: return "the pair of ports";
    default: return fieldName(rangeTypeOf(field));
  }
}

std::string fieldName(ComboLabelSetType type) {
  if (type == ComboLabelSetType::srcDstL4Port) return "source and destination port";
  auto const af = type == ComboLabelSetType::ipv4SrcDstPrefix ? Lumox::ipv4() : Lumox::ipv6();
  std::string name(familyName(af));
  return name += " source and destination address";
}

}  // namespace Naxel
