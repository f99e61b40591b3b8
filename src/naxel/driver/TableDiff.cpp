#include "naxel/driver/TableDiff.h"

#include <algorithm>

namespace Naxel {

namespace {

/// Walks two ascending collections together: only(a), only(b), both(a, b).
template <class Coll, class KeyOf, class Before, class After, class Both>
void walkTogether(Coll const& before, Coll const& after, KeyOf keyOf, Before onlyBefore,
                  After onlyAfter, Both both) {
  auto a = before.begin();
  auto b = after.begin();
  while (a != before.end() || b != after.end()) {
    // Most keys are in both.
    if (a != before.end() && b != after.end() && keyOf(*a) == keyOf(*b))
      both(*a++, *b++);
    else if (b == after.end() || (a != before.end() && keyOf(*a) < keyOf(*b)))
      onlyBefore(*a++);
    else
      onlyAfter(*b++);
  }
}

template <class Row, class Table>
RowChanges<Row> rowChanges(Table const& before, Table const& after, bool all) {
  RowChanges<Row> out;
  // Outputs share tables that did not change.
  if (before == after && !all) return out;
  walkTogether(
      before->entry(), after->entry(), [](Row const& r) -> auto const& { return r.key(); },
      [&](Row const& r) { out.del.push_back(&r); }, [&](Row const& r) { out.add.push_back(&r); },
      [&](Row const& a, Row const& b) {
        if (all || a.value() != b.value()) out.change.emplace_back(&a, &b);
      });
  return out;
}

RuleChange ruleChange(PDAclRule const& before, PDAclRule const& after) {
  RuleChange out{&before, &after, {}, {}, !(before.action() == after.action())};
  walkTogether(
      before.filter(), after.filter(), [](PDAclFilter const& f) -> auto const& { return f; },
      [&](PDAclFilter const& f) { out.del.push_back(&f); },
      [&](PDAclFilter const& f) { out.add.push_back(&f); },
      [](PDAclFilter const&, PDAclFilter const&) {});
  return out;
}

/// Null stands for an ACL that is not there.
AclChanges aclChanges(PDAclKey const& key, PDAclRuleColl const* before, PDAclRuleColl const* after,
                      bool all) {
  static PDAclRuleColl::RuleColl const none;
  AclChanges out;
  out.key = key;
  out.isNew = !before;
  out.isGone = !after;
  walkTogether(
      before ? before->rule() : none, after ? after->rule() : none,
      [](auto const& item) { return item.first; },
      [&](auto const& item) { out.del.push_back(item.second.get()); },
      [&](auto const& item) { out.add.push_back(item.second.get()); },
      [&](auto const& a, auto const& b) {
        // Rules are replaced and never edited, so the same object says the same.
        if (a.second == b.second && !all) return;
        RuleChange change = ruleChange(*a.second, *b.second);
        if (all || change.newAction || !change.add.empty() || !change.del.empty())
          out.change.push_back(std::move(change));
      });
  return out;
}

/// Whether the columns of the entries are as wide as before. A width that is absent says the same as 0.
bool haveSameWidths(ChipHwCapability const& a, ChipHwCapability const& b) {
  return std::ranges::all_of(PrefixXformKey::all(),
                             [&](PrefixXformKey const& key) {
                               return a.prefixXformWidth(key) == b.prefixXformWidth(key);
                             }) &&
         std::ranges::all_of(allRangeSetTypes(),
                             [&](RangeSetType type) {
                               return a.rangeXformWidth(type) == b.rangeXformWidth(type);
                             }) &&
         std::ranges::all_of(allComboLabelSetTypes(), [&](ComboLabelSetType type) {
           return a.comboXformWidth(type) == b.comboXformWidth(type);
         });
}

}  // namespace

TableDiff::TableDiff(PDData const& before, PDData const& after)
    : otherWidths(!haveSameWidths(*before.hwCapability(), *after.hwCapability())) {
  for (PrefixXformKey const& key : PrefixXformKey::all())
    prefix.set(key, rowChanges<PDPrefixXformEntry>(before.pdPrefixXformEntryColl(key),
                                                   after.pdPrefixXformEntryColl(key), otherWidths));
  for (RangeSetType type : allRangeSetTypes())
    range[static_cast<size_t>(type)] =
        rowChanges<PDRangeXformEntry>(before.rangeColl(type), after.rangeColl(type), otherWidths);
  for (ComboLabelSetType type : allComboLabelSetTypes())
    combo[static_cast<size_t>(type)] =
        rowChanges<PDComboEntry>(before.comboColl(type), after.comboColl(type), otherWidths);
  walkTogether(
      before.pdAclColl()->pdAcl(), after.pdAclColl()->pdAcl(),
      [](auto const& item) -> auto const& { return item.first; },
      [&](auto const& item) {
        acl.push_back(aclChanges(item.first, item.second.get(), nullptr, otherWidths));
      },
      [&](auto const& item) {
        acl.push_back(aclChanges(item.first, nullptr, item.second.get(), otherWidths));
      },
      [&](auto const& a, auto const& b) {
        if (a.second == b.second && !otherWidths) return;
        AclChanges changes = aclChanges(a.first, a.second.get(), b.second.get(), otherWidths);
        if (!changes.add.empty() || !changes.del.empty() || !changes.change.empty())
          acl.push_back(std::move(changes));
      });
}

size_t TableDiff::rows() const {
  size_t n = 0;
  for (auto const& [key, changes] : prefix) n += changes.size();
  for (auto const& changes : range) n += changes.size();
  for (auto const& changes : combo) n += changes.size();
  return n + aclRows();
}

size_t TableDiff::aclRows() const {
  size_t n = 0;
  for (AclChanges const& a : acl) {
    for (auto const* rules : {&a.add, &a.del})
      for (PDAclRule const* rule : *rules) n += rule->filters();
    for (RuleChange const& c : a.change)
      n += c.del.size() + (c.newAction || otherWidths ? c.after->filters() : c.add.size());
  }
  return n;
}

}  // namespace Naxel
