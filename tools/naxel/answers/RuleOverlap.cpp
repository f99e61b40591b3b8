#include "answers/RuleOverlap.h"

#include "input/Intervals.h"
#include "output/RuleText.h"

namespace NaxelTool {

namespace {

using Naxel::IpPrefixList;
using Naxel::RangeSetType;
using Naxel::RuleFilter;

class Overlap {
 public:
  Overlap(RuleFilter const& old, RuleFilter const& now, Lumox::AddressFamily af)
      : old_(old), now_(now), af_(af) {
    out_->sourceIs(side(old.source(), now.source()));
    out_->destinationIs(side(old.destination(), now.destination()));
    for (RangeSetType const type : Naxel::allRangeSetTypes()) addRanges(type);
    out_->matchTcpInitIs(flag(old.matchTcpInit(), now.matchTcpInit()));
    out_->matchTcpEstablishedIs(flag(old.matchTcpEstablished(), now.matchTcpEstablished()));
  }

  /// Neither of the two rules.
  bool isAnother() const { return !isOld_ && !isNew_; }
  RuleFilter const* filter() const { return out_.get(); }

 private:
  Mox::Ptr<IpPrefixList> side(Mox::Ptr<IpPrefixList> const& old,
                              Mox::Ptr<IpPrefixList> const& now) {
    if (!old && !now) return nullptr;
    if (!old || !now) {
      (old ? isNew_ : isOld_) = false;
      return old ? old : now;
    }
    IntervalSet const before = addressesOf(*old);
    IntervalSet const after = addressesOf(*now);
    IntervalSet const both = common(before, after);
    // Where it is the new list, that one may have a name.
    if (both == after) return now;
    if (both == before) return old;
    auto list = Mox::makePtr<IpPrefixList>();
    for (auto const& prefix : prefixesOf(both, af_)) list->addrIs(prefix);
    return list;
  }

  void addRanges(RangeSetType type) {
    IntervalSet const before = valuesIn(old_, type);
    IntervalSet const after = valuesIn(now_, type);
    IntervalSet const both = common(before, after);
    if (isEverything(both, Naxel::rangeField(type).bits)) return;
    for (Interval const& i : both)
      out_->rangeIs(type, static_cast<uint32_t>(i.first), static_cast<uint32_t>(i.last));
  }
  static IntervalSet valuesIn(RuleFilter const& filter, RangeSetType wanted) {
    IntervalSet out;
    filter.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
      if (type == wanted) out = valuesOf(ranges);
    });
    // No ranges are all values.
    if (out.empty()) out = {{0, Naxel::rangeField(wanted).bound()}};
    return out;
  }

  IntervalSet common(IntervalSet const& old, IntervalSet const& now) {
    IntervalSet both = without(old, without(old, now));
    isOld_ = isOld_ && both == old;
    isNew_ = isNew_ && both == now;
    return both;
  }
  bool flag(bool old, bool now) {
    isOld_ = isOld_ && old >= now;
    isNew_ = isNew_ && now >= old;
    return old || now;
  }

  RuleFilter const& old_;
  RuleFilter const& now_;
  Lumox::AddressFamily af_;
  Mox::Ptr<RuleFilter> out_ = Mox::makePtr<RuleFilter>();
  bool isOld_ = true;
  bool isNew_ = true;
};

}  // namespace

std::string overlapText(PacketChange const& change, NamedLists const& names) {
  auto const& old = change.before->filter;
  auto const& now = change.after->filter;
  if (!old || !now) return {};
  Overlap const overlap(*old, *now, change.packet.af);
  return overlap.isAnother() ? patternText(overlap.filter(), names) : std::string();
}

}  // namespace NaxelTool
