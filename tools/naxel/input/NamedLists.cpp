#include "input/NamedLists.h"

namespace NaxelTool {

NamedList const* NamedLists::add(std::string const& name, NamedList&& list) {
  nameIs(list.list, name);
  auto const [at, isNew] = all_.try_emplace(name, std::move(list));
  return isNew ? nullptr : &at->second;
}

NamedList const* NamedLists::find(std::string const& name) const {
  auto const found = all_.find(name);
  return found == all_.end() ? nullptr : &found->second;
}

void NamedLists::nameIs(Mox::Ptr<Naxel::IpPrefixList> list, std::string name) {
  auto const* const key = list.get();
  name_.insert_or_assign(key, Name{std::move(list), std::move(name)});
}

Mox::Ptr<Naxel::IpPrefixList> NamedLists::named(std::string const& name) const {
  if (NamedList const* const shared = find(name)) return shared->list;
  Mox::Ptr<Naxel::IpPrefixList> only;
  for (auto const& [key, known] : name_) {
    if (known.name != name) continue;
    if (only) return nullptr;
    only = known.list;
  }
  return only;
}

std::string const* NamedLists::nameOf(Naxel::IpPrefixList const& list) const {
  auto const found = name_.find(&list);
  return found == name_.end() ? nullptr : &found->second.name;
}

size_t NamedLists::resolve(std::vector<std::string> const& files, Diagnostics& diagnostics) {
  size_t failed = 0;
  Naxel::RuleConfig const* last = nullptr;
  for (Wanted const& w : wanted_) {
    std::string text;
    std::string help;
    NamedList const* const found = find(w.name);
    if (!found) {
      text = "there is no prefix list '" + w.name + "'";
      if (diagnostics.count(Severity::error) < Diagnostics::shown) {
        std::vector<std::string_view> names;
        names.reserve(all_.size());
        for (auto const& [name, list] : all_) names.emplace_back(name);
        help = didYouMean(w.name, names);
      }
    } else if (found->af != w.af) {
      text = "the prefixes are of " + Mox::stringValue(found->af) + ", the ACL is of " +
             Mox::stringValue(w.af);
    } else if (!found->everything) {
      if (w.source)
        w.rule->ruleFilterIs()->sourceIs(found->list);
      else
        w.rule->ruleFilterIs()->destinationIs(found->list);
    }
    if (text.empty()) continue;
    diagnostics.say({Severity::error, "prefix-list", files[w.file], {w.at}, text, help, {}});
    if (w.rule.get() != last) ++failed;
    last = w.rule.get();
  }
  wanted_.clear();
  return failed;
}

}  // namespace NaxelTool
