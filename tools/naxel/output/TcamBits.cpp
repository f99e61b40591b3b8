#include "output/TcamBits.h"

#include "verify/Packet.h"

#include <algorithm>
#include <bit>

namespace NaxelTool {

using Verify::Field;
namespace Fields = Verify::Fields;

namespace {

/// Bits for the labels of a table; the highest of the width means that there is none.
template <class Coll>
unsigned bitsFor(Coll const& table, unsigned width) {
  unsigned bits = 0;
  uint32_t const none = (1u << width) - 1;
  for (auto const& entry : table.entry())
    if (entry.value().value() != none)
      bits = std::max(bits, static_cast<unsigned>(std::bit_width(entry.value().value() + 1u)));
  return bits;
}

template <class F>
void forEachFilter(Naxel::PDAclRuleColl const& acl, F f) {
  for (auto const& [index, rule] : acl.rule())
    for (Naxel::PDAclFilter const& filter : rule->filter()) f(filter);
}

}  // namespace

KeyBits::KeyBits(Naxel::PDData const& data) {
  Naxel::ChipHwCapability const& capability = *data.hwCapability();
  auto const set = [&](size_t family, Field field, unsigned width, auto const& table) {
    most_[family][static_cast<size_t>(field)] = width;
    bits_[family][static_cast<size_t>(field)] = bitsFor(table, width);
  };
  for (Naxel::PrefixXformKey const& key : Naxel::PrefixXformKey::all())
    set(familyOf(key.af()), key.src() ? Fields::source : Fields::destination,
        capability.prefixXformWidth(key), *data.pdPrefixXformEntryColl(key));
  auto const combo = [&](size_t family, Field field, Naxel::ComboLabelSetType type) {
    set(family, field, capability.comboXformWidth(type), *data.comboColl(type));
  };
  combo(0, Fields::prefixCombo, Naxel::ComboLabelSetType::ipv4SrcDstPrefix);
  combo(1, Fields::prefixCombo, Naxel::ComboLabelSetType::ipv6SrcDstPrefix);
  for (size_t const family : {0, 1}) {
    combo(family, Fields::portCombo, Naxel::ComboLabelSetType::srcDstL4Port);
    for (Naxel::RangeSetType const type : Naxel::allRangeSetTypes()) {
      Field const field = Naxel::rangeField(type).tcamField;
      if (unsigned const width = capability.rangeXformWidth(type))
        set(family, field, width, *data.rangeColl(type));
      else
        bits_[family][static_cast<size_t>(field)] = Naxel::rangeField(type).bits;
    }
  }
  for (auto const& [key, acl] : data.pdAclColl()->pdAcl()) {
    size_t const family = familyOf(key.af());
    forEachFilter(*acl, [&](auto const& filter) { widen(family, filter); });
  }
}

/// A value/mask pair may cover more labels than are in use, but not the one that means none.
void KeyBits::widen(size_t family, Naxel::PDAclFilter const& filter) {
  for (Field field : Naxel::allLabelFields()) {
    Naxel::EncodedLabelWithMask const& pair = filter.labelField(field);
    auto const i = static_cast<size_t>(field);
    unsigned& bits = bits_[family][i];
    auto const coversAllOnes = [&] {
      uint32_t const ones = (1u << bits) - 1;
      return (~uint32_t{pair.label().value()} & pair.mask().value() & ones) == 0;
    };
    if (pair.mask().value())
      while (bits < most_[family][i] && coversAllOnes()) ++bits;
  }
}

unsigned KeyBits::of(Naxel::PDAclRuleColl const& acl) const {
  std::array<bool, Verify::fieldCount> occurs{};
  bool init = false;
  bool established = false;
  forEachFilter(acl, [&](Naxel::PDAclFilter const& filter) {
    for (Field field : Naxel::allLabelFields())
      if (filter.labelField(field).mask().value()) occurs[static_cast<size_t>(field)] = true;
    init |= filter.matchTcpInit();
    established |= filter.matchTcpEstablished();
  });
  unsigned sum = (init ? 1 : 0) + (established ? 1 : 0);
  for (size_t i = 0; i < Verify::fieldCount; ++i)
    if (occurs[i]) sum += bits_[familyOf(acl.typeKey().af())][i];
  return sum;
}

}  // namespace NaxelTool
