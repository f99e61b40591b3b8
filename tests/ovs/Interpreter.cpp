#include "ovs/Interpreter.h"

#include <array>
#include <regex>

namespace Test {

namespace {

using Bytes = std::string;

Bytes bytesOf(uint64_t hi, uint64_t lo, size_t count) {
  Bytes out;
  for (size_t i = 0; i < count; ++i)
    out += static_cast<char>(i < 8 ? hi >> (56 - 8 * i) : lo >> (120 - 8 * i));
  return out;
}
Bytes number(uint64_t v, size_t count) { return bytesOf(v << (64 - 8 * count), 0, count); }

struct Machine {
  Verify::Packet const& packet;
  uint32_t inPort;
  std::array<uint32_t, 16> reg{};

  /// The field of a term's class and number; none where the packet has no such field.
  std::optional<Bytes> field(unsigned oxmClass, unsigned n) const {
    bool const v4 = packet.af == Lumox::ipv4();
    bool const later = packet.isLaterFragment();
    if (oxmClass == 1 && n < 16) return number(reg[n], 4);
    if (oxmClass == 1 && n == 26) return number(later ? 3 : 0, 1);
    if (oxmClass == 0xffff && packet.proto == 6)
      return number(later ? 0 : packet.syn * 2u + packet.rst * 4u + packet.ack * 16u, 2);
    if (oxmClass != 0x8000) return std::nullopt;
    auto const port = [&](unsigned proto, uint16_t v) -> std::optional<Bytes> {
      if (packet.proto != proto) return std::nullopt;
      return number(later ? 0 : v, 2);
    };
    switch (n) {
      case 0: return number(inPort, 4);
      case 5: return number(v4 ? 0x800 : 0x86dd, 2);
      case 8: return number(packet.dscp, 1);
      case 10: return number(packet.proto, 1);
      case 11: return v4 ? std::optional(bytesOf(packet.src.hi, 0, 4)) : std::nullopt;
      case 12: return v4 ? std::optional(bytesOf(packet.dst.hi, 0, 4)) : std::nullopt;
      case 26: return v4 ? std::nullopt : std::optional(bytesOf(packet.src.hi, packet.src.lo, 16));
      case 27: return v4 ? std::nullopt : std::optional(bytesOf(packet.dst.hi, packet.dst.lo, 16));
      case 13: return port(6, packet.sport);
      case 14: return port(6, packet.dport);
      case 15: return port(17, packet.sport);
      case 16: return port(17, packet.dport);
      case 17: return port(132, packet.sport);
      case 18: return port(132, packet.dport);
      case 19:
      case 29:
        if (!packet.isIcmp() || v4 != (n == 19)) return std::nullopt;
        return number(later ? 0 : packet.icmpType, 1);
      default: return std::nullopt;
    }
  }

  bool matches(Bytes const& match) const {
    for (size_t at = 0; at < match.size();) {
      auto const byte = [&](size_t i) { return static_cast<uint8_t>(match.at(at + i)); };
      unsigned const oxmClass = byte(0) * 256u + byte(1);
      bool const masked = byte(2) & 1;
      size_t const head = oxmClass == 0xffff ? 8 : 4;
      size_t const length = byte(3) - (head - 4);
      auto const value = field(oxmClass, byte(2) >> 1);
      size_t const width = masked ? length / 2 : length;
      if (!value || value->size() != width) return false;
      for (size_t i = 0; i < width; ++i)
        if (((*value)[i] ^ match[at + head + i]) & (masked ? match[at + head + width + i] : 0xff))
          return false;
      at += head + length;
    }
    return true;
  }
};

}  // namespace

std::string interpret(NaxelOvs::FlowSet const& flows, NaxelOvs::Layout const& layout,
                      Verify::Packet const& packet, uint32_t inPort) {
  static std::regex const load(
      "load:(0x[0-9a-f]+|0)->NXM_NX_REG([0-9]+)\\[(?:([0-9]+)..([0-9]+))?\\].*");
  static std::regex const go(".*goto_table:([0-9]+)");
  Machine machine{packet, inPort, {}};
  for (unsigned table = layout.firstTable;;) {
    NaxelOvs::Flow const* hit = nullptr;
    for (NaxelOvs::Flow const& flow : flows)
      if (flow.table == table && (!hit || flow.priority > hit->priority) &&
          machine.matches(flow.match))
        hit = &flow;
    if (!hit) return "lost";
    std::string const actions = NaxelOvs::instructionsText(hit->instructions);
    std::smatch m;
    if (std::regex_match(actions, m, load)) {
      auto const value = static_cast<uint32_t>(std::stoul(m[1], nullptr, 16));
      unsigned const low = m[3].matched ? static_cast<unsigned>(std::stoul(m[3])) : 0;
      unsigned const high = m[4].matched ? static_cast<unsigned>(std::stoul(m[4])) : 31;
      uint32_t const mask = static_cast<uint32_t>((uint64_t{2} << (high - low)) - 1) << low;
      uint32_t& reg = machine.reg.at(std::stoul(m[2]));
      reg = (reg & ~mask) | (value << low & mask);
    }
    if (!std::regex_match(actions, m, go)) return actions;
    table = static_cast<unsigned>(std::stoul(m[1]));
    if (!layout.owns(static_cast<uint8_t>(table))) return actions;
  }
}

}  // namespace Test
