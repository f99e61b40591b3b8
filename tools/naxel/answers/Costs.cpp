#include "answers/Costs.h"

#include "answers/CostAccount.h"
#include "answers/Trials.h"
#include "mox/Bounded.h"

#include <algorithm>
#include <bit>

namespace NaxelTool {

using Naxel::NaxelActiveStage;
using SoftChip::Table;

uint64_t AclCost::bits() const { return Mox::boundedProduct(entries, keyBits); }
uint64_t AclCost::plainBits() const { return Mox::boundedProduct(plainEntries, plainKeyBits); }

uint64_t CostReport::aclBits() const {
  uint64_t out = 0;
  for (AclCost const& acl : acls) out = Mox::boundedSum(out, acl.bits());
  return out;
}
uint64_t CostReport::plainBits() const {
  uint64_t out = 0;
  for (AclCost const& acl : acls) out = Mox::boundedSum(out, acl.plainBits());
  return out;
}
uint64_t CostReport::allBits() const {
  uint64_t out = 0;
  for (TableCost const& t : tables) out = Mox::boundedSum(out, t.bits);
  return out;
}

size_t defaultTrials(size_t rules, uint64_t entries) {
  constexpr size_t most = 40;
  constexpr size_t least = 4;
  constexpr size_t rulesInAll = 400000;
  constexpr uint64_t entriesOfARule = 10;  // that take as long
  uint64_t const work = std::max<uint64_t>({rules, entries / entriesOfARule, 1});
  return std::clamp<size_t>(rulesInAll / work, least, most);
}

namespace {

constexpr uint64_t widestTried = 16;

std::string pathOf(KickReason const& reason) {
  if (auto const* prefix = std::get_if<Naxel::PrefixXformKey>(&reason.field))
    return memberPath(*prefix);
  if (auto const* range = std::get_if<Naxel::RangeSetType>(&reason.field))
    return memberPath(*range);
  if (auto const* combo = std::get_if<Naxel::ComboLabelSetType>(&reason.field))
    return memberPath(*combo);
  return {};
}

int64_t lessBy(uint64_t a, uint64_t b) { return static_cast<int64_t>(a) - static_cast<int64_t>(b); }

class CostStudy {
 public:
  CostStudy(RuleSet const& rules, ChipSetup const& chip, CostOptions const& options,
            std::function<void(std::string const&)> const& tell)
      : rules_(rules),
        chip_(copyOf(chip)),
        options_(options),
        tell_(tell),
        trials_(chip_, rules.acls()) {}

  CostReport run(std::function<void(Session const&)> const& onUnusable) {
    for (auto const& [name, acl] : rules_.acls()->acl()) out_.rules += acl->ruleById().size();
    makeFit();
    if (out_.unusable) {
      onUnusable(trials_.session());
      return std::move(out_);
    }
    CostAccount account(rules_, out_);
    account.take(trials_.session(), trials_.sizes() ? &trials_.session().data() : nullptr);
    base_ = trials_.sizes();
    left_ = options_.trials.value_or(defaultTrials(out_.rules, out_.entries));
    takeTables();
    if (out_.counted && out_.entries != Mox::unbounded) {
      tryChips();
      tryRemovals(account);
    }
    out_.kicks = trials_.kicks();
    return std::move(out_);
  }

 private:
  bool kick(ChipSetup const& chip, std::string const& what) {
    if (tell_) tell_(what);
    return trials_.kick(chip);
  }

  /// Compiles the rules for a chip that has what the real one lacks.
  void makeFit() {
    std::vector<ChipMember const*> widened;
    while (!kick(chip_, "compiling")) {
      NaxelActiveStage const stage = trials_.session().failedStage();
      auto const reasons = trials_.session().kickReasons();
      if (stage == NaxelActiveStage::stageRuleExpander) {
        for (KickReason const& r : reasons) out_.lacks.push_back({r.text, {}, {}});
        out_.counted = true;
        return;
      }
      bool const isAboutLabels =
          stage > NaxelActiveStage::stageAggregator && stage < NaxelActiveStage::stageRuleExpander;
      bool changed = false;
      for (KickReason const& r : reasons) changed |= isAboutLabels && widen(r, widened);
      if (changed) continue;
      out_.unusable = !isAboutLabels;
      return;
    }
    out_.counted = true;
    if (!widened.empty()) narrow(widened);
  }

  /// The widestTried labels, or where these are not enough none. False where neither is left.
  bool widen(KickReason const& reason, std::vector<ChipMember const*>& widened) {
    std::string const path = pathOf(reason);
    ChipMember const* const member = chipMember(path);
    if (std::ranges::find(out_.lacks, path, &Lack::member) == out_.lacks.end())
      out_.lacks.push_back({reason.text, path, {}});
    if (!member) return false;
    uint64_t const width = member->get(chip_);
    if (width == widestTried && member->least > 0) return false;
    member->set(chip_, width == widestTried ? 0 : widestTried);
    if (std::ranges::find(widened, member) == widened.end()) widened.push_back(member);
    return true;
  }

  /// The least widths that are enough, one field after the other.
  void narrow(std::vector<ChipMember const*> const& widened) {
    for (ChipMember const* const member : widened) {
      uint64_t width = member->get(chip_);
      if (width != 0) {
        width = std::min<uint64_t>(widestTried, leastWidth(*member));
        for (; width < widestTried; ++width) {
          member->set(chip_, width);
          if (kick(chip_, "looking for a width of " + member->path)) break;
        }
        member->set(chip_, width);
      }
      std::ranges::find(out_.lacks, member->path, &Lack::member)->enough = width;
      if (!trials_.sizes()) kick(chip_, "compiling");
    }
  }

  /// Bits that tell the labels of a field apart and leave the highest one free.
  unsigned leastWidth(ChipMember const& member) const {
    std::vector<Naxel::LabelUse> const uses = trials_.session().metrics().labels;
    for (Naxel::LabelUse const& use : uses)
      if (member.path.ends_with("." + use.field))
        return std::max(1, static_cast<int>(std::bit_width(use.used)));
    return widestTried;
  }

  void takeTables() {
    if (!base_) return;
    for (Table const t : Naxel::allPDTables()) {
      uint64_t const capacity = chip_.softChip.capacity[t];
      bool const limited = capacity != ~size_t{0};
      if (t == Table::tcpFlags || (!base_->rows[t] && !limited)) continue;
      out_.tables.push_back(
          {t, base_->rows[t], base_->bits[t], limited ? std::optional(capacity) : std::nullopt});
      if (base_->rows[t] > capacity)
        out_.lacks.push_back({SoftChip::text({t, base_->rows[t], chip_.softChip.capacity[t]}),
                              "softChip.capacity." + Mox::stringValue(t), base_->rows[t]});
    }
  }

  /// A kick within the limit of trials; nothing where the limit is reached.
  std::optional<bool> attempt(ChipSetup const& chip, std::string const& what) {
    if (left_ == 0) {
      ++out_.untried;
      return std::nullopt;
    }
    --left_;
    return kick(chip, what);
  }

  void tryChips() {
    if (chip_.labelCode == Acl::LabelCode::aligned) tryValue(*chipMember("labelCode"), 1);
    for (Naxel::RangeSetType const type : Naxel::allRangeSetTypes())
      if (looksAt(Naxel::stringValue(type))) tryOther(*chipMember(memberPath(type)));
    for (Naxel::ComboLabelSetType const type : Naxel::allComboLabelSetTypes())
      if (canCombine(type)) tryOther(*chipMember(memberPath(type)));
    std::ranges::stable_sort(out_.trials, [](ChipTrial const& a, ChipTrial const& b) {
      if (a.failure.empty() != b.failure.empty()) return a.failure.empty();
      return std::pair(a.entries, a.bits) < std::pair(b.entries, b.bits);
    });
  }

  bool looksAt(std::string const& field) const {
    return std::ranges::find(out_.fields, field, &FieldCost::name) != out_.fields.end();
  }
  bool canCombine(Naxel::ComboLabelSetType type) const {
    using Naxel::RangeSetType;
    if (type == Naxel::ComboLabelSetType::srcDstL4Port)
      return looksAt("srcPort") && looksAt("dstPort") &&
             chip_.capability->rangeXformWidth(RangeSetType::srcPort) &&
             chip_.capability->rangeXformWidth(RangeSetType::dstPort);
    std::string const af = type == Naxel::ComboLabelSetType::ipv4SrcDstPrefix ? "ipv4" : "ipv6";
    return looksAt(af + "Src") && looksAt(af + "Dst");
  }

  void tryOther(ChipMember const& member) {
    bool const isOn = member.get(chip_) != 0;
    if (!tryValue(member, isOn ? 0 : widestTried) || isOn) return;
    ChipTrial const wide = out_.trials.back();
    if (wide.entries >= out_.entries && wide.bits >= base_->allBits()) return;
    // The narrowest that does the same says more; some room beyond the least may be needed for that.
    constexpr unsigned tries = 3;
    unsigned const least = leastWidth(member);
    for (unsigned width = least; width < std::min<uint64_t>(widestTried, least + tries); ++width) {
      size_t const before = out_.trials.size();
      tryValue(member, width);
      if (out_.trials.size() == before) return;
      ChipTrial const narrow = out_.trials.back();
      out_.trials.pop_back();
      if (!narrow.failure.empty() || narrow.entries > wide.entries) continue;
      out_.trials.back() = narrow;
      return;
    }
  }

  /// True where the rules fit.
  bool tryValue(ChipMember const& member, uint64_t value) {
    ChipSetup chip = copyOf(chip_);
    member.set(chip, value);
    auto const fits = attempt(chip, "trying " + member.path + " " + member.text(value));
    if (!fits) return false;
    ChipTrial trial{member.path, member.text(member.get(chip_)), member.text(value), {}, 0, 0};
    if (*fits) {
      trial.entries = trials_.sizes()->entries();
      trial.bits = trials_.sizes()->allBits();
    } else {
      auto const texts = trials_.session().failureTexts();
      trial.failure = texts.empty() ? "the kick failed" : texts.front();
    }
    out_.trials.push_back(std::move(trial));
    return *fits;
  }

  void tryRemovals(CostAccount const& account) {
    for (size_t i = 0; i < options_.removals; ++i) {
      if (i < out_.costs.size() && out_.costs[i].entries > 1) {
        RuleCost& rule = out_.costs[i];
        RulesTakenOut taken(*rules_.acls());
        for (Naxel::AceIndex const index : rule.rules) taken.takeOut(rule.acl, index);
        rule.without = savingNow();
      }
      if (i < out_.lists.size() && out_.lists[i].extra) {
        RulesTakenOut taken(*rules_.acls());
        for (auto const& [acl, index] : account.rulesOf(i)) taken.takeOut(*acl, index);
        out_.lists[i].without = savingNow();
      }
    }
  }

  std::optional<Saving> savingNow() {
    auto const success = attempt(chip_, "compiling without rules");
    if (!success) return std::nullopt;
    Session const& session = trials_.session();
    if (!*success && session.failedStage() != NaxelActiveStage::stageRuleExpander)
      return std::nullopt;
    Saving out{lessBy(out_.entries, entriesOf(session.root())), 0};
    if (base_ && trials_.sizes())
      for (Table const t : Naxel::allPDTables())
        if (t != Table::aclEntries) out.rows += lessBy(base_->rows[t], trials_.sizes()->rows[t]);
    return out;
  }

  RuleSet const& rules_;
  ChipSetup chip_;
  CostOptions const& options_;
  std::function<void(std::string const&)> const& tell_;
  Trials trials_;
  std::optional<TableSizes> base_;
  size_t left_ = 0;
  CostReport out_;
};

}  // namespace

CostReport costsOf(RuleSet const& rules, ChipSetup const& chip, CostOptions const& options,
                   std::function<void(Session const&)> const& onUnusable,
                   std::function<void(std::string const&)> const& tell) {
  return CostStudy(rules, chip, options, tell).run(onUnusable);
}

}  // namespace NaxelTool
