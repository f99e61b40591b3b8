#include "Verify.h"

#include "Verdicts.h"
#include "softchip/PacketSource.h"
#include "softchip/RuleOracle.h"

#include <algorithm>

namespace NaxelTool {

namespace {

struct Check {
  explicit Check(Mox::Ptr<Naxel::AclConfig> const& acl)
      : config(acl), oracle(*acl), key(oracle.af(), acl->name()) {}

  Mox::Ptr<Naxel::AclConfig> config;
  SoftChip::RuleOracle oracle;
  Naxel::PDAclKey key;
  uint64_t packets = 0;  // of the ACL's family
  uint64_t matched = 0;
};

}  // namespace

bool verify(Session& session, uint64_t packets, uint64_t seed, std::ostream& out) {
  std::vector<Check> checks;
  for (auto const& [name, acl] : session.acls()->acl()) checks.emplace_back(acl);
  SoftChip::PacketSource source(*session.acls(), seed);
  uint64_t drawn = 0;
  for (; drawn < packets && !checks.empty(); ++drawn) {
    SoftChip::Packet const packet = source.next();
    for (Check& check : checks) {
      auto const expected = check.oracle.firstMatch(packet);
      SoftChip::Verdict const found = session.softChip().lookup(check.key, packet);
      if (!agree(*check.config, expected, found)) {
        out << "difference in ACL " << check.config->name() << " after " << drawn
            << " packets, seed " << seed << "\n  packet: " << packet
            << "\n  rules:  " << text(*check.config, expected)
            << "\n  tables: " << text(*check.config, found)
            << "\n  labels: " << SoftChip::text(session.softChip().labelsOf(packet)) << '\n';
        return false;
      }
      if (packet.af == check.key.af()) ++check.packets;
      if (expected) ++check.matched;
    }
  }
  for (std::string const& breach : session.softChip().breaches()) {
    out << "the chip reports: " << breach << '\n';
    return false;
  }
  for (Check const& check : checks)
    out << check.config->name() << ": " << check.packets << " packets, " << check.matched
        << " matched a rule, 0 differences\n";
  out << "total: " << drawn << " packets, 0 differences\n";
  return true;
}

}  // namespace NaxelTool
