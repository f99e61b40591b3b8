#include "naxel/genset/AclCheck.h"

#include "mox/Assert.h"
#include "naxel/genset/RuleFinder.h"
#include "naxel/types/NaxelTrace.h"

namespace Naxel {

namespace {

/// Calls `f(prefix)` for every prefix and except prefix of a filter; stops when it returns false.
template <class F>
bool forEachPrefix(RuleFilter const& filter, F f) {
  for (IpPrefixList const* list : {filter.source().get(), filter.destination().get()}) {
    if (!list) continue;
    for (auto const& p : list->addr())
      if (!f(p)) return false;
    for (auto const& p : list->exceptAddr())
      if (!f(p)) return false;
  }
  return true;
}

/// The family of the first prefix that the ACL names.
std::optional<Lumox::AddressFamily> namedFamily(AclConfig const& acl) {
  std::optional<Lumox::AddressFamily> af;
  auto const take = [&](Lumox::IpGenPrefix const& p) {
    af = p.af();
    return false;
  };
  for (auto const& [name, rule] : acl.ruleByName())
    if (rule->ruleFilter() && !forEachPrefix(*rule->ruleFilter(), take)) break;
  return af;
}

std::string ruleOf(AclConfig const& acl, RuleConfig const& rule) {
  return "ACL '" + acl.name() + "', rule '" + rule.name() + "': ";
}

template <class Coll>
std::optional<std::string> checkRanges(char const* field, Coll const& ranges) {
  using R = typename Coll::value_type;
  for (R const& r : ranges) {
    if (r.rangeStart() <= r.rangeEnd() && r.rangeEnd() <= R::bound) continue;
    std::string const text = std::string(field) + " range " + std::to_string(r.rangeStart()) + "-" +
                             std::to_string(r.rangeEnd());
    if (r.rangeStart() > r.rangeEnd()) return text + " starts above its end";
    return text + " exceeds the field's maximum " + std::to_string(R::bound);
  }
  return std::nullopt;
}

constexpr char const* fieldNames[] = {"source port", "destination port", "ICMP type", "protocol",
                                      "length",      "fragment",         "DSCP"};

std::optional<std::string> checkFilter(RuleFilter const& filter) {
  IpPrefixList const* source = filter.source().get();
  if (source) MOX_ASSERT(source->addrs() || source->exceptAddrs());
  IpPrefixList const* destination = filter.destination().get();
  if (destination) MOX_ASSERT(destination->addrs() || destination->exceptAddrs());

  std::optional<std::string> reason;
  size_t field = 0;
  filter.forEachRangeColl([&](auto const& ranges) {
    if (!reason && !ranges.empty()) reason = checkRanges(fieldNames[field], ranges);
    ++field;
  });
  return reason;
}

std::string familyReason(AclConfig const& acl) {
  return "ACL '" + acl.name() + "': " +
         (acl.af() ? "prefix of another family than the ACL's " + Mox::stringValue(*acl.af())
                   : std::string("IPv4 and IPv6 prefixes in one ACL"));
}

std::optional<std::string> checkAcl(AclConfig const& acl) {
  std::optional<Lumox::AddressFamily> const named = namedFamily(acl);
  Lumox::AddressFamily const af = acl.af() ? *acl.af() : named.value_or(Lumox::ipv4());
  bool pure = true;
  for (auto const& [name, rule] : acl.ruleByName()) {
    RuleFilter const* filter = rule->ruleFilter().get();
    if (!filter) continue;
    if (auto reason = checkFilter(*filter)) return ruleOf(acl, *rule) + *reason;
    if (pure)
      pure = forEachPrefix(*filter, [&](Lumox::IpGenPrefix const& p) { return p.af() == af; });
  }
  RuleFinder finder(acl);
  for (auto const& [index, rule] : acl.ruleById())
    if (finder.find(rule.get()) == RuleFinder::none)
      return "ACL '" + acl.name() + "', index " + std::to_string(index.value()) +
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

std::optional<std::string> checkAcls(AclConfigColl const& coll) {
  for (auto const& [aclName, acl] : coll.acl())
    if (auto reason = checkAcl(*acl)) return reason;
  return std::nullopt;
}

}  // namespace Naxel
