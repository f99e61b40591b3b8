#include "support/SmallWorld.h"

namespace Test {

using Naxel::AceIndex;
using Naxel::AclConfig;
using Verify::Packet;

std::string smallRules(Dice& dice, bool layer4) {
  std::string out;
  uint64_t const rules = dice.between(2, 7);
  for (uint64_t i = 0; i < rules; ++i) {
    out += "a " + std::to_string(i * 3) + " r" + std::to_string(i);
    auto const prefixes = [&](char const* side) {
      if (dice.oneIn(3)) return;
      out += std::string(" ") + side + " " +
             dice.of<std::string>({"0.0.0.0/1", "128.0.0.0/1", "0.0.0.0/2", "64.0.0.0/2",
                                   "0.0.0.0/1,!64.0.0.0/2", "64.0.0.0/2,!64.0.0.0/2"});
    };
    prefixes("src");
    prefixes("dst");
    if (dice.oneIn(2))
      out += " dport " + dice.of<std::string>({"0-9", "10-65535", "5-20", "5", "21-65535"});
    if (dice.oneIn(2)) out += " proto " + dice.of<std::string>({"6", "17", "0-16", "7-255"});
    if (layer4 && dice.oneIn(6)) out += " icmp 8";
    if (layer4 && dice.oneIn(5)) out += " frag " + dice.of<std::string>({"0", "0-3", "1-8191"});
    if (dice.oneIn(4)) out += dice.oneIn(2) ? " init" : " est";
    if (dice.oneIn(3)) out += " drop";
    out += "\n";
  }
  return out;
}

std::vector<Packet> smallPackets(bool possible) {
  std::vector<Packet> out;
  auto const add = [&](Packet const& p) {
    if (!possible || p.isPossible()) out.push_back(p);
  };
  for (uint64_t const src : {0u, 1u, 2u})
    for (uint64_t const dst : {0u, 1u, 2u})
      for (uint16_t const dport : {0, 5, 6, 10, 21})
        for (uint16_t const proto : {0, 1, 6, 7, 17, 18, 132})
          for (unsigned flags = 0; flags < (proto == 6 ? 8u : 1u); ++flags) {
            Packet p;
            p.src = {src << 62, 0};
            p.dst = {dst << 62, 0};
            p.dport = dport;
            p.proto = proto;
            p.syn = flags & 1;
            p.ack = flags & 2;
            p.rst = flags & 4;
            add(p);
            if (!possible) continue;
            p.icmpType = 8;
            add(p);
            p.icmpType = 0;
            for (uint16_t const fragment : {1, 4}) {
              p.fragment = fragment;
              add(p);
            }
          }
  return out;
}

bool slowMatch(AclConfig const& acl, AceIndex rule, Packet const& packet) {
  auto const& filter = acl.ruleById(rule)->ruleFilter();
  return !filter || Verify::matches(*filter, packet);
}

std::optional<AceIndex> slowDecider(AclConfig const& acl, Packet const& packet,
                                    std::optional<Verify::RuleSpan> const& without) {
  for (auto const& [index, rule] : acl.ruleById())
    if (!(without && without->has(index)) &&
        (!rule->ruleFilter() || Verify::matches(*rule->ruleFilter(), packet)))
      return index;
  return std::nullopt;
}

int outcomeOf(AclConfig const& acl, std::optional<AceIndex> decider) {
  return decider ? acl.ruleById(*decider)->action().dropEnabled() : -1;
}

}  // namespace Test
