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
  static constexpr char const* names[] = {
      "source port", "destination port", "ICMP type", "protocol", "length", "fragment", "DSCP"};
  MOX_ASSERT(type < RangeSetType::rangeSetMax);
  return names[static_cast<size_t>(type)];
}

std::string fieldName(ComboLabelSetType type) {
  if (type == ComboLabelSetType::srcDstL4Port) return "source and destination port";
  auto const af = type == ComboLabelSetType::ipv4SrcDstPrefix ? Lumox::ipv4() : Lumox::ipv6();
  return std::string(familyName(af)) + " source and destination address";
}

}  // namespace Naxel
