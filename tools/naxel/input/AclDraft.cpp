#include "input/AclDraft.h"

#include <algorithm>

namespace NaxelTool {

using Lumox::AddressFamily;
using Naxel::RangeSetType;

namespace {

/// TCP, UDP and SCTP.
constexpr uint32_t protocolsWithPorts[] = {6, 17, 132};

/// What the field tells of the protocol where nothing else does. Returns whether it was so.
bool completeProtocol(RuleDraft& rule, AddressFamily af) {
  if (!rule.of(RangeSetType::proto).empty()) return false;
  if (!rule.of(RangeSetType::icmp).empty()) {
    rule.valueIs(RangeSetType::proto, af == Lumox::ipv4() ? 1 : 58);
    return true;
  }
  bool const ports =
      !rule.of(RangeSetType::srcPort).empty() || !rule.of(RangeSetType::dstPort).empty();
  // The flags are of TCP anyway.
  if (!ports || rule.tcpInit || rule.tcpEstablished) return false;
  for (uint32_t const p : protocolsWithPorts) rule.of(RangeSetType::proto).emplace_back(p, p);
  return true;
}

std::string freeName(Naxel::AclConfig const& acl, std::string const& wanted) {
  std::string name = wanted;
  for (int n = 2; acl.ruleByNameHas(name); ++n) name = wanted + "-" + std::to_string(n);
  return name;
}

class AclMaker {
 public:
  AclMaker(RuleReading& reading, AclDraft const& draft) : reading_(reading), draft_(draft) {}

  void make() {
    Families const families = familiesOfAll();
    try {
      if (families.ipv4) makeOf(Lumox::ipv4(), draft_.name);
      if (families.ipv6) makeOf(Lumox::ipv6(), draft_.name + (families.ipv4 ? "-v6" : ""));
      reading_.counts().compiled += draft_.entries.size();
    } catch (InputError const& e) {
      reading_.error(e, "acl");
      reading_.counts().reported += draft_.entries.size();
    }
    if (completed_.empty()) return;
    reading_.note(
        {completed_.front()}, "protocol",
        "ports without a protocol are read as those of TCP, UDP and SCTP, ICMP types as those "
        "of the family's ICMP" +
            (completed_.size() == 1 ? std::string()
                                    : "; ACL '" + draft_.name + "' has " +
                                          std::to_string(completed_.size()) + " such entries"));
  }

 private:
  /// The families that get an ACL.
  Families familiesOfAll() {
    if (draft_.families) return *draft_.families;
    if (!draft_.entries.empty())
      reading_.note({draft_.at}, "family",
                    "nothing tells the address family of ACL '" + draft_.name + "': read as IPv4");
    return untoldFamilies;
  }

  void makeOf(AddressFamily af, std::string const& name) {
    auto const acl = reading_.aclIs(name, af, draft_.at);
    reading_.rules().descriptionIs(name, draft_.description);
    for (EntryDraft const& e : draft_.entries) {
      if (af == Lumox::ipv4() ? !e.families.ipv4 : !e.families.ipv6) continue;
      RuleDraft rule = e.rule;
      if (completeProtocol(rule, af)) completed_.push_back(e.origin.at);
      rule.fill(reading_.ruleIs(*acl, e.index, e.name, e.origin));
    }
    if (!draft_.endsInDeny || !reading_.options().implicitEnd) return;
    auto& end =
        reading_.ruleIs(*acl, std::nullopt, freeName(*acl, "implicit-deny"),
                        {0, draft_.at, static_cast<uint32_t>(draft_.entries.size()), true, {}});
    Naxel::NaxelActionValue drop;
    drop.dropEnabledIs(true);
    end.actionIs(drop);
    // Whoever looks at rules may rely on a filter.
    end.ruleFilterIs();
  }

  RuleReading& reading_;
  AclDraft const& draft_;
  std::vector<Position> completed_;
};

}  // namespace

bool readEntry(RuleReading& reading, std::function<void()> const& read) {
  ++reading.counts().read;
  try {
    read();
    return true;
  } catch (NeverMatches const& e) {
    reading.note({e.at()}, "never-matches", e.text(), e.help());
  } catch (UnsupportedError const& e) {
    reading.unsupported({e.at()}, e.text(), e.help());
    ++reading.counts().leftOut;
  } catch (InputError const& e) {
    reading.wrongEntry({e.at()}, "entry", e.text(), e.help());
    ++reading.counts().leftOut;
  }
  ++reading.counts().reported;
  return false;
}

void makeAcl(RuleReading& reading, AclDraft const& acl) { AclMaker(reading, acl).make(); }

}  // namespace NaxelTool
