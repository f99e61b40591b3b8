#pragma once

/// How wide a TCAM entry has to be for the tables in force. Labels are handed out from 0 upwards, so a
/// key of fewer bits than the chip offers usually holds them all.

#include "naxel/loader/PDData.h"
#include "verify/MatchKey.h"

#include <array>
#include <cstdint>

namespace NaxelTool {

/// Entries as wide as the plain form has them: addresses, ports and protocol.
constexpr unsigned plainKeyBits(Lumox::AddressFamily af) { return af == Lumox::ipv4() ? 104 : 296; }

class KeyBits {
 public:
  explicit KeyBits(Naxel::PDData const& data);

  /// Sum over the fields that some entry of the ACL looks at, each as wide as field() says, and one bit
  /// for either TCP flag that one asks for.
  unsigned of(Naxel::PDAclRuleColl const& acl) const;
  /// Bits of a field in the ACLs of a family. A labelled field needs as many as tell its labels apart
  /// and leave all ones to packets without a label, a field without label width those of its value.
  unsigned field(Lumox::AddressFamily af, Verify::Field field) const {
    return bits_[familyOf(af)][static_cast<size_t>(field)];
  }

 private:
  using PerField = std::array<unsigned, Verify::fieldCount>;

  static size_t familyOf(Lumox::AddressFamily af) { return af == Lumox::ipv4() ? 0 : 1; }
  void widen(size_t family, Naxel::PDAclFilter const& filter);

  std::array<PerField, 2> bits_{};  // IPv4, IPv6
  std::array<PerField, 2> most_{};  // what the chip offers; 0 for a raw field
};

}  // namespace NaxelTool
