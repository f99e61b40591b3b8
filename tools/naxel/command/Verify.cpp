#include "command/Verify.h"

#include "output/Verdicts.h"
#include "verify/PacketSource.h"
#include "verify/RuleOracle.h"

#include <algorithm>
#include <stdexcept>
#include <unordered_set>

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
  std::unordered_set<uint32_t> reached;  // indexes of rules
};

/// Which ACLs a packet is looked up in: all if they are few; else the one whose rule it was drawn from, and
/// some others in turn, so that many ACLs take no more time than their rules do.
class Choice {
 public:
  explicit Choice(std::vector<Check>& checks) : checks_(checks) {
    for (uint32_t i = 0; i < checks.size(); ++i)
      aclOfRule_.insert(aclOfRule_.end(), checks[i].oracle.rules(), i);
  }

  std::vector<Check*> const& of(std::optional<size_t> rule) {
    bool const all = checks_.size() <= most;
    chosen_.clear();
    if (!all && rule) chosen_.push_back(&checks_[aclOfRule_[*rule]]);
    while (chosen_.size() < std::min(most, checks_.size())) {
      if (next_ == checks_.size()) next_ = 0;
      chosen_.push_back(&checks_[next_++]);
    }
    return chosen_;
  }

 private:
  static constexpr size_t most = 16;

  std::vector<Check>& checks_;
  std::vector<uint32_t> aclOfRule_;  // in the order of the packet source
  std::vector<Check*> chosen_;
  size_t next_ = 0;
};

std::string reachedText(size_t reached, size_t rules) {
  return std::to_string(reached) + " of " + std::to_string(rules) +
         (rules == 1 ? " rule" : " rules") + " reached";
}

}  // namespace

bool verify(Session& session, uint64_t packets, uint64_t seed, std::ostream& out) {
  std::vector<Check> checks;
  for (auto const& [name, acl] : session.acls()->acl()) checks.emplace_back(acl);
  Verify::PacketSource source(*session.acls(), seed);
  Choice choice(checks);
  uint64_t drawn = 0;
  for (; drawn < packets && !checks.empty(); ++drawn) {
    Verify::Packet const packet = source.next();
    for (Check* const check : choice.of(source.drawnFrom())) {
      auto const expected = check->oracle.firstMatch(packet);
      Verify::Verdict const found = session.softChip().lookup(check->key, packet);
      if (!agree(*check->config, expected, found)) {
        out << "difference in ACL " << check->config->name() << " after " << drawn
            << " packets, seed " << seed << "\n  packet: " << packet
            << "\n  rules:  " << text(*check->config, expected)
            << "\n  tables: " << text(*check->config, found)
            << "\n  labels: " << Verify::text(session.softChip().labelsOf(packet)) << '\n';
        return false;
      }
      if (packet.af == check->key.af()) ++check->packets;
      if (!expected) continue;
      ++check->matched;
      check->reached.insert(expected->value());
    }
  }
  for (std::string const& breach : session.softChip().breaches()) {
    out << "the chip reports: " << breach << '\n';
    return false;
  }
  size_t reached = 0;
  size_t rules = 0;
  for (Check const& check : checks) {
    out << check.config->name() << ": " << check.packets << " packets, " << check.matched
        << " matched a rule, 0 differences, "
        << reachedText(check.reached.size(), check.oracle.rules()) << '\n';
    reached += check.reached.size();
    rules += check.oracle.rules();
  }
  out << "total: " << drawn << " packets, 0 differences, " << reachedText(reached, rules) << '\n';
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
