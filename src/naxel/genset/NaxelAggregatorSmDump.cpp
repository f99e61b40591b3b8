/// Trace dumps of the aggregator, at level 9.

#include "naxel/genset/NaxelAggregatorSm.h"
#include "naxel/types/NaxelTrace.h"

namespace Naxel {

namespace {

template <class T>
void dumpLine(char const* text, T const& v) {
  if (auto line = trace(9)) line << text << v;
}

}  // namespace

void AggregatorSm::dumpAllPrefixListsInRules() const {
  if (!naxelTrace().on(9)) return;
  for (bool src : {true, false})
    for (auto const& [aclName, acl] : aggConfig().aclConfigColl()->acl()) {
      if (auto line = trace(9))
        line << "*** Dump (" << aclName << ", " << (src ? "src" : "dst") << ") Prefixes ***";
      for (auto const& [ruleName, rule] : acl->ruleByName()) {
        RuleFilter const* filter = rule->ruleFilter().get();
        auto const list = !filter ? nullptr : src ? filter->source() : filter->destination();
        if (!list) continue;
        dumpLine("...Rule Name ", ruleName);
        for (auto const& p : list->addr()) dumpLine("......", p);
        for (auto const& p : list->exceptAddr()) dumpLine("......except ", p);
      }
    }
}

void AggregatorSm::dumpAllPrefixSets() const {
  if (!naxelTrace().on(9)) return;
  for (PrefixXformKey const& key : PrefixXformKey::all()) {
    if (auto line = trace(9))
      line << "*** Dump (" << key.af() << ", " << (key.src() ? "src" : "dst") << ") PrefixSets ***";
    for (auto const& [setKey, set] : aggStatus_->prefixInfo(key)->prefixSetColl())
      dumpLine("...", set->stringValue());
  }
}

void AggregatorSm::dumpAllFieldSetsInRules() const {
  if (!naxelTrace().on(9)) return;
  for (auto const& [aclName, acl] : aggConfig().aclConfigColl()->acl()) {
    dumpLine("Acl Name ", aclName);
    for (auto const& [ruleName, rule] : acl->ruleByName()) {
      dumpLine("...Rule Name ", ruleName);
      if (!rule->ruleFilter()) continue;
      rule->ruleFilter()->forEachRangeColl([](RangeSetType type, auto const& ranges) {
        if (ranges.empty()) return;
        dumpLine(rangeField(type).dumpTitle, "");
        for (auto const& r : ranges) dumpLine("......", r);
      });
    }
  }
}

void AggregatorSm::dumpAllRangeSets() const {
  if (!naxelTrace().on(9)) return;
  for (RangeSetType type : allRangeSetTypes()) {
    auto const info = aggStatus_->rangeSplitInfo(type);
    if (auto line = trace(9))
      line << "*** Dump " << info->rangeSetColl().size() << " RangeSets ***";
    for (auto const& [key, set] : info->rangeSetColl()) dumpLine("...", set->stringValue());
  }
}

}  // namespace Naxel
