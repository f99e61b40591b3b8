#include "naxel/expander/PairLists.h"

#include <algorithm>

namespace Naxel {

RuleFactor PairSource::of(GenSetKey key) {
  auto const& lists = published();
  // A table of the keys pays where they are asked for again and again.
  if (!places_ && ++asked_ * 8 > lists.size()) places_.emplace(keysOf(lists));
  if (places_) {
    uint32_t const place = places_->of(key);
    return place == KeyPlaces::none ? PairLists::none : first_ + place;
  }
  auto const* const item = lists.find(key);
  return item ? first_ + static_cast<RuleFactor>(item - lists.items().data()) : PairLists::none;
}

PairLists publishedLists(std::span<PairSource> sources) {
  PairLists out;
  size_t all = 0;
  for (PairSource const& source : sources) all += source.published().size();
  out.lists.reserve(all);
  out.ends.reserve(sources.size());
  for (PairSource& source : sources) {
    source.firstIs(static_cast<RuleFactor>(out.lists.size()));
    for (auto const& [key, list] : source.published()) out.lists.emplace_back(list);
    out.ends.push_back(static_cast<RuleFactor>(out.lists.size()));
  }
  return out;
}

std::vector<RuleFactor> renumbered(PairLists const& before, PairLists const& now) {
  std::vector<RuleFactor> to(before.lists.size(), PairLists::none);
  RuleFactor old = 0;
  RuleFactor at = 0;
  for (size_t source = 0; source < before.ends.size(); ++source) {
    RuleFactor const end = now.ends[source];
    for (; old < before.ends[source]; ++old) {
      auto const& list = before.lists[old];
      if (at < end && now.lists[at] == list) {
        to[old] = at++;
        continue;
      }
      while (at < end && now.lists[at]->key() < list->key()) ++at;
      // Every run of an encoder may make new lists, most of which say what the old ones said.
      if (at < end && now.lists[at]->key() == list->key() &&
          (now.lists[at] == list || now.pairs(at) == before.pairs(old)))
        to[old] = at;
    }
    at = end;
  }
  return to;
}

}  // namespace Naxel
