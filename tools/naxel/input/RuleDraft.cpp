#include "input/RuleDraft.h"

#include "input/Intervals.h"

#include <algorithm>

namespace NaxelTool {

using Naxel::RangeSetType;

void RuleDraft::fill(Naxel::RuleConfig& rule) const {
  Naxel::RuleFilter& filter = *rule.ruleFilterIs();
  if (source) filter.sourceIs(source);
  if (destination) filter.destinationIs(destination);
  for (Naxel::RangeField const& field : Naxel::rangeFields) {
    Ranges const& all = of(field.type);
    if (isEverything(valuesOf(all), field.bits)) continue;
    for (Naxel::Range const& r : all) filter.rangeIs(field.type, r.rangeStart(), r.rangeEnd());
  }
  filter.matchTcpInitIs(tcpInit);
  filter.matchTcpEstablishedIs(tcpEstablished);
  rule.actionIs(action);
  rule.continueRuleIs(continueRule);
}

RuleDraft::Ranges common(RuleDraft::Ranges const& a, RuleDraft::Ranges const& b) {
  RuleDraft::Ranges out;
  for (Naxel::Range const& x : a)
    for (Naxel::Range const& y : b) {
      auto const first = std::max(x.rangeStart(), y.rangeStart());
      auto const last = std::min(x.rangeEnd(), y.rangeEnd());
      if (first <= last) out.emplace_back(first, last);
    }
  return out;
}

bool keepToFirstFragments(RuleDraft& draft) {
  if (draft.tcpInit || draft.tcpEstablished) return true;
  bool looks = false;
  for (RangeSetType const type :
       {RangeSetType::srcPort, RangeSetType::dstPort, RangeSetType::icmp}) {
    RuleDraft::Ranges const& all = draft.of(type);
    looks = looks || !all.empty();
    if (!all.empty() && std::none_of(all.begin(), all.end(),
                                     [](Naxel::Range const& r) { return r.rangeStart() == 0; }))
      return true;
  }
  if (!looks) return true;
  RuleDraft::Ranges& fragment = draft.of(RangeSetType::fragment);
  RuleDraft::Ranges const first = {{0, 0}};
  fragment = fragment.empty() ? first : common(fragment, first);
  return !fragment.empty();
}

}  // namespace NaxelTool
