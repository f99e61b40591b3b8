#include "naxel/testing/OutputCopy.h"

namespace Naxel::Testing {

namespace {

size_t behind(PDTable table, PDTable first) {
  return static_cast<size_t>(table) - static_cast<size_t>(first);
}

template <class Coll, class Change>
Mox::Ptr<Coll> changed(Coll const& table, Change const& change) {
  auto out = Mox::makePtr<Coll>();
  size_t nth = 0;
  for (auto entry : table.entry())
    if (change(entry, nth++)) out->entryIs(entry);
  return out;
}

}  // namespace

PrefixXformKey const& prefixKeyOf(PDTable table) {
  return PrefixXformKey::all()[behind(table, PDTable::v4Source)];
}
RangeSetType rangeTypeOf(PDTable table) {
  return static_cast<RangeSetType>(behind(table, PDTable::srcPort));
}
ComboLabelSetType comboTypeOf(PDTable table) {
  return static_cast<ComboLabelSetType>(behind(table, PDTable::v4PrefixCombo));
}

Mox::Ptr<PDData> copyOf(PDData const& data) {
  auto out = Mox::makePtr<PDData>(data.hwCapability());
  for (PDTable table : allPDTables()) tableFrom(*out, table, data);
  return out;
}

void tableFrom(PDData& to, PDTable table, PDData const& from) {
  if (isPrefixTable(table)) {
    auto const& key = prefixKeyOf(table);
    to.pdPrefixXformEntryCollIs(key, from.pdPrefixXformEntryColl(key));
  } else if (isComboTable(table)) {
    to.comboCollIs(comboTypeOf(table), from.comboColl(comboTypeOf(table)));
  } else if (isRangeTable(table)) {
    to.rangeCollIs(rangeTypeOf(table), from.rangeColl(rangeTypeOf(table)));
  } else if (table == PDTable::aclEntries) {
    to.pdAclCollIs().pdAclDelAll();
    for (auto const& [key, acl] : from.pdAclColl()->pdAcl()) to.pdAclCollIs().pdAclIs(key, acl);
  }
}

void prefixesOf(PDData& data, PDTable table,
                std::function<bool(PDPrefixXformEntry&, size_t nth)> const& change) {
  auto const& key = prefixKeyOf(table);
  data.pdPrefixXformEntryCollIs(key, changed(*data.pdPrefixXformEntryColl(key), change));
}

void rangesOf(PDData& data, PDTable table,
              std::function<bool(PDRangeXformEntry&, size_t nth)> const& change) {
  data.rangeCollIs(rangeTypeOf(table), changed(*data.rangeColl(rangeTypeOf(table)), change));
}

void combosOf(PDData& data, PDTable table,
              std::function<bool(PDComboEntry&, size_t nth)> const& change) {
  data.comboCollIs(comboTypeOf(table), changed(*data.comboColl(comboTypeOf(table)), change));
}

void entriesOf(PDData& data,
               std::function<bool(PDAclKey const&, PDAclFilter&, size_t nth)> const& change) {
  auto const before = data.pdAclColl()->pdAcl();
  size_t nth = 0;
  for (auto const& [key, acl] : before) {
    auto const out = Mox::makePtr<PDAclRuleColl>(key);
    for (auto const& [index, rule] : acl->rule()) {
      auto const changedRule = out->ruleIs(index);
      changedRule->actionIs(rule->action());
      for (PDAclFilter filter : rule->filter())
        if (change(key, filter, nth++)) changedRule->filterIs(filter);
    }
    data.pdAclCollIs().pdAclIs(key, out);
  }
}

}  // namespace Naxel::Testing
