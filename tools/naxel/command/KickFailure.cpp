#include "command/KickFailure.h"

#include <algorithm>

namespace NaxelTool {

namespace {

using Naxel::NaxelActiveStage;

/// How many rules are named as the ones that a failure is about.
constexpr size_t namedRules = 3;

struct NamedRule {
  size_t size;
  std::string acl;
  Naxel::AceIndex index;
  std::string name;
};

/// As the library's reasons name a rule.
std::string nameIn(std::string const& acl, Naxel::AceIndex index, std::string const& name) {
  return "rule " + std::to_string(index.value()) + " '" + name + "' of '" + acl + "'";
}

class Failure {
 public:
  Failure(Session const& session, RuleSet const& rules, Console& console)
      : session_(session), rules_(rules), console_(console) {}

  ExitCode say() {
    std::vector<KickReason> const reasons = session_.kickReasons();
    ExitCode const code = codeOf(reasons);
    kind_ = code == ExitCode::refused    ? "refused"
            : code == ExitCode::internal ? "memory"
            : code == ExitCode::badInput ? "rules"
                                         : "does-not-fit";
    std::string const& message = session_.rootStatus().kickMessage();
    console_.error(kind_, message.empty() ? "the kick did not end" : message);
    for (KickReason const& reason : reasons) sayReason(reason);
    if (session_.failedStage() == NaxelActiveStage::stageLoader)
      for (SoftChip::Shortfall const& s : session_.softChip().shortfalls())
        console_.error(kind_, SoftChip::text(s));
    return code;
  }

 private:
  ExitCode codeOf(std::vector<KickReason> const& reasons) const {
    for (KickReason const& reason : reasons)
      if (reason.text.ends_with("std::bad_alloc")) return ExitCode::internal;
    if (session_.failedStage() == NaxelActiveStage::stageAggregator) return ExitCode::badInput;
    if (session_.failedStage() != NaxelActiveStage::stageLoader) return ExitCode::noRoom;
    auto const& lacking = session_.softChip().shortfalls();
    return std::any_of(lacking.begin(), lacking.end(), [](auto const& s) { return !s.ordered; })
               ? ExitCode::noRoom
               : ExitCode::refused;
  }

  void sayReason(KickReason const& reason) {
    if (reason.text.ends_with("std::bad_alloc")) return console_.error(kind_, "out of memory");
    console_.error(kind_, reason.text, helpFor(reason));
    // Where the rules stand that the reason names, or else those that ask for most of the field.
    std::vector<NamedRule> largest;
    forEachRule([&](std::string const& acl, Naxel::AceIndex index, Naxel::RuleConfig const& rule) {
      if (reason.text.find(nameIn(acl, index, rule.name())) != std::string::npos)
        sayRule({0, acl, index, rule.name()}, "");
      else if (size_t const size = sizeOf(rule, reason))
        keepLargest(largest, {size, acl, index, rule.name()});
    });
    for (NamedRule const& rule : largest)
      sayRule(rule,
              " has " + std::to_string(rule.size) +
                  (std::holds_alternative<Naxel::PrefixXformKey>(reason.field) ? " prefixes there"
                                                                               : " ranges there"));
  }

  std::string helpFor(KickReason const& reason) const {
    if (std::holds_alternative<Naxel::PrefixXformKey>(reason.field))
      return "its width is a 'prefixXformWidth' of the chip description";
    if (std::holds_alternative<Naxel::RangeSetType>(reason.field))
      return "its width is a 'rangeXformWidth' of the chip description; 0 matches raw values";
    if (std::holds_alternative<Naxel::ComboLabelSetType>(reason.field))
      return "its width is a 'comboXformWidth' of the chip description; 0 makes no combination";
    if (session_.failedStage() == NaxelActiveStage::stageRuleExpander)
      return "--max-entries sets another limit";
    return {};
  }

  /// Members that the rule lists for the field of the reason.
  static size_t sizeOf(Naxel::RuleConfig const& rule, KickReason const& reason) {
    Mox::Ptr<Naxel::RuleFilter> const& filter = rule.ruleFilter();
    if (!filter) return 0;
    size_t out = 0;
    if (auto const* key = std::get_if<Naxel::PrefixXformKey>(&reason.field)) {
      auto const& list = key->src() ? filter->source() : filter->destination();
      if (list && !list->addr().empty() && list->addr().begin()->af() == key->af())
        out = list->addrs() + list->exceptAddrs();
    } else if (auto const* wanted = std::get_if<Naxel::RangeSetType>(&reason.field)) {
      filter->forEachRangeColl([&](Naxel::RangeSetType type, auto const& ranges) {
        if (type == *wanted) out = ranges.size();
      });
    }
    return out;
  }

  static void keepLargest(std::vector<NamedRule>& to, NamedRule rule) {
    auto const at =
        std::find_if(to.begin(), to.end(), [&](NamedRule const& r) { return r.size < rule.size; });
    if (at == to.end() && to.size() == namedRules) return;
    to.insert(at, std::move(rule));
    if (to.size() > namedRules) to.pop_back();
  }

  void sayRule(NamedRule const& rule, std::string const& what) {
    Diagnostic d{
        Severity::note, kind_, {}, {}, nameIn(rule.acl, rule.index, rule.name) + what, {}, {}};
    if (RuleOrigin const* const from = rules_.origin(rule.acl, rule.index)) {
      d.file = rules_.files()[from->file];
      d.place.at = from->at;
    }
    if (what.empty()) d.text += " stands here";
    console_.messages().say(d);
  }

  template <class F>
  void forEachRule(F f) const {
    for (auto const& [name, acl] : rules_.acls()->acl())
      for (auto const& [index, rule] : acl->ruleById()) f(name, index, *rule);
  }

  Session const& session_;
  RuleSet const& rules_;
  Console& console_;
  std::string kind_;
};

}  // namespace

ExitCode sayKickFailure(Session const& session, RuleSet const& rules, Console& console) {
  return Failure(session, rules, console).say();
}

}  // namespace NaxelTool
