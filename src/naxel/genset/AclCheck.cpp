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
    if (!onlyOf(*filter, Lumox::ipv6())) return Lumox::ipv4();
    if (!onlyOf(*filter, Lumox::ipv4())) return Lumox::ipv6();
  }
  return std::nullopt;
}

std::string ruleOf(AclConfig const& acl, RuleConfig const& rule) {
  return "ACL '" + acl.name() + "', rule '" + rule.name() + "': ";
}

template <class Coll>
std::optional<std::string> checkRanges(std::string const& field, Coll const& ranges) {
  using R = typename Coll::value_type;
  for (R const& r : ranges) {
    if (r.rangeStart() <= r.rangeEnd() && r.rangeEnd() <= R::bound) continue;
    std::string const text =
        field + " range " + std::to_string(r.rangeStart()) + "-" + std::to_string(r.rangeEnd());
    if (r.rangeStart() > r.rangeEnd()) return text + " starts above its end";
    return text + " exceeds the field's maximum " + std::to_string(R::bound);
  }
  return std::nullopt;
}

std::optional<std::string> checkFilter(AclConfig const& acl, RuleConfig const& rule) {
  RuleFilter const& filter = *rule.ruleFilter();
  IpPrefixList const* source = filter.source().get();
  MOX_ASSERT_DETAIL(!source || source->families().any(), "source->addrs() || source->exceptAddrs()",
                    ruleOf(acl, rule) + "the source list has no member");
  IpPrefixList const* destination = filter.destination().get();
  MOX_ASSERT_DETAIL(!destination || destination->families().any(),
                    "destination->addrs() || destination->exceptAddrs()",
                    ruleOf(acl, rule) + "the destination list has no member");
  if (filter.rangesValid()) return std::nullopt;
  std::optional<std::string> reason;
  filter.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    if (!reason) reason = checkRanges(fieldName(type), ranges);
  });
  return reason;
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
  std::string const reason = "ACL '" + acl.name() + "': ";
  if (!acl.af())
    return reason + "IPv4 and IPv6 prefixes in one ACL: IPv4 in " + holderOf(acl, Lumox::ipv4()) +
           ", IPv6 in " + holderOf(acl, Lumox::ipv6());
  return reason + holderOf(acl, otherThan(*acl.af())) +
         " holds a prefix of another family than the ACL's " + Mox::stringValue(*acl.af());
}

std::optional<std::string> checkAcl(AclWalk const& walk) {
  AclConfig const& acl = walk.acl();
  std::optional<Lumox::AddressFamily> const named = namedFamily(acl);
  Lumox::AddressFamily const af = acl.af() ? *acl.af() : named.value_or(Lumox::ipv4());
  bool pure = true;
  for (RuleConfig const* rule : walk.named()) {
    RuleFilter const* filter = rule->ruleFilter().get();
    if (!filter) continue;
    if (auto reason = checkFilter(acl, *rule)) return ruleOf(acl, *rule) + *reason;
    pure = pure && onlyOf(*filter, af);
  }
  for (AclWalk::Indexed const& i : walk.indexed())
    if (i.place == AclWalk::none)
      return "ACL '" + acl.name() + "', index " + std::to_string(i.index.value()) +
             " refers to a rule that the ACL does not hold";
  if (!pure) return familyReason(acl);
  if (!acl.af() && !named)
    if (auto line = trace(1)) line << "ACL '" << acl.name() << "' names no address, assuming ipv4";
  return std::nullopt;
}

}  // namespace

Lumox::AddressFamily aclFamily(AclConfig const& acl) {
  return acl.af() ? *acl.af() : namedFamily(acl).value_or(Lumox::ipv4());
}

std::optional<std::string> checkAcls(std::vector<AclWalk> const& acls) {
  for (AclWalk const& walk : acls)
    if (auto reason = checkAcl(walk)) return reason;
  return std::nullopt;
}

}  // namespace Naxel
