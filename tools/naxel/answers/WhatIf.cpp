#include "answers/WhatIf.h"

#include "answers/Trials.h"

#include <algorithm>

namespace NaxelTool {

namespace {

using SoftChip::Table;

/// What decides how rules are compiled, apart from the room of the tables.
std::vector<uint64_t> compilationOf(ChipSetup const& chip) {
  std::vector<uint64_t> out;
  for (ChipMember const& m : chipMembers())
    if (!m.path.starts_with("softChip.")) out.push_back(m.get(chip));
  return out;
}

uint64_t widthsOf(ChipSetup const& chip) {
  uint64_t out = 0;
  for (ChipMember const& m : chipMembers())
    if (!m.path.starts_with("softChip.") && !m.isLabelCode()) out += m.get(chip);
  return out;
}

class Comparison {
 public:
  Comparison(RuleSet const& rules, ChipSetup const& base, ChipGrid const& grid)
      : base_(base), trials_(base, rules.acls()) {
    out_.grid = grid;
    out_.leftOut = rules.counts().leftOut;
  }

  WhatIfReport run(std::function<void(Session const&)> const& onUnusable,
                   std::function<void(uint64_t)> const& tell) {
    std::vector<std::tuple<uint64_t, uint64_t, uint64_t>> costs;
    uint64_t const points = out_.grid.points();
    for (uint64_t i = 0; i < points; ++i) {
      if (tell) tell(i);
      WhatIfPoint point;
      point.values = out_.grid.point(i);
      ChipSetup const chip = out_.grid.chip(base_, point.values);
      compile(chip);
      if (trials_.session().failedStage() == Naxel::NaxelActiveStage::stageAggregator &&
          !trials_.sizes()) {
        out_.unusable = true;
        onUnusable(trials_.session());
        break;
      }
      take(chip, point);
      costs.emplace_back(point.bits, point.rows, widthsOf(chip));
      if (point.fits() && (!out_.cheapest || costs.back() < costs[*out_.cheapest]))
        out_.cheapest = out_.points.size();
      out_.points.push_back(std::move(point));
    }
    out_.kicks = trials_.kicks();
    return std::move(out_);
  }

 private:
  void compile(ChipSetup const& chip) {
    std::vector<uint64_t> compilation = compilationOf(chip);
    if (compilation == compiled_) return;
    trials_.kick(chip);
    compiled_ = std::move(compilation);
  }

  void take(ChipSetup const& chip, WhatIfPoint& point) const {
    if (!trials_.sizes()) {
      point.lacks = trials_.session().failureTexts();
      if (point.lacks.empty()) point.lacks.push_back(trials_.session().rootStatus().kickMessage());
      return;
    }
    TableSizes const& sizes = *trials_.sizes();
    point.entries = sizes.entries();
    point.bits = sizes.allBits();
    for (Table const t : Naxel::allPDTables()) {
      point.rows += sizes.rows[t];
      if (sizes.rows[t] > chip.softChip.capacity[t])
        point.lacks.push_back(SoftChip::text({t, sizes.rows[t], chip.softChip.capacity[t]}));
    }
  }

  ChipSetup const& base_;
  Trials trials_;
  std::vector<uint64_t> compiled_;
  WhatIfReport out_;
};

}  // namespace

WhatIfReport whatIf(RuleSet const& rules, ChipSetup const& base, ChipGrid const& grid,
                    std::function<void(Session const&)> const& onUnusable,
                    std::function<void(uint64_t)> const& tell) {
  return Comparison(rules, base, grid).run(onUnusable, tell);
}

}  // namespace NaxelTool
