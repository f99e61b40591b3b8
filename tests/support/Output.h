#pragma once

/// Builds outputs by hand.

#include "naxel/loader/PDData.h"
#include "verify/MatchKey.h"
#include "verify/Packet.h"

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace Verify {

/// One field of an entry; mask 0xffff unless given.
struct Match {
  Field field;
  uint16_t label;
  uint16_t mask = 0xffff;
};

class Output {
 public:
  Output& prefix(bool source, std::string_view text, uint16_t label) {
    auto const p = Mox::valueFromText<Lumox::IpGenPrefix>(text);
    data->pdPrefixXformEntryCollIs(Naxel::PrefixXformKey(p.af(), source))
        .entryIs({p, Naxel::EncodedLabel(label)});
    return *this;
  }
  Output& range(Naxel::RangeSetType type, uint16_t first, uint16_t last, uint16_t label) {
    data->rangeCollIs(type).entryIs({Naxel::RangeSetElem(first, last), Naxel::EncodedLabel(label)});
    return *this;
  }
  Output& combo(Naxel::ComboLabelSetType type, uint16_t src, uint16_t dst, uint16_t label) {
    using Naxel::EncodedLabel;
    data->comboCollIs(type).entryIs(
        {Naxel::EncodedComboLabel(EncodedLabel(src), EncodedLabel(dst)), EncodedLabel(label)});
    return *this;
  }
  Output& entry(Naxel::PDAclKey const& acl, uint32_t rule, Naxel::PDAclFilter const& filter) {
    data->pdAclCollIs().pdAclIs(acl)->ruleIs(Naxel::AceIndex(rule))->filterIs(filter);
    return *this;
  }
  Output& entry(Naxel::PDAclKey const& acl, uint32_t rule, std::vector<Match> const& matches) {
    Naxel::PDAclFilter f;
    for (Match const& m : matches) f.labelFieldIs(m.field, {m.label, m.mask});
    return entry(acl, rule, f);
  }

  /// Set before the output is handed on.
  Mox::Ptr<Naxel::ChipHwCapability> widths = Mox::makePtr<Naxel::ChipHwCapability>(Obel::ChipId(0));
  Mox::Ptr<Naxel::PDData> data = Naxel::pDDataFactory(widths);
};

inline Packet packetOf(std::string_view src, std::string_view dst = "") {
  Packet p;
  bool const v4 = src.find(':') == src.npos;
  p.af = v4 ? Lumox::ipv4() : Lumox::ipv6();
  auto const address = [&](std::string_view text) -> Address {
    auto const host =
        Mox::valueFromText<Lumox::IpGenPrefix>(std::string(text) + (v4 ? "/32" : "/128"));
    return {host.hi(), host.lo()};
  };
  p.src = address(src);
  if (!dst.empty()) p.dst = address(dst);
  return p;
}

}  // namespace Verify
