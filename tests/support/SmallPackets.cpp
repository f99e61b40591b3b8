#include "support/SmallPackets.h"

#include "support/World.h"
#include "verify/RuleOracle.h"

namespace Test {

std::string smallRule(Dice& dice) {
  std::string out;
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
  if (dice.oneIn(4)) out += dice.oneIn(2) ? " init" : " est";
  return out + dice.of<std::string>({"", "", " drop", " drop", " log"});
}

SmallAcl::SmallAcl(std::vector<std::string> const& rules)
    : acls(Naxel::aclConfigCollFactory(Obel::ChipId(0))) {
  acl = acls->aclIs("a");
  std::string text;
  for (size_t i = 0; i < rules.size(); ++i)
    text += "a " + std::to_string(i) + " r" + std::to_string(i) + rules[i] + "\n";
  addRules(*acls, text);
  acl->afIs(Lumox::ipv4());
}

std::optional<Naxel::AceIndex> SmallAcl::decider(Verify::Packet const& p) const {
  return Verify::firstMatch(*acl, p);
}

int SmallAcl::outcome(Verify::Packet const& p) const {
  auto const rule = decider(p);
  if (!rule) return -1;
  Naxel::NaxelActionValue const& action = acl->ruleById(*rule)->action();
  return 2 * action.dropEnabled() + action.logEnabled();
}

std::vector<Verify::Packet> const& smallPackets() {
  static std::vector<Verify::Packet> const all = [] {
    std::vector<Verify::Packet> out;
    for (uint64_t const src : {0u, 1u, 2u})
      for (uint64_t const dst : {0u, 1u, 2u})
        for (uint16_t const dport : {0, 5, 6, 10, 21})
          for (uint16_t const proto : {0, 6, 7, 17, 132})
            for (unsigned flags = 0; flags < (proto == 6 ? 8u : 1u); ++flags) {
              Verify::Packet& p = out.emplace_back();
              p.src = {src << 62, 0};
              p.dst = {dst << 62, 0};
              p.dport = dport;
              p.proto = proto;
              p.syn = flags & 1;
              p.ack = flags & 2;
              p.rst = flags & 4;
            }
    return out;
  }();
  return all;
}

}  // namespace Test
