#include "Packets.h"

#include "packets/PacketTrace.h"

#include <algorithm>
#include <sstream>

namespace Fuzz {

using namespace NaxelTool;

namespace {

Naxel::AclConfigColl const& acls() {
  static auto const all = [] {
    auto const coll = Naxel::aclConfigCollFactory(Obel::ChipId(0));
    coll->aclIs("a")->afIs(Lumox::ipv4());
    coll->aclIs("six")->afIs(Lumox::ipv6());
    return coll;
  }();
  return *all;
}

}  // namespace

void checkPacket(Verify::Packet const& p, bool isTrace) {
  bool const four = p.af == Lumox::ipv4();
  expect(!four || (p.src.lo == 0 && p.src.hi << 32 == 0 && p.dst.lo == 0 && p.dst.hi << 32 == 0),
         "an IPv4 address has 32 bits");
  for (Naxel::RangeField const& field : Naxel::rangeFields)
    expect(p.value(field.type) <= field.bound(), "a field is beyond its bound");
  bool const first = p.fragment == 0;
  bool const ports = p.proto == Verify::Packet::protoTcp || p.proto == 17 || p.proto == 132;
  expect(isTrace || (ports && first) || (!p.sport && !p.dport), "ports that there cannot be");
  expect((p.proto == (four ? 1 : 58) && first) || !p.icmpType, "a type that there cannot be");
  expect((p.proto == Verify::Packet::protoTcp && first) || (!p.syn && !p.ack && !p.rst),
         "flags that there cannot be");
}

PacketsRead readPackets(void (*read)(PacketReading&), std::string const& content) {
  PacketsRead out;
  size_t last = 0;
  auto const follow = [&](size_t number) {
    expect(number > last, "numbers do not ascend");
    last = number;
  };
  PacketSink sink;
  sink.take = [&](FilePacket const& p) {
    ++out.taken;
    follow(p.number);
    checkPacket(p.packet, read == readPacketTrace);
    expect(p.acl.empty() || acls().aclHas(p.acl), "a packet for an ACL that is not there");
  };
  sink.leaveOut = [&](size_t number, std::string const& reason) {
    ++out.leftOut;
    follow(number);
    expect(!reason.empty(), "a frame is left out without a reason");
  };
  std::ostringstream said;
  Diagnostics diagnostics(said);
  PacketReading reading("f", content, acls(), "", diagnostics, sink);
  read(reading);
  out.errors = diagnostics.count(Severity::error);
  if (Diagnostic const* const e = diagnostics.firstError()) {
    expect(e->place.at.column <= e->line.size() + 1, "the error names no place in its line");
    expect(!e->text.empty() && said.str().starts_with("f:"), "no reason: " + said.str());
  }
  return out;
}

}  // namespace Fuzz
