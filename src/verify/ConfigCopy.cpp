#include "verify/ConfigCopy.h"

namespace Verify {

using namespace Naxel;

namespace {

Mox::Ptr<IpPrefixList> copied(Mox::Ptr<IpPrefixList> const& list) {
  if (!list) return nullptr;
  auto copy = Mox::makePtr<IpPrefixList>();
  for (auto const& p : list->addr()) copy->addrIs(p);
  for (auto const& p : list->exceptAddr()) copy->exceptAddrIs(p);
  return copy;
}

/// What a filter says besides its lists.
std::string said(RuleFilter const& filter) {
  std::string out;
  for (Mox::Attribute const& a : filter.attributeTable()) out += a.text(filter) + ";";
  return out;
}

bool sayTheSame(Mox::Ptr<RuleFilter> const& a, Mox::Ptr<RuleFilter> const& b) {
  if (!a || !b) return a == b;
  auto const lists = [](Mox::Ptr<IpPrefixList> const& x, Mox::Ptr<IpPrefixList> const& y) {
    return x && y ? x->isEqual(*y) : x == y;
  };
  return lists(a->source(), b->source()) && lists(a->destination(), b->destination()) &&
         said(*a) == said(*b);
}

void copyRule(RuleConfig const& from, RuleConfig& to) {
  if (!sayTheSame(from.ruleFilter(), to.ruleFilter())) to.ruleFilterDel();
  if (from.ruleFilter() && !to.ruleFilter()) copyFilter(*from.ruleFilter(), *to.ruleFilterIs());
  to.actionIs(from.action());
}

}  // namespace

void copyFilter(RuleFilter const& from, RuleFilter& to) {
  to.sourceIs(copied(from.source()));
  to.destinationIs(copied(from.destination()));
  from.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    for (auto const& r : ranges) to.rangeIs(type, r.rangeStart(), r.rangeEnd());
  });
  to.matchTcpInitIs(from.matchTcpInit());
  to.matchTcpEstablishedIs(from.matchTcpEstablished());
}

void copyAcl(AclConfig const& from, AclConfig& to) {
  from.af() ? to.afIs(*from.af()) : to.afDel();
  for (auto const& [name, rule] : to.ruleByName())
    if (!from.ruleByName(name)) to.ruleByNameDel(name);
  for (auto const& [name, rule] : from.ruleByName()) copyRule(*rule, *to.ruleByNameIs(name));
  for (auto const& [index, rule] : to.ruleById())
    if (!from.ruleByIdHas(index)) to.ruleByIdDel(index);
  for (auto const& [index, rule] : from.ruleById()) {
    if (!rule || from.ruleByName(rule->name()) == rule) {
      to.ruleByIdIs(index, rule ? to.ruleByName(rule->name()) : nullptr);
      continue;
    }
    auto const stray = Mox::makePtr<RuleConfig>(rule->name());
    copyRule(*rule, *stray);
    to.ruleByIdIs(index, stray);
  }
}

void copyAcls(AclConfigColl const& from, AclConfigColl& to) {
  for (auto const& [name, acl] : to.acl())
    if (!from.acl(name)) to.aclDel(name);
  for (auto const& [name, acl] : from.acl()) copyAcl(*acl, *to.aclIs(name));
}

}  // namespace Verify
