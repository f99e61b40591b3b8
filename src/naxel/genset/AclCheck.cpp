#include "naxel/genset/AclCheck.h"

#include "mox/Assert.h"
#include "naxel/genset/FieldNames.h"
#include "naxel/types/NaxelTrace.h"

namespace Naxel {

namespace {

/// Whether all prefixes of the filter are of a family.
bool onlyOf(RuleFilter const& filter, Lumox::AddressFamily af) {
  return (!filter.source() || filter.source()->families().only(af)) &&
         (!filter.destination() || filter.destination()->families().only(af));
}

/// A family that the ACL names; the only one if it names one.
std::optional<Lumox::AddressFamily> namedFamily(AclConfig const& acl) {
  for (auto const& [name, rule] : acl.ruleByName()) {
    RuleFilter const* filter = rule->ruleFilter().get();
    if (!filter) continue;
    // A list of both families gives IPv4 here, and is found by the check of all rules against that.
    if (!onlyOf(*filter, Lumox::ipv6())) return Lumox::ipv4();
    if (!onlyOf(*filter, Lumox::ipv4())) return Lumox::ipv6();
  }
  return std::nullopt;
}

std::string ruleOf(AclConfig const& acl, RuleConfig const& rule) {
  return "ACL '" + acl.name() + "', rule '" + rule.name() + "': ";
}

std::string rangeReason(std::string const& field, uint32_t start, uint32_t end, uint32_t bound) {
  std::string const text = field + " range " + std::to_string(start) + "-" + std::to_string(end);
  if (start > end) return text + " starts above its end";
  return text + " exceeds the field's maximum " + std::to_string(bound);
}

/// Hands errors on until nobody wants any more.
class Report {
 public:
  explicit Report(std::function<bool(ConfigError)> const& tell) : tell_(tell) {}
  bool isWanted() const { return wanted_; }
  void add(ConfigError error) { wanted_ = wanted_ && tell_(std::move(error)); }
  void add(AclConfig const& acl, RuleConfig const& rule, std::string const& text,
           ConfigError::Kind kind = ConfigError::Kind::unusable) {
    add({kind, acl.name(), rule.name(), ruleOf(acl, rule) + text});
  }
  void add(AclConfig const& acl, std::string const& text) {
    add({ConfigError::Kind::unusable, acl.name(), {}, "ACL '" + acl.name() + "'" + text});
  }

 private:
  std::function<bool(ConfigError)> const& tell_;
  bool wanted_ = true;
};

void checkFilter(AclConfig const& acl, RuleConfig const& rule, Report& report) {
  RuleFilter const& filter = *rule.ruleFilter();
  if (filter.source() && !filter.source()->families().any())
    report.add(acl, rule, "the source list has no member", ConfigError::Kind::emptySource);
  if (filter.destination() && !filter.destination()->families().any())
    report.add(acl, rule, "the destination list has no member",
               ConfigError::Kind::emptyDestination);
  filter.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    uint32_t const bound = rangeField(type).bound();
    for (auto const& r : ranges)
      if (report.isWanted() && (r.rangeStart() > r.rangeEnd() || r.rangeEnd() > bound))
        report.add(acl, rule, rangeReason(fieldName(type), r.rangeStart(), r.rangeEnd(), bound));
  });
}

Lumox::AddressFamily otherThan(Lumox::AddressFamily af) {
  return af == Lumox::ipv4() ? Lumox::ipv6() : Lumox::ipv4();
}

/// The first list of the ACL that holds a prefix of the family; there must be one.
std::string holderOf(AclConfig const& acl, Lumox::AddressFamily af) {
  Lumox::AddressFamily const other = otherThan(af);
  auto const holds = [&](auto const& list) { return list && !list->families().only(other); };
  for (auto const& [name, rule] : acl.ruleByName()) {
    RuleFilter const* filter = rule->ruleFilter().get();
    if (filter && holds(filter->source())) return "the source of rule '" + name + "'";
    if (filter && holds(filter->destination())) return "the destination of rule '" + name + "'";
  }
  MOX_ASSERT(false && "no prefix of the family");
  return {};
}

std::string familyReason(AclConfig const& acl) {
  if (!acl.af())
    return ": IPv4 and IPv6 prefixes in one ACL: IPv4 in " + holderOf(acl, Lumox::ipv4()) +
           ", IPv6 in " + holderOf(acl, Lumox::ipv6());
  return ": " + holderOf(acl, otherThan(*acl.af())) +
         " holds a prefix of another family than the ACL's " + Mox::stringValue(*acl.af());
}

}  // namespace

Lumox::AddressFamily aclFamily(AclConfig const& acl) {
  return acl.af() ? *acl.af() : namedFamily(acl).value_or(Lumox::ipv4());
}

void traceFamily(AclConfig const& acl) {
  if (!naxelTrace().on(1) || acl.af() || namedFamily(acl)) return;
  if (auto line = trace(1)) line << "ACL '" << acl.name() << "' names no address, assuming ipv4";
}

bool isSound(RuleConfig const& rule, Lumox::AddressFamily af) {
  RuleFilter const* const filter = rule.ruleFilter().get();
  if (!filter) return true;
  auto const isSoundList = [&](IpPrefixList const* list) {
    return !list || (list->families().any() && list->families().only(af));
  };
  return isSoundList(filter->source().get()) && isSoundList(filter->destination().get()) &&
         filter->rangesValid();
}

void findErrors(AclWalk const& walk, std::function<bool(ConfigError)> const& tell) {
  AclConfig const& acl = walk.acl();
  Report report(tell);
  std::optional<Lumox::AddressFamily> const named = namedFamily(acl);
  Lumox::AddressFamily const af = acl.af() ? *acl.af() : named.value_or(Lumox::ipv4());
  bool pure = true;
  for (RuleConfig const* rule : walk.named()) {
    RuleFilter const* filter = rule->ruleFilter().get();
    if (!filter) continue;
    checkFilter(acl, *rule, report);
    if (!report.isWanted()) return;
    // One error for the ACL, and not one for each rule: which family is the wrong one only the operator
    // knows.
    pure = pure && onlyOf(*filter, af);
  }
  for (AclWalk::Indexed const& i : walk.indexed())
    if (i.place == AclWalk::none && report.isWanted())
      report.add(acl, ", index " + std::to_string(i.index.value()) +
                          " refers to a rule that the ACL does not hold");
  if (!pure && report.isWanted()) report.add(acl, familyReason(acl));
}

std::optional<std::string> checkAcls(std::vector<AclWalk> const& acls) {
  std::optional<std::string> reason;
  for (AclWalk const& walk : acls) {
    findErrors(walk, [&](ConfigError const& error) {
      MOX_ASSERT_DETAIL(error.kind != ConfigError::Kind::emptySource,
                        "source->addrs() || source->exceptAddrs()", error.text);
      MOX_ASSERT_DETAIL(error.kind != ConfigError::Kind::emptyDestination,
                        "destination->addrs() || destination->exceptAddrs()", error.text);
      reason = error.text;
      return false;
    });
    if (reason) return reason;
  }
  return std::nullopt;
}

}  // namespace Naxel
