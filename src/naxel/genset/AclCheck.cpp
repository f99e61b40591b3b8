#include "naxel/genset/AclCheck.h"

#include "mox/Assert.h"
#include "naxel/types/NaxelTrace.h"

namespace Naxel {

namespace {

/// Calls `f(prefix)` for every prefix and except prefix of the ACL; stops when it returns false.
template <class F>
bool forEachPrefix(AclConfig const& acl, F f) {
  auto const walk = [&](Mox::Ptr<IpPrefixList> const& list) {
    if (!list) return true;
    for (auto const& p : list->addr())
      if (!f(p)) return false;
    for (auto const& p : list->exceptAddr())
      if (!f(p)) return false;
    return true;
  };
  for (auto const& [name, rule] : acl.ruleByName()) {
    RuleFilter const* filter = rule->ruleFilter().get();
    if (filter && !(walk(filter->source()) && walk(filter->destination()))) return false;
  }
  return true;
}

std::string ruleOf(AclConfig const& acl, RuleConfig const& rule) {
  return "ACL '" + acl.name() + "', rule '" + rule.name() + "': ";
}

template <class Coll>
std::optional<std::string> checkRanges(char const* field, Coll const& ranges) {
  using R = typename Coll::value_type;
  for (R const& r : ranges) {
    std::string const text = std::string(field) + " range " + std::to_string(r.rangeStart()) + "-" +
                             std::to_string(r.rangeEnd());
    if (r.rangeStart() > r.rangeEnd()) return text + " starts above its end";
    if (r.rangeEnd() > R::bound)
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
    if (!reason) reason = checkRanges(fieldNames[field], ranges);
    ++field;
  });
  return reason;
}

std::optional<std::string> checkFamily(AclConfig const& acl) {
  std::optional<Lumox::AddressFamily> af = acl.af();
  bool const pure = forEachPrefix(acl, [&](Lumox::IpGenPrefix const& p) {
    if (!af) af = p.af();
    return *af == p.af();
  });
  if (pure) return std::nullopt;
  return "ACL '" + acl.name() + "': " +
         (acl.af() ? "prefix of another family than the ACL's " + Mox::stringValue(*acl.af())
                   : std::string("IPv4 and IPv6 prefixes in one ACL"));
}

}  // namespace

Lumox::AddressFamily aclFamily(AclConfig const& acl) {
  std::optional<Lumox::AddressFamily> af = acl.af();
  if (!af)
    forEachPrefix(acl, [&](Lumox::IpGenPrefix const& p) {
      af = p.af();
      return false;
    });
  return af.value_or(Lumox::ipv4());
}

std::optional<std::string> checkAcls(AclConfigColl const& coll) {
  for (auto const& [aclName, acl] : coll.acl()) {
    for (auto const& [name, rule] : acl->ruleByName()) {
      if (!rule->ruleFilter()) continue;
      if (auto reason = checkFilter(*rule->ruleFilter())) return ruleOf(*acl, *rule) + *reason;
    }
    for (auto const& [index, rule] : acl->ruleById())
      if (!rule || acl->ruleByName(rule->name()) != rule)
        return "ACL '" + acl->name() + "', index " + std::to_string(index.value()) +
               " refers to a rule that the ACL does not hold";
    if (auto reason = checkFamily(*acl)) return reason;
    if (!acl->af() && forEachPrefix(*acl, [](Lumox::IpGenPrefix const&) { return false; }))
      if (auto line = trace(1)) line << "ACL '" << aclName << "' names no address, assuming ipv4";
  }
  return std::nullopt;
}

}  // namespace Naxel
