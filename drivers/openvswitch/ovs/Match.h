#pragma once

/// What a flow matches, in the bytes that travel in messages: one term per field, in one order, without host
/// bits and without masks that say nothing. Equal matches are therefore equal bytes, whoever wrote them, and
/// what a switch reports is compared with what it should hold byte by byte.

#include "lumox/IpGenPrefix.h"
#include "mox/Export.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace NaxelOvs {

/// The fields that our flows match. Prerequisites stand before what needs them, as a switch wants it.
enum class MatchField : uint8_t {
  inPort,
  ethType,
  ipDscp,
  ipProto,
  ipFrag,
  ipv4Src,
  ipv4Dst,
  ipv6Src,
  ipv6Dst,
  tcpSrc,
  tcpDst,
  udpSrc,
  udpDst,
  sctpSrc,
  sctpDst,
  icmpv4Type,
  icmpv6Type,
  tcpFlags,
  reg0  ///< the first of 16 registers
};
inline constexpr unsigned registerCount = 16;
constexpr MatchField registerField(unsigned number) {
  return static_cast<MatchField>(static_cast<unsigned>(MatchField::reg0) + number);
}

/// Values of fields.
inline constexpr uint16_t etherIpv4 = 0x0800;
inline constexpr uint16_t etherIpv6 = 0x86dd;
constexpr uint16_t etherType(Lumox::AddressFamily af) {
  return af == Lumox::ipv4() ? etherIpv4 : etherIpv6;
}
inline constexpr uint8_t laterFragment = 3;
/// The protocol of later fragments of IPv6, as a switch shows it.
inline constexpr uint8_t protoFragment = 44;
inline constexpr uint16_t tcpSyn = 0x02;
inline constexpr uint16_t tcpRst = 0x04;
inline constexpr uint16_t tcpAck = 0x10;

/// Collects terms, each field once and in the order of MatchField.
class NAXEL_EXPORT MatchBuilder {
 public:
  /// Value and mask of a field of at most 32 bits; bits beyond the field are left out. A mask without bits
  /// matches anything and adds nothing.
  MatchBuilder& add(MatchField field, uint32_t value, uint32_t mask = ~uint32_t{0});
  /// The addresses of a prefix; the field must be of its family.
  MatchBuilder& add(MatchField field, Lumox::IpGenPrefix const& prefix);
  std::string const& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

/// The same from the terms of a message, in any order and with masks of any kind. None where a field is not one
/// of ours, or the bytes are no terms: such a match was written by somebody else.
NAXEL_EXPORT std::optional<std::string> canonicalMatch(std::string_view terms);

/// A match as ovs-ofctl writes it: "tcp,tcp_dst=0x50/0xfff0,reg0=0x10000/0xffff0000"; "" for one of anything.
NAXEL_EXPORT std::string matchText(std::string_view canonical);

/// The exact value of a field in canonical bytes; none where it is absent or masked.
NAXEL_EXPORT std::optional<uint32_t> exactValue(std::string_view canonical, MatchField field);

}  // namespace NaxelOvs
