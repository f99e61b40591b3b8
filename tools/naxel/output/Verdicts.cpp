#include "output/Verdicts.h"

#include "input/Diagnostics.h"

namespace NaxelTool {

bool agree(Naxel::AclConfig const& acl, std::optional<Naxel::AceIndex> rule,
           Verify::Verdict const& verdict) {
  if (!rule) return verdict.kind == Verify::Verdict::Kind::none;
  return verdict.kind == Verify::Verdict::Kind::rule && verdict.rule == *rule &&
         verdict.action == acl.ruleById(*rule)->action();
}

std::string text(Naxel::NaxelActionValue const& action) {
  std::string out = action.dropEnabled() ? "drop" : "permit";
  if (action.logEnabled()) out += ", log";
  if (action.setDscpEnabled()) out += ", set dscp " + std::to_string(action.dscp().value());
  if (action.setTcEnabled()) out += ", set tc " + std::to_string(action.tc().value());
  if (action.sflowEnabled()) out += ", sflow";
  return out;
}

std::string numberAndName(Naxel::AceIndex index, std::string const& name) {
  std::string const number = std::to_string(index.value());
  return "rule " + number + (name.empty() || name == number ? "" : " '" + name + "'");
}

std::string text(Naxel::AclConfig const& acl, std::optional<Naxel::AceIndex> index) {
  if (!index) return "no rule";
  auto const rule = acl.ruleById(*index);
  return numberAndName(*index, rule ? rule->name() : "") +
         (rule ? ": " + text(rule->action()) : "");
}

std::string text(Naxel::AclConfig const& acl, Verify::Verdict const& verdict) {
  using Kind = Verify::Verdict::Kind;
  if (verdict.kind == Kind::none) return "no rule";
  if (verdict.kind != Kind::rule) return Verify::text(verdict);
  auto const rule = acl.ruleById(verdict.rule);
  return numberAndName(verdict.rule, rule ? printable(rule->name()) : "") + ": " +
         text(verdict.action);
}

}  // namespace NaxelTool
