#include "routing/TrieGen.h"

#include "mox/Assert.h"

#include <algorithm>

namespace Routing {

void TrieGen::settle() const {
  if (settled_) return;
  if (!std::is_sorted(prefixes_.begin(), prefixes_.end()))
    std::sort(prefixes_.begin(), prefixes_.end());
  prefixes_.erase(std::unique(prefixes_.begin(), prefixes_.end()), prefixes_.end());
  parents_.assign(prefixes_.size(), none);
  std::vector<uint32_t> ancestors;
  for (uint32_t i = 0; i < prefixes_.size(); ++i) {
    // In natural order whatever contains a prefix stands before it, and what ends before it contains
    // nothing that follows.
    while (!ancestors.empty() && !prefixes_[ancestors.back()].contains(prefixes_[i]))
      ancestors.pop_back();
    if (!ancestors.empty()) parents_[i] = ancestors.back();
    ancestors.push_back(i);
  }
  settled_ = true;
}

size_t TrieGen::position(Lumox::IpGenPrefix const& prefix) const {
  return static_cast<size_t>(std::lower_bound(prefixes_.begin(), prefixes_.end(), prefix) -
                             prefixes_.begin());
}

size_t TrieGen::size() const {
  settle();
  return prefixes_.size();
}

void TrieGen::routeIs(Lumox::IpGenPrefix const& prefix, bool present) {
  MOX_ASSERT(prefix.af() == af_ && prefix.isMasked());
  if (present) {
    prefixes_.push_back(prefix);
  } else {
    settle();
    size_t const at = position(prefix);
    if (at == prefixes_.size() || prefixes_[at] != prefix) return;
    prefixes_.erase(prefixes_.begin() + static_cast<std::ptrdiff_t>(at));
  }
  // Put in order at the next question, so that many insertions are sorted once.
  settled_ = false;
}

bool TrieGen::has(Lumox::IpGenPrefix const& prefix) const {
  settle();
  size_t const at = position(prefix);
  return at < prefixes_.size() && prefixes_[at] == prefix;
}

Lumox::IpGenPrefix TrieGen::noParent() const {
  return af_ == Lumox::ipv4() ? Lumox::IpGenPrefix::v6(0, 0, 0) : Lumox::IpGenPrefix::v4(0, 0);
}

Lumox::IpGenPrefix TrieGen::findParent(Lumox::IpGenPrefix const& prefix) const {
  settle();
  Lumox::IpGenPrefix const sought = prefix.masked();
  size_t at = cursor_;
  // The place of a walk is a guess that is mostly right, and is checked.
  if (at >= prefixes_.size() || prefixes_[at] != sought) at = position(sought);
  uint32_t parent = none;
  if (at < prefixes_.size() && prefixes_[at] == sought) {
    parent = parents_[at];
  } else if (at > 0) {
    // Whatever contains the prefix stands before it and contains its predecessor, or is that one.
    parent = static_cast<uint32_t>(at - 1);
    while (parent != none && !prefixes_[parent].contains(sought)) parent = parents_[parent];
  }
  return parent == none ? noParent() : prefixes_[parent];
}

void TrieGen::preOrderWalk(Lumox::IpGenPrefix const& root, TrieGenWalkCallback& callback) const {
  settle();
  for (size_t at = position(root.masked()); at < prefixes_.size(); ++at) {
    // What lies under a prefix stands together, beginning with the prefix itself.
    if (!root.contains(prefixes_[at])) break;
    cursor_ = at;
    if (callback.handlePrefix(prefixes_[at]) == 0) break;
  }
  cursor_ = 0;
}

}  // namespace Routing
