#pragma once

/// What a packet must be like to match a rule.

#include "mox/SmallSet.h"
#include "naxel/types/IpPrefixList.h"
#include "naxel/types/MatchFields.h"
#include "naxel/types/Ranges.h"

#include <tuple>

namespace Naxel {

/// A packet matches when every constraint holds: source and destination in their lists, the value
/// of each field in one of the ranges of its set, each TCP flag that is true. An absent list, an
/// empty range set and a false flag do not constrain. Written by the agent, only read by the
/// library. A walk over any of its collections may delete what it stands on.
class NAXEL_EXPORT RuleFilter : public Mox::Entity {
 public:
  /// The ranges of one field, ascending.
  template <class R>
  using RangeColl = Mox::SmallSet<R>;

  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onSource() {}
    virtual void onDestination() {}
    virtual void onSportRange(L4PortRange const&) {}
    virtual void onDportRange(L4PortRange const&) {}
    virtual void onIcmpType(IcmpTypeRange const&) {}
    virtual void onProto(ProtoRange const&) {}
    virtual void onMatchTcpInit() {}
    virtual void onMatchTcpEstablished() {}
    virtual void onLength(LengthRange const&) {}
    virtual void onFragment(FragmentRange const&) {}
    virtual void onDscp(DscpRange const&) {}
  };

  std::string_view fwkType() const override { return "Naxel::RuleFilter"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// The source list; null when the source does not matter. Sharing one list between several
  /// filters is allowed.
  Mox::Ptr<IpPrefixList> const& source() const { return source_; }
  /// Creates the list, or returns the one there is.
  Mox::Ptr<IpPrefixList> sourceIs();
  void sourceIs(Mox::Ptr<IpPrefixList> list) {
    ownIs(source_, std::move(list), &Notifiee::onSource);
  }
  void sourceDel() { sourceIs(nullptr); }

  Mox::Ptr<IpPrefixList> const& destination() const { return destination_; }
  Mox::Ptr<IpPrefixList> destinationIs();
  void destinationIs(Mox::Ptr<IpPrefixList> list) {
    ownIs(destination_, std::move(list), &Notifiee::onDestination);
  }
  void destinationDel() { destinationIs(nullptr); }

  RangeColl<L4PortRange> const& sportRange() const { return sportRange_; }
  bool sportRangeHas(L4PortRange const& r) const { return sportRange_.contains(r); }
  void sportRangeIs(L4PortRange const& r) { addRange(sportRange_, r, &Notifiee::onSportRange); }
  void sportRangeDel(L4PortRange const& r) { removeRange(sportRange_, r, &Notifiee::onSportRange); }
  void sportRangeDelAll() { removeRanges(sportRange_, &Notifiee::onSportRange); }

  RangeColl<L4PortRange> const& dportRange() const { return dportRange_; }
  bool dportRangeHas(L4PortRange const& r) const { return dportRange_.contains(r); }
  void dportRangeIs(L4PortRange const& r) { addRange(dportRange_, r, &Notifiee::onDportRange); }
  void dportRangeDel(L4PortRange const& r) { removeRange(dportRange_, r, &Notifiee::onDportRange); }
  void dportRangeDelAll() { removeRanges(dportRange_, &Notifiee::onDportRange); }

  RangeColl<IcmpTypeRange> const& icmpType() const { return icmpType_; }
  bool icmpTypeHas(IcmpTypeRange const& r) const { return icmpType_.contains(r); }
  void icmpTypeIs(IcmpTypeRange const& r) { addRange(icmpType_, r, &Notifiee::onIcmpType); }
  void icmpTypeDel(IcmpTypeRange const& r) { removeRange(icmpType_, r, &Notifiee::onIcmpType); }
  void icmpTypeDelAll() { removeRanges(icmpType_, &Notifiee::onIcmpType); }

  RangeColl<ProtoRange> const& proto() const { return proto_; }
  bool protoHas(ProtoRange const& r) const { return proto_.contains(r); }
  void protoIs(ProtoRange const& r) { addRange(proto_, r, &Notifiee::onProto); }
  void protoDel(ProtoRange const& r) { removeRange(proto_, r, &Notifiee::onProto); }
  void protoDelAll() { removeRanges(proto_, &Notifiee::onProto); }

  /// Match TCP packets that open a connection: SYN without ACK (RFC 9293).
  bool matchTcpInit() const { return matchTcpInit_; }
  void matchTcpInitIs(bool v) { ownIs(matchTcpInit_, v, &Notifiee::onMatchTcpInit); }
  /// Match TCP packets of established connections: ACK or RST. With both flags both must hold.
  bool matchTcpEstablished() const { return matchTcpEstablished_; }
  void matchTcpEstablishedIs(bool v) {
    ownIs(matchTcpEstablished_, v, &Notifiee::onMatchTcpEstablished);
  }

  RangeColl<LengthRange> const& length() const { return length_; }
  bool lengthHas(LengthRange const& r) const { return length_.contains(r); }
  void lengthIs(LengthRange const& r) { addRange(length_, r, &Notifiee::onLength); }
  void lengthDel(LengthRange const& r) { removeRange(length_, r, &Notifiee::onLength); }
  void lengthDelAll() { removeRanges(length_, &Notifiee::onLength); }

  RangeColl<FragmentRange> const& fragment() const { return fragment_; }
  bool fragmentHas(FragmentRange const& r) const { return fragment_.contains(r); }
  void fragmentIs(FragmentRange const& r) { addRange(fragment_, r, &Notifiee::onFragment); }
  void fragmentDel(FragmentRange const& r) { removeRange(fragment_, r, &Notifiee::onFragment); }
  void fragmentDelAll() { removeRanges(fragment_, &Notifiee::onFragment); }

  RangeColl<DscpRange> const& dscp() const { return dscp_; }
  bool dscpHas(DscpRange const& r) const { return dscp_.contains(r); }
  void dscpIs(DscpRange const& r) { addRange(dscp_, r, &Notifiee::onDscp); }
  void dscpDel(DscpRange const& r) { removeRange(dscp_, r, &Notifiee::onDscp); }
  void dscpDelAll() { removeRanges(dscp_, &Notifiee::onDscp); }

  /// Calls `f(RangeSetType, RangeColl<R> const&)` for the range sets of all fields, in the order of the
  /// types.
  template <class F>
  void forEachRangeColl(F f) const;
  /// The range set of one field by its type: adds or deletes a range. Ends beyond the bound raise
  /// Mox::RangeError for the fields whose ranges check it.
  void rangeIs(RangeSetType type, uint32_t start, uint32_t end);
  void rangeDel(RangeSetType type, uint32_t start, uint32_t end);

  /// Stamp of what the filter holds itself: ranges, flags, and which lists; not what the lists hold.
  Mox::Stamp stamp() const { return stamp_.get(); }
  /// 64-bit hash of everything that the filter says, public as that of a list: each field enters under
  /// a salt of its own, an absent list differs from an empty one, and the TCP flags count. O(members).
  uint64_t contentHash() const;
  /// Whether each range has its ends in order and within its field. O(ranges).
  bool rangesValid() const;
  uint32_t hash() const { return Mox::foldHash(contentHash()); }

 private:
  template <class R>
  struct RangeMember {
    using Range = R;
    RangeColl<R> RuleFilter::*coll;
    void (Notifiee::*on)(R const&);
  };
  /// Where the filter has its fields, in the order of RangeSetType.
  static constexpr auto rangeMembers();
  /// Calls `f(member)` for the field of a type.
  template <class F>
  static void withRangeMember(RangeSetType type, F f);

  template <class T, class V, class On>
  void ownIs(T& slot, V v, On on) {
    if (slot == v) return;
    stamp_.renew();
    attrIs(slot, std::move(v), on);
  }
  template <class R, class On>
  void addRange(RangeColl<R>& ranges, R const& r, On on) {
    if (ranges.contains(r)) return;
    stamp_.renew();
    memberIs(ranges, r, on);
  }
  template <class R, class On>
  void removeRange(RangeColl<R>& ranges, R const& r, On on) {
    if (!ranges.contains(r)) return;
    stamp_.renew();
    itemDel(ranges, r, on);
  }
  template <class R, class On>
  void removeRanges(RangeColl<R>& ranges, On on) {
    if (ranges.empty()) return;
    stamp_.renew();
    collDelAll(ranges, on);
  }

  ConfigStamp stamp_;
  Mox::Ptr<IpPrefixList> source_;
  Mox::Ptr<IpPrefixList> destination_;
  RangeColl<L4PortRange> sportRange_;
  RangeColl<L4PortRange> dportRange_;
  RangeColl<IcmpTypeRange> icmpType_;
  RangeColl<ProtoRange> proto_;
  bool matchTcpInit_ = false;
  bool matchTcpEstablished_ = false;
  RangeColl<LengthRange> length_;
  RangeColl<FragmentRange> fragment_;
  RangeColl<DscpRange> dscp_;
};

constexpr auto RuleFilter::rangeMembers() {
  return std::make_tuple(
      RangeMember<L4PortRange>{&RuleFilter::sportRange_, &Notifiee::onSportRange},
      RangeMember<L4PortRange>{&RuleFilter::dportRange_, &Notifiee::onDportRange},
      RangeMember<IcmpTypeRange>{&RuleFilter::icmpType_, &Notifiee::onIcmpType},
      RangeMember<ProtoRange>{&RuleFilter::proto_, &Notifiee::onProto},
      RangeMember<LengthRange>{&RuleFilter::length_, &Notifiee::onLength},
      RangeMember<FragmentRange>{&RuleFilter::fragment_, &Notifiee::onFragment},
      RangeMember<DscpRange>{&RuleFilter::dscp_, &Notifiee::onDscp});
}

template <class F>
void RuleFilter::forEachRangeColl(F f) const {
  std::apply(
      [&](auto const&... member) {
        size_t at = 0;
        (f(rangeFields[at++].type, this->*member.coll), ...);
      },
      rangeMembers());
}

}  // namespace Naxel
