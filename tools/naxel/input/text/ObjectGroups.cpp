#include "input/text/ObjectGroups.h"

#include <algorithm>
#include <set>

namespace NaxelTool {

namespace {

size_t sizeOf(GroupContent const& content) {
  return content.prefixes.size() + content.services.size();
}

/// Leaves the lines that no later one takes away.
void dropTakenAway(std::vector<Words>& members) {
  auto const isAway = [](Words const& m) { return m.peek().is("no"); };
  if (std::none_of(members.begin(), members.end(), isAway)) return;
  std::set<std::string> away;
  std::vector<Words> left;
  for (auto m = members.rbegin(); m != members.rend(); ++m) {
    Words words = *m;
    if (words.takeIf("no"))
      away.insert(sameText(words));
    else if (!away.contains(sameText(words)))
      left.push_back(words);
  }
  members.assign(left.rbegin(), left.rend());
}

}  // namespace

/// A group of which some members have been read.
struct ObjectGroups::Step {
  Group* group = nullptr;
  size_t next = 0;
  size_t line = 0;  // of the member that is read
};

ObjectGroups::Group& ObjectGroups::groupIs(std::string_view name, GroupKind kind,
                                           ValueSet protocols) {
  auto const [where, isNew] = groups_.try_emplace({kind == GroupKind::network, name});
  Group& group = where->second;
  if (isNew) {
    group.kind = kind;
    group.protocols = std::move(protocols);
  } else if (group.kind != kind) {
    group.error.emplace(EntryError::Kind::wrong, Place(), "group-kinds",
                        "it is defined as a group of two kinds");
    group.resolved = true;
  }
  return group;
}

void ObjectGroups::groupDel(std::string_view name) {
  groups_.erase({true, name});
  groups_.erase({false, name});
}

AddressMatch const& ObjectGroups::addresses(Word name) {
  Group& group = resolved(name, true);
  if (!group.addresses) group.addresses = matchOf(group.content.prefixes);
  return *group.addresses;
}

ObjectGroups::Group& ObjectGroups::resolved(Word name, bool isNetwork) {
  Key const key{isNetwork, name.text};
  auto const found = groups_.find(key);
  if (found == groups_.end()) {
    if (!name) failSyntax(name, "the name of a group is missing");
    std::vector<std::string_view> names;
    for (auto const& [other, group] : groups_)
      if (other.first == isNetwork && names.size() < 1000) names.push_back(other.second);
    failWith(name, "unknown-group", "there is no group " + quoted(name),
             didYouMean(name.text, names));
  }
  Group& group = found->second;
  if (!group.resolved) resolve(key, name);
  if (group.error)
    throw EntryError(group.error->kind, name.place, group.error->code,
                     "group " + quoted(name) + " cannot be used: " + group.error->what(),
                     group.error->help);
  return group;
}

ObjectGroups::Group* ObjectGroups::readOn(Step& step, Word at) {
  Group& group = *step.group;
  for (; step.next < group.members.size(); ++step.next) {
    step.line = group.members[step.next].line();
    size_t const before = sizeOf(group.content);
    Word const name = readMember(group.members[step.next], group, context_, group.content);
    context_.countPrefixes(sizeOf(group.content) - before, at);
    if (!name) continue;
    bool const isNetwork = group.kind == GroupKind::network;
    auto const found = groups_.find({isNetwork, name.text});
    if (found == groups_.end())
      failWith(name, "unknown-group", "there is no group " + quoted(name));
    Group& inner = found->second;
    if (inner.resolving) failWith(name, "group-cycle", quoted(name) + " contains itself");
    if (!inner.resolved) return &inner;
    if (inner.error) throw EntryError(*inner.error);
    context_.countPrefixes(sizeOf(inner.content), at);
    auto& out = group.content;
    out.prefixes.insert(out.prefixes.end(), inner.content.prefixes.begin(),
                        inner.content.prefixes.end());
    out.services.insert(out.services.end(), inner.content.services.begin(),
                        inner.content.services.end());
  }
  step.line = 0;
  if (!sizeOf(group.content)) failWith(at, "empty-group", "it is empty");
  return nullptr;
}

void ObjectGroups::resolve(Key const& root, Word at) {
  // A stack of its own: groups may be nested as deep as a file is long.
  std::vector<Step> stack;
  auto const push = [&](Group& group) {
    group.resolving = true;
    dropTakenAway(group.members);
    stack.push_back({&group});
  };
  push(groups_.find(root)->second);
  while (!stack.empty()) {
    Step& top = stack.back();
    Group& group = *top.group;
    try {
      if (Group* const inner = readOn(top, at)) {
        push(*inner);
        continue;
      }
    } catch (EntryError const& e) {
      std::string text = e.what();
      // The line at fault is that of the innermost member.
      if (top.line && !text.starts_with("line "))
        text.insert(0, "line " + std::to_string(top.line) + ": ");
      group.error.emplace(e.kind, e.place, e.code, text, e.help);
      group.content = {};
    }
    group.resolved = true;
    group.resolving = false;
    stack.pop_back();
  }
}

}  // namespace NaxelTool
