#include "command/Verify.h"

#include "output/Verdicts.h"
#include "verify/PacketSource.h"
#include "verify/RuleOracle.h"

#include <stdexcept>

#if NAXEL_EXACT_PROOF
#include "verify/ExactProof.h"
#endif

namespace NaxelTool {

namespace {

struct Check {
  explicit Check(Mox::Ptr<Naxel::AclConfig> const& acl)
      : config(acl), oracle(*acl), key(oracle.af(), acl->name()) {}

  Mox::Ptr<Naxel::AclConfig> config;
  Verify::RuleOracle oracle;
  Naxel::PDAclKey key;
  uint64_t packets = 0;  // of the ACL's family
  uint64_t matched = 0;
};

}  // namespace

bool verify(Session& session, uint64_t packets, uint64_t seed, std::ostream& out) {
  std::vector<Check> checks;
  for (auto const& [name, acl] : session.acls()->acl()) checks.emplace_back(acl);
  Verify::PacketSource source(*session.acls(), seed);
  uint64_t drawn = 0;
  for (; drawn < packets && !checks.empty(); ++drawn) {
    Verify::Packet const packet = source.next();
    for (Check& check : checks) {
      auto const expected = check.oracle.firstMatch(packet);
      Verify::Verdict const found = session.softChip().lookup(check.key, packet);
      if (!agree(*check.config, expected, found)) {
        out << "difference in ACL " << check.config->name() << " after " << drawn
            << " packets, seed " << seed << "\n  packet: " << packet
            << "\n  rules:  " << text(*check.config, expected)
            << "\n  tables: " << text(*check.config, found)
            << "\n  labels: " << Verify::text(session.softChip().labelsOf(packet)) << '\n';
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

#if NAXEL_EXACT_PROOF

bool verifyExactly(Session& session, std::ostream& out) {
  Verify::Proof const proof =
      Verify::prove(*session.acls(), session.data(), Verify::KeyLayout::of(session.data()));
  if (proof.difference.empty()) {
    auto const count = [](size_t n, char const* one, char const* many) {
      return std::to_string(n) + " " + (n == 1 ? one : many) + ", ";
    };
    out << "proved for every packet: " << count(proof.acls, "ACL", "ACLs")
        << count(proof.rules, "rule", "rules") << count(proof.entries, "entry", "entries")
        << "0 differences\n";
    return true;
  }
  out << "difference: " << proof.difference << '\n';
  if (proof.packet) {
    auto const acl = session.acls()->acl(proof.acl.aclName());
    out << "  rules:  " << text(*acl, Verify::RuleOracle(*acl).firstMatch(*proof.packet))
        << "\n  tables: " << text(*acl, session.softChip().lookup(proof.acl, *proof.packet))
        << "\n  labels: " << Verify::text(session.softChip().labelsOf(*proof.packet)) << '\n';
  }
  return false;
}

#else

bool verifyExactly(Session&, std::ostream&) {
  throw std::invalid_argument("this build cannot prove: it was made without the BDD library");
}

#endif

}  // namespace NaxelTool
