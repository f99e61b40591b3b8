#include "naxel/encoder/LabelPairing.h"

#include <algorithm>
#include <utility>

namespace Naxel {

namespace {

constexpr uint32_t widestWindow = 256;
constexpr uint32_t narrowestWindow = 16;
constexpr uint32_t maxTurns = 64;

/// A pair of a share: the run in which it is, its lowest place there, and the bits that it ignores.
struct Item {
  uint16_t run;
  uint16_t stars;
  uint16_t place;
};

class Pairing {
 public:
  Pairing(LabelGroup const& group, LabelOrder const& base, uint64_t& steps)
      : group_(group), steps_(steps), labels_(base), items_(group.shares.size()) {
    std::vector<uint16_t> runOf(base.size());
    for (size_t i = 0; i < base.size(); ++i) runOf[base[i]] = static_cast<uint16_t>(i);
    for (size_t s = 0; s < items_.size(); ++s) {
      for (uint16_t label : group.of(group.shares[s])) items_[s].push_back({runOf[label], 0, 0});
      std::sort(items_[s].begin(), items_[s].end(),
                [](Item const& a, Item const& b) { return a.run < b.run; });
    }
  }

  /// Chooses the widest window with which single labels are joined in half of these steps.
  bool fitsInto(uint64_t maxSteps) {
    for (window_ = widestWindow; window_ >= narrowestWindow; window_ /= 2) {
      uint64_t sum = labels_.size() * window_ / 4;
      for (auto const& items : items_)
        for (size_t i = 0, from = 0; i < items.size(); ++i) {
          if (items[i].run / window_ != items[from].run / window_) from = i;
          sum += i - from + 1;
        }
      if (sum <= maxSteps / 2) return true;
    }
    return false;
  }

  LabelOrder order() {
    std::vector<uint16_t> rest;  // runs without a partner, the shortest first
    while (labels_.size() >> level_ > 0) {
      findPartners();
      std::vector<uint16_t> joined;
      joined.reserve(labels_.size());
      for (Join const& j : joins_) {
        for (uint32_t i = 0; i < length(); ++i) joined.push_back(labelAt(j.first, i));
        for (uint32_t i = 0; i < length(); ++i) joined.push_back(labelAt(j.second, i ^ j.turn));
      }
      if (single_ != none)
        for (uint32_t i = length(); i-- > 0;) rest.push_back(labelAt(single_, i));
      joinItems();
      labels_ = std::move(joined);
      ++level_;
    }
    return {rest.rbegin(), rest.rend()};
  }

 private:
  struct Join {
    uint32_t first;
    uint32_t second;
    uint32_t turn;
  };
  static constexpr uint32_t none = ~uint32_t{0};

  uint32_t length() const { return uint32_t{1} << level_; }
  uint32_t runs() const { return static_cast<uint32_t>(labels_.size() >> level_); }
  uint16_t labelAt(uint32_t run, uint32_t place) const { return labels_[(run << level_) + place]; }

  void findPartners() {
    joins_.clear();
    single_ = none;
    uint32_t const window = std::max(window_ >> level_, 2u);
    turns_ = std::min(length(), maxTurns);
    std::vector<uint32_t> cursor(items_.size(), 0);
    for (uint32_t begin = 0; begin < runs(); begin += window) {
      count_ = std::min(window, runs() - begin);
      saving_.assign(size_t{count_} * count_ * turns_, 0);
      for (size_t s = 0; s < items_.size(); ++s) {
        uint32_t const from = cursor[s];
        while (cursor[s] < items_[s].size() && items_[s][cursor[s]].run < begin + count_)
          ++cursor[s];
        addSavings(std::span(items_[s]).subspan(from, cursor[s] - from), begin,
                   group_.shares[s].weight);
      }
      steps_ += uint64_t{count_} * count_ * turns_ / 4;
      match(begin);
    }
  }

  /// What one share saves for each two runs of a window and each turn.
  void addSavings(std::span<Item const> items, uint32_t begin, uint64_t weight) {
    steps_ += items.size() * items.size() / 2;
    for (size_t j = 1; j < items.size(); ++j)
      for (size_t i = 0; i < j; ++i) {
        if (items[i].stars != items[j].stars || items[i].run == items[j].run) continue;
        uint32_t const turn = static_cast<uint32_t>(items[i].place ^ items[j].place);
        if (turn >= turns_) continue;
        uint64_t* const saving = savingOf(items[i].run - begin, items[j].run - begin);
        // Turns in bits that both ignore make no difference.
        uint32_t const any = items[i].stars & (turns_ - 1);
        for (uint32_t bits = any;; bits = (bits - 1) & any) {
          saving[turn | bits] += weight;
          if (bits == 0) break;
        }
      }
  }
  uint64_t* savingOf(uint32_t first, uint32_t second) {
    return &saving_[(size_t{first} * count_ + second) * turns_];
  }

  /// Joins the two runs of the window that save the most, and so on with the others.
  void match(uint32_t begin) {
    struct Best {
      uint64_t saving = 0;
      uint32_t partner = none;
      uint32_t turn = 0;
    };
    std::vector<uint32_t> open(count_);
    for (uint32_t i = 0; i < count_; ++i) open[i] = i;
    // Savings of the best turn, for both of the two.
    std::vector<std::pair<uint64_t, uint32_t>> table(size_t{count_} * count_);
    for (uint32_t b = 1; b < count_; ++b)
      for (uint32_t a = 0; a < b; ++a) {
        uint64_t const* const saving = savingOf(a, b);
        auto const turn = static_cast<uint32_t>(std::max_element(saving, saving + turns_) - saving);
        table[size_t{a} * count_ + b] = table[size_t{b} * count_ + a] = {saving[turn], turn};
      }
    std::vector<Best> best(count_);
    std::vector<bool> stale(count_, true);
    while (open.size() > 1) {
      // Two that are the best for each other can be joined whatever the others do.
      for (uint32_t a : open) {
        if (!stale[a]) continue;
        stale[a] = false;
        best[a] = {};
        for (uint32_t b : open) {
          auto const& [saving, turn] = table[size_t{a} * count_ + b];
          if (b != a && (best[a].partner == none || saving > best[a].saving))
            best[a] = {saving, b, turn};
        }
      }
      std::vector<uint32_t> left;
      std::vector<bool> taken(count_, false);
      for (uint32_t a : open) {
        if (taken[a]) continue;
        uint32_t b = best[a].partner;
        // Who saves nothing with anyone takes the next who does not either.
        if (best[a].saving == 0)
          b = *std::find_if(open.begin(), open.end(), [&](uint32_t i) {
            return i == b || (i != a && !taken[i] && best[i].saving == 0);
          });
        if (taken[b] || best[b].saving != best[a].saving) continue;
        taken[a] = taken[b] = true;
        joins_.push_back({begin + std::min(a, b), begin + std::max(a, b), best[a].turn});
      }
      for (uint32_t a : open)
        if (!taken[a]) {
          stale[a] = taken[best[a].partner];
          left.push_back(a);
        }
      open = std::move(left);
    }
    if (!open.empty()) single_ = begin + open[0];
  }

  void joinItems() {
    struct Place {
      uint32_t run = none;
      bool second = false;
      uint32_t turn = 0;
    };
    std::vector<Place> to(runs());
    for (uint32_t i = 0; i < joins_.size(); ++i) {
      to[joins_[i].first] = {i, false, 0};
      to[joins_[i].second] = {i, true, joins_[i].turn};
    }
    auto const bit = static_cast<uint16_t>(length());
    std::vector<uint64_t> keys;  // run, stars, place, and whether in the second half
    for (auto& items : items_) {
      keys.clear();
      for (Item const& item : items) {
        Place const& p = to[item.run];
        if (p.run == none) continue;
        uint64_t const place = item.place ^ (p.turn & ~uint32_t{item.stars});
        keys.push_back(uint64_t{p.run} << 48 | uint64_t{item.stars} << 32 | place << 16 |
                       (p.second ? 1 : 0));
      }
      std::sort(keys.begin(), keys.end());
      items.clear();
      for (size_t i = 0; i < keys.size(); ++i) {
        Item item{static_cast<uint16_t>(keys[i] >> 48), static_cast<uint16_t>(keys[i] >> 32),
                  static_cast<uint16_t>(keys[i] >> 16)};
        if (i + 1 < keys.size() && keys[i + 1] == (keys[i] | 1) && !(keys[i] & 1)) {
          item.stars |= bit;
          ++i;
        } else if (keys[i] & 1) {
          item.place |= bit;
        }
        items.push_back(item);
      }
    }
  }

  LabelGroup const& group_;
  uint64_t& steps_;
  uint32_t window_ = widestWindow;  // in labels
  uint32_t level_ = 0;
  LabelOrder labels_;                     // of all runs of the present length, one after another
  std::vector<std::vector<Item>> items_;  // of each share, by run
  std::vector<Join> joins_;
  uint32_t single_ = none;  // the run without a partner
  uint32_t count_ = 0;      // of runs in the window
  uint32_t turns_ = 1;
  std::vector<uint64_t> saving_;  // of each two runs, the first before the second, and each turn
};

}  // namespace

std::optional<LabelOrder> pairOrder(LabelGroup const& group, LabelOrder const& base,
                                    uint64_t maxSteps, uint64_t& steps) {
  Pairing pairing(group, base, steps);
  if (!pairing.fitsInto(maxSteps)) return std::nullopt;
  return pairing.order();
}

}  // namespace Naxel
