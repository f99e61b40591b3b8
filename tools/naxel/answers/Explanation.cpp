#include "answers/Explanation.h"

#include "output/Verdicts.h"
#include "packets/PacketText.h"
#include "verify/RuleOracle.h"

#include <algorithm>

namespace NaxelTool {

namespace {

std::vector<ComparedField> comparedBy(Naxel::PDAclFilter const& entry) {
  std::vector<ComparedField> out;
  for (Verify::Field const field : Naxel::allLabelFields())
    if (auto const& match = entry.labelField(field); match.mask().value())
      out.push_back(
          {std::string(Naxel::labelFieldName(field)), match.label().value(), match.mask().value()});
  if (entry.matchTcpInit()) out.push_back({"matchTcpInit", std::nullopt});
  if (entry.matchTcpEstablished()) out.push_back({"matchTcpEstablished", std::nullopt});
  return out;
}

WhyNot whyNotOf(Naxel::AclConfig const& acl, NamedLists const& lists, Verify::Packet const& packet,
                std::optional<Naxel::AceIndex> decides, Naxel::AceIndex rule) {
  WhyNot out{rule, decides == rule, {}, {}};
  if (out.decides) return out;
  out.unmet = checksOf(RuleDemands(*acl.ruleById(rule), packet.af, lists), packet, false);
  if (out.unmet.empty()) out.earlier = decides;
  return out;
}

}  // namespace

size_t PacketExplanation::differences() const {
  return static_cast<size_t>(
      std::count_if(acls.begin(), acls.end(), [](auto const& a) { return !a.agrees; }));
}

PacketExplanation explainPacket(Session& session, RuleSet const& rules,
                                Verify::Packet const& packet, std::string const& only,
                                std::vector<RuleTarget> const& targets) {
  PacketExplanation out{packet, session.softChip().labelsOf(packet), {}, {}, {}};
  out.lookups = lookupsOf(session.data(), packet, out.labels);
  for (auto const& [name, acl] : session.acls()->acl()) {
    if (!only.empty() && only != name) continue;
    bool const isForeign = Verify::familyOf(*acl) != packet.af;
    AclExplanation to;
    to.acl = acl;
    to.rule = Verify::firstMatch(*acl, packet);
    for (RuleTarget const& target : targets) {
      if (target.acl != name) continue;
      if (isForeign)
        out.foreign.push_back(target);
      else
        to.whyNot.push_back(whyNotOf(*acl, rules.lists(), packet, to.rule, target.rule));
    }
    if (isForeign || (!targets.empty() && to.whyNot.empty())) continue;
    to.found = session.softChip().lookup({packet.af, name}, packet);
    to.agrees = agree(*acl, to.rule, to.found);
    if (to.agrees && to.rule) {
      to.met =
          checksOf(RuleDemands(*acl->ruleById(*to.rule), packet.af, rules.lists()), packet, true);
      auto const table = session.data().pdAclColl()->pdAcl({packet.af, name});
      auto const& entries = table->rule(*to.rule)->filter();
      to.entry = to.found.entry + 1;
      to.entries = entries.size();
      to.compared = comparedBy(entries[to.found.entry]);
    }
    out.acls.push_back(std::move(to));
  }
  return out;
}

std::string packetShown(Verify::Packet const& packet) {
  return packet.isPossible() ? packetLine(packet) : Verify::text(packet);
}

}  // namespace NaxelTool
