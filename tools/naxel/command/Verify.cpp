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

}  // namespace

VerifyReport verify(Session& session, uint64_t packets, uint64_t seed,
                    std::function<void(uint64_t)> const& tell) {
  std::vector<Check> checks;
  for (auto const& [name, acl] : session.acls()->acl()) checks.emplace_back(acl);
  Verify::PacketSource source(*session.acls(), seed);
  Choice choice(checks);
  VerifyReport out;
  out.seed = seed;
  for (; out.packets < packets && !checks.empty(); ++out.packets) {
    Verify::Packet const packet = source.next();
    if (tell) tell(out.packets);
    for (Check* const check : choice.of(source.drawnFrom())) {
      auto const expected = check->oracle.firstMatch(packet);
      Verify::Verdict const found = session.softChip().lookup(check->key, packet);
      if (!agree(*check->config, expected, found)) {
        out.difference = {
            "difference in ACL " + check->config->name() + " after " + std::to_string(out.packets) +
                " packets, seed " + std::to_string(seed),
            Verify::text(packet), text(*check->config, expected), text(*check->config, found),
            Verify::text(session.softChip().labelsOf(packet))};
        return out;
      }
      if (packet.af == check->key.af()) ++check->packets;
      if (!expected) continue;
      ++check->matched;
      check->reached.insert(expected->value());
    }
  }
  auto const& breaches = session.softChip().breaches();
  if (!breaches.empty()) {
    out.difference = {"the chip reports: " + breaches.front(), {}, {}, {}, {}};
    return out;
  }
  for (Check const& check : checks)
    out.acls.push_back({check.config->name(), check.packets, check.matched, check.reached.size(),
                        check.oracle.rules()});
  return out;
}

bool verify(Session& session, uint64_t packets, uint64_t seed, std::ostream& out) {
  VerifyReport const report = verify(session, packets, seed);
  print(report, out);
  return !report.difference;
}

#if NAXEL_EXACT_PROOF

void verifyExactly(Session& session, VerifyReport& to) {
  Verify::Proof const proof =
      Verify::prove(*session.acls(), session.data(), Verify::KeyLayout::of(session.data()));
  if (proof.difference.empty()) {
    to.proof = {proof.acls, proof.rules, proof.entries};
    return;
  }
  to.difference = {"difference: " + proof.difference, {}, {}, {}, {}};
  if (!proof.packet) return;
  auto const acl = session.acls()->acl(proof.acl.aclName());
  to.difference->rules = text(*acl, Verify::RuleOracle(*acl).firstMatch(*proof.packet));
  to.difference->tables = text(*acl, session.softChip().lookup(proof.acl, *proof.packet));
  to.difference->labels = Verify::text(session.softChip().labelsOf(*proof.packet));
}

#else

void verifyExactly(Session&, VerifyReport&) {
  throw std::invalid_argument("this build cannot prove: it was made without the BDD library");
}

#endif

bool verifyExactly(Session& session, std::ostream& out) {
  VerifyReport report;
  verifyExactly(session, report);
  printFindings(report, out);
  return !report.difference;
}

}  // namespace NaxelTool
