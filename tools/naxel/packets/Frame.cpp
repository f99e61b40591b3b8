#include "packets/Frame.h"

#include <array>

namespace NaxelTool {

namespace {

constexpr uint16_t etherIp4 = 0x0800;
constexpr uint16_t etherIp6 = 0x86dd;
constexpr uint16_t shortestEtherType = 0x0600;  // below, the field is a length

constexpr uint8_t hopByHop = 0;
constexpr uint8_t routing = 43;
constexpr uint8_t fragmentHeader = 44;
constexpr uint8_t authentication = 51;
constexpr uint8_t destinationOptions = 60;

bool isVlanTag(uint16_t etherType) {
  return etherType == 0x8100 || etherType == 0x88a8 || etherType == 0x9100 || etherType == 0x9200;
}

bool isExtension(uint8_t protocol) {
  return protocol == hopByHop || protocol == routing || protocol == fragmentHeader ||
         protocol == authentication || protocol == destinationOptions;
}

/// Works through one frame. Each step says what became of the frame as a whole.
class FrameWalk {
 public:
  explicit FrameWalk(std::span<uint8_t const> captured)
      : captured_(captured), end_(captured.size()) {}

  DecodedFrame decode(LinkLayer link) {
    out_.outcome = layer(link);
    return out_;
  }

 private:
  /// Why the bytes from `at` on cannot be read, if so: they lie behind the packet, or behind the capture.
  std::optional<FrameOutcome> lacking(size_t at, size_t bytes) const {
    if (at > end_ || end_ - at < bytes) return beyond_;
    if (at > captured_.size() || captured_.size() - at < bytes) return FrameOutcome::cutShort;
    return std::nullopt;
  }
  uint8_t u8(size_t at) const { return captured_[at]; }
  uint16_t u16(size_t at) const { return static_cast<uint16_t>(u8(at) << 8 | u8(at + 1)); }
  uint32_t u32(size_t at) const { return uint32_t{u16(at)} << 16 | u16(at + 2); }
  uint64_t u64(size_t at) const { return uint64_t{u32(at)} << 32 | u32(at + 4); }

  FrameOutcome layer(LinkLayer link) {
    switch (link) {
      case LinkLayer::ethernet: return byEtherType(12, 14);
      case LinkLayer::linuxCooked: return byEtherType(14, 16);
      case LinkLayer::linuxCooked2: return byEtherType(0, 20);
      case LinkLayer::hostFamily:
      case LinkLayer::familyNumber: return byFamily(link);
      case LinkLayer::rawIp: break;
      case LinkLayer::rawIp4: return ip4(0);
      case LinkLayer::rawIp6: return ip6(0);
    }
    if (auto const lack = lacking(0, 1)) return *lack;
    return u8(0) >> 4 == 6 ? ip6(0) : ip4(0);
  }

  /// The type stands at `at`, in a header of that many bytes.
  FrameOutcome byEtherType(size_t at, size_t header) {
    if (auto const lack = lacking(0, header)) return *lack;
    uint16_t etherType = u16(at);
    size_t next = header;
    for (; isVlanTag(etherType); next += 4) {
      if (auto const lack = lacking(next, 4)) return *lack;
      etherType = u16(next + 2);
    }
    out_.etherType = etherType;
    if (etherType == etherIp4) return ip4(next);
    return etherType == etherIp6 ? ip6(next) : FrameOutcome::notIp;
  }

  FrameOutcome byFamily(LinkLayer link) {
    if (auto const lack = lacking(0, 4)) return *lack;
    uint32_t family = u32(0);
    // Families are small numbers, so the byte order of the host shows.
    if (link == LinkLayer::hostFamily && family >= 1u << 16)
      family = family >> 24 | (family >> 8 & 0xff00) | (family << 8 & 0xff0000) | family << 24;
    if (family == 2) return ip4(4);
    // The family of IPv6 on Linux, NetBSD, FreeBSD and macOS.
    bool const six = family == 10 || family == 24 || family == 28 || family == 30;
    return six ? ip6(4) : FrameOutcome::notIpFamily;
  }

  /// From here on the packet ends where its header says, whatever padding the frame has.
  void endIs(size_t end) {
    end_ = end;
    beyond_ = FrameOutcome::endsEarly;
  }

  FrameOutcome ip4(size_t at) {
    if (auto const lack = lacking(at, 20)) return *lack;
    size_t const header = (u8(at) & size_t{15}) * 4;
    uint16_t const total = u16(at + 2);
    if (u8(at) >> 4 != 4 || header < 20 || total < header) return FrameOutcome::brokenHeader;
    endIs(at + total);
    Verify::Packet& p = out_.packet;
    p.af = Lumox::ipv4();
    p.dscp = u8(at + 1) >> 2;
    p.length = total;
    p.fragment = u16(at + 6) & 0x1fff;
    p.src = Verify::ipv4Address(u32(at + 12));
    p.dst = Verify::ipv4Address(u32(at + 16));
    return transport(u8(at + 9), at + header);
  }

  FrameOutcome ip6(size_t at) {
    if (auto const lack = lacking(at, 40)) return *lack;
    if (u8(at) >> 4 != 6) return FrameOutcome::brokenHeader;
    size_t const total = size_t{40} + u16(at + 4);
    // A payload of length 0 in front of options is a jumbogram, whose length stands in these.
    if (total > 0xffff || (total == 40 && u8(at + 6) == hopByHop)) return FrameOutcome::tooLong;
    endIs(at + total);
    Verify::Packet& p = out_.packet;
    p.af = Lumox::ipv6();
    p.dscp = static_cast<uint16_t>(u16(at) >> 6 & 0x3f);
    p.length = static_cast<uint16_t>(total);
    p.src = {u64(at + 8), u64(at + 16)};
    p.dst = {u64(at + 24), u64(at + 32)};
    return extensions(u8(at + 6), at + 40);
  }

  FrameOutcome extensions(uint8_t protocol, size_t at) {
    bool fragmented = false;
    for (bool first = true; isExtension(protocol); first = false) {
      if (auto const lack = lacking(at, 8)) return *lack;
      bool const fragment = protocol == fragmentHeader;
      uint8_t const next = u8(at);
      if ((protocol == hopByHop && !first) || (fragment && fragmented))
        return FrameOutcome::brokenHeader;
      if (fragment) {
        fragmented = true;
        out_.packet.fragment = u16(at + 2) >> 3;
        if (out_.packet.fragment && isExtension(next)) return FrameOutcome::hiddenProtocol;
      }
      // The length counts units of 8 bytes behind the first, that of authentication units of 4 behind two.
      size_t const units = u8(at + 1);
      at += fragment ? 8 : (protocol == authentication ? (units + 2) * 4 : (units + 1) * 8);
      protocol = next;
    }
    return at > end_ ? beyond_ : transport(protocol, at);
  }

  FrameOutcome transport(uint8_t protocol, size_t at) {
    Verify::Packet& p = out_.packet;
    p.proto = protocol;
    if (p.fragment) return FrameOutcome::packet;
    bool const tcp = protocol == Verify::Packet::protoTcp;
    bool const ports = tcp || protocol == 17 || protocol == 132;
    bool const icmp = protocol == (p.af == Lumox::ipv4() ? 1 : 58);
    // What is not needed need not be captured.
    if (!ports && !icmp) return FrameOutcome::packet;
    // The TCP flags are the fourteenth byte.
    if (auto const lack = lacking(at, tcp ? 14 : (ports ? 4 : 1))) return *lack;
    if (ports) {
      p.sport = u16(at);
      p.dport = u16(at + 2);
    }
    if (tcp) {
      p.syn = u8(at + 13) & 0x02;
      p.rst = u8(at + 13) & 0x04;
      p.ack = u8(at + 13) & 0x10;
    }
    if (icmp) p.icmpType = u8(at);
    return FrameOutcome::packet;
  }

  std::span<uint8_t const> captured_;
  size_t end_;                                    // of what is being read
  FrameOutcome beyond_ = FrameOutcome::cutShort;  // what it means that something lies behind it
  DecodedFrame out_;
};

std::string etherText(uint16_t etherType) {
  struct Known {
    uint16_t etherType;
    char const* name;
  };
  static constexpr std::array<Known, 9> all = {{{0x0806, "ARP"},
                                                {0x8035, "RARP"},
                                                {0x8847, "MPLS"},
                                                {0x8848, "MPLS"},
                                                {0x8863, "PPPoE"},
                                                {0x8864, "PPPoE"},
                                                {0x888e, "EAPOL"},
                                                {0x8809, "slow protocols"},
                                                {0x88cc, "LLDP"}}};
  for (Known const& known : all)
    if (known.etherType == etherType) return known.name;
  if (etherType < shortestEtherType) return "IEEE 802.2";
  static constexpr char hex[] = "0123456789abcdef";
  std::string text = "EtherType 0x";
  for (int shift = 12; shift >= 0; shift -= 4) text += hex[etherType >> shift & 15];
  return text;
}

}  // namespace

DecodedFrame decodeFrame(LinkLayer link, std::span<uint8_t const> captured) {
  return FrameWalk(captured).decode(link);
}

std::string reasonText(DecodedFrame const& frame) {
  switch (frame.outcome) {
    case FrameOutcome::packet: return "";
    case FrameOutcome::notIp: return "not IP (" + etherText(frame.etherType) + ")";
    case FrameOutcome::notIpFamily: return "not IP (another address family)";
    case FrameOutcome::cutShort: return "captured too short for the headers that rules look at";
    case FrameOutcome::endsEarly: return "ends before the headers that rules look at";
    case FrameOutcome::brokenHeader: return "broken IP header";
    case FrameOutcome::hiddenProtocol: return "later fragment that does not say its protocol";
    case FrameOutcome::tooLong: return "longer than 65535 bytes";
  }
  return "";
}

}  // namespace NaxelTool
