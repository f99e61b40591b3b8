#include "verify/ExactChanges.h"

#include "mox/Assert.h"
#include "verify/ExactAlignment.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <unordered_set>

namespace Verify {

using Exact::Alignment;
using Exact::RuleRow;
using Naxel::AceIndex;
using Naxel::NaxelActionValue;

namespace {

/// Packets that are drawn from each rule that has no partner, and from each that it is held against.
constexpr int drawnFromRule = 16;
constexpr int drawnFromOther = 4;

bool areSame(NaxelActionValue const* a, NaxelActionValue const* b) {
  return a && b ? *a == *b : a == b;
}

/// The decider of a packet on either side.
using Deciders = std::array<size_t, 2>;

class ChangeSearch {
 public:
  ChangeSearch(Naxel::AclConfig const& before, Naxel::AclConfig const& after, Exact::Among among,
               uint64_t& effort)
      : row_{RuleRow(before, among), RuleRow(after, among)},
        alignment_(row_[0], row_[1]),
        among_(among),
        effort_(effort) {}

  VerdictChanges run() {
    VerdictChanges out;
    out.rulesOnlyBefore = alignment_.alone(0).size();
    out.rulesOnlyAfter = alignment_.alone(1).size();
    for (size_t side : {size_t{0}, size_t{1}})
      for (size_t const place : alignment_.alone(side)) drawFrom(side, place, drawnFromRule);
    for (size_t side : {size_t{0}, size_t{1}})
      for (size_t const place : alignment_.alone(side))
        if (!lookAt(side, place)) ++out.rulesLeft;
    out.all.reserve(change_.size());
    std::sort(change_.begin(), change_.end(),
              [](Change const& a, Change const& b) { return a.by < b.by; });
    for (Change const& c : change_)
      out.all.push_back({indexOf(0, c.by[0]), indexOf(1, c.by[1]), likely(c)});
    return out;
  }

 private:
  struct Change {
    Deciders by;
    Packet packet;
  };

  std::optional<AceIndex> indexOf(size_t side, size_t place) const {
    return place == RuleRow::none ? std::nullopt : std::optional(row_[side].index(place));
  }
  bool spend(uint64_t steps = 1) {
    bool const isThere = effort_ >= steps;
    effort_ = isThere ? effort_ - steps : 0;
    return isThere;
  }
  uint64_t keyOf(Deciders by) const {
    // `none` is the place behind the last rule.
    auto const number = [&](size_t side) { return std::min(by[side], row_[side].size()); };
    return uint64_t{number(0)} << 32 | number(1);
  }
  bool differ(Deciders by) const { return !areSame(row_[0].action(by[0]), row_[1].action(by[1])); }

  /// Who decides the packet; a change that this shows is remembered.
  Deciders decidersOf(Packet const& packet) {
    Deciders const by = {row_[0].decider(packet), row_[1].decider(packet)};
    if (differ(by) && known_.insert(keyOf(by)).second) change_.push_back({by, packet});
    return by;
  }
  void drawFrom(size_t side, size_t place, int packets) {
    for (int i = 0; i < packets && spend(); ++i)
      if (auto const packet = row_[side].drawn(place)) decidersOf(*packet);
  }

  /// A packet of the change as people expect one, as far as that can be: a connection that is opened to a
  /// server, a request for an echo.
  Packet likely(Change const& change) const {
    Packet out = change.packet;
    if (among_ == Exact::Among::all) return out;
    auto const changed = [&](auto edit) {
      Packet next = out;
      edit(next);
      if (next.isPossible() && row_[0].decider(next) == change.by[0] &&
          row_[1].decider(next) == change.by[1])
        out = next;
    };
    changed([](Packet& p) { p.length = p.dscp = 0; });
    changed([](Packet& p) {
      p.icmpType = 0;
      p.proto = Packet::protoTcp;
      p.dport = 443;
    });
    changed([](Packet& p) { p.sport = 49152; });
    changed([](Packet& p) { p.icmpType = p.af == Lumox::ipv4() ? 8 : 128; });
    changed([](Packet& p) {
      p.syn = false;
      p.ack = p.proto == Packet::protoTcp;
      p.rst = false;
    });
    changed([](Packet& p) {
      p.syn = p.proto == Packet::protoTcp;
      p.ack = p.rst = false;
    });
    return out;
  }

  /// Finds all changes in which the rule decides on its side. False if the effort does not suffice.
  bool lookAt(size_t side, size_t place) try {
    size_t const there = 1 - side;
    RuleRow& others = row_[there];
    if (!spend(1 + others.size() / 256)) return false;
    Bdd open = row_[side].matched(place);
    for (size_t other = 0; other < others.size() && !open.isFalse(); ++other) {
      // A pair of rules that are both without partner has been looked at from the first side.
      if (side == 1 && !alignment_.isPaired(there, other)) continue;
      if (!alignment_.isPossible(side, place, other) ||
          !others.hull(other).meets(row_[side].hull(place)) || !isOpen(side, place, other))
        continue;
      drawFrom(there, other, drawnFromOther);
      if (isOpen(side, place, other) && !lookAt(side, place, other, open)) return false;
    }
    return !isOpen(side, place, RuleRow::none) || lookAt(side, place, RuleRow::none, open);
  } catch (std::runtime_error const&) {
    // The table of the diagrams is full.
    effort_ = 0;
    return false;
  }

  static Deciders pairOf(size_t side, size_t place, size_t other) {
    return side == 0 ? Deciders{place, other} : Deciders{other, place};
  }
  bool isOpen(size_t side, size_t place, size_t other) const {
    Deciders const by = pairOf(side, place, other);
    return differ(by) && !known_.contains(keyOf(by));
  }

  /// Whether the pair is a change; what is found out of `open` leaves it.
  bool lookAt(size_t side, size_t place, size_t other, Bdd& open) {
    if (!spend()) return false;
    Bdd region = other == RuleRow::none ? open : open & row_[1 - side].matched(other);
    Lumox::AddressFamily const af = row_[0].af();
    while (!region.isFalse()) {
      if (!spend()) return false;
      Deciders const by = decidersOf(Exact::packetOf(af, region.somePoint()));
      size_t const here = by[side];
      size_t const there = by[1 - side];
      if (here == place && there == other) return true;
      MOX_ASSERT(here != place || there != RuleRow::none);
      Bdd const& known = here != place ? row_[side].matched(here) : row_[1 - side].matched(there);
      region = region - known;
      open = open - known;
    }
    return true;
  }

  std::array<RuleRow, 2> row_;
  Alignment alignment_;
  Exact::Among among_;
  uint64_t& effort_;
  std::vector<Change> change_;
  std::unordered_set<uint64_t> known_;
};

}  // namespace

VerdictChanges verdictChanges(Naxel::AclConfig const& before, Naxel::AclConfig const& after,
                              Exact::Among among, uint64_t& effort) {
  return ChangeSearch(before, after, among, effort).run();
}

ChangeKind changeKind(NaxelActionValue const* before, NaxelActionValue const* after) {
  if (!before) return after->dropEnabled() ? ChangeKind::noneToDrop : ChangeKind::noneToPermit;
  if (!after) return before->dropEnabled() ? ChangeKind::dropToNone : ChangeKind::permitToNone;
  if (before->dropEnabled() == after->dropEnabled()) return ChangeKind::otherActions;
  return before->dropEnabled() ? ChangeKind::dropToPermit : ChangeKind::permitToDrop;
}

}  // namespace Verify
