#include "naxel/types/RuleFilter.h"

#include "naxel/types/RuleHash.h"

namespace Naxel {

Mox::AttributeTable const& RuleFilter::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&RuleFilter::source_>("source"),
      Mox::attribute<&RuleFilter::destination_>("destination"),
      Mox::attribute<&RuleFilter::sportRange_>("sportRange"),
      Mox::attribute<&RuleFilter::dportRange_>("dportRange"),
      Mox::attribute<&RuleFilter::icmpType_>("icmpType"),
      Mox::attribute<&RuleFilter::proto_>("proto"),
      Mox::attribute<&RuleFilter::matchTcpInit_>("matchTcpInit"),
      Mox::attribute<&RuleFilter::matchTcpEstablished_>("matchTcpEstablished"),
      Mox::attribute<&RuleFilter::length_>("length"),
      Mox::attribute<&RuleFilter::fragment_>("fragment"),
      Mox::attribute<&RuleFilter::dscp_>("dscp"),
      Mox::derivedAttribute<&RuleFilter::hash>("hash")};
  return table;
}

Mox::Ptr<IpPrefixList> RuleFilter::sourceIs() {
  if (!source_) sourceIs(Mox::makePtr<IpPrefixList>());
  return source_;
}

Mox::Ptr<IpPrefixList> RuleFilter::destinationIs() {
  if (!destination_) destinationIs(Mox::makePtr<IpPrefixList>());
  return destination_;
}

template <class F>
void RuleFilter::withRangeMember(RangeSetType type, F f) {
  std::apply(
      [&](auto const&... member) {
        size_t at = 0;
        ((rangeFields[at++].type == type ? f(member) : void()), ...);
      },
      rangeMembers());
}

void RuleFilter::rangeIs(RangeSetType type, uint32_t start, uint32_t end) {
  withRangeMember(type, [&](auto const& member) {
    using R = typename std::remove_cvref_t<decltype(member)>::Range;
    addRange(this->*member.coll, R(start, end), member.on);
  });
}

void RuleFilter::rangeDel(RangeSetType type, uint32_t start, uint32_t end) {
  withRangeMember(type, [&](auto const& member) {
    using R = typename std::remove_cvref_t<decltype(member)>::Range;
    removeRange(this->*member.coll, R(start, end), member.on);
  });
}

bool RuleFilter::rangesValid() const {
  bool valid = true;
  forEachRangeColl([&](RangeSetType, auto const& ranges) {
    using R = typename std::remove_cvref_t<decltype(ranges)>::value_type;
    ranges.forEach([&](R const& r) {
      valid = valid && r.rangeStart() <= r.rangeEnd() && r.rangeEnd() <= R::bound;
    });
  });
  return valid;
}

uint64_t RuleFilter::contentHash() const {
  FilterHash hash(matchTcpInit_, matchTcpEstablished_);
  forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    hash.ranges(
        type, ranges, [](auto const& r) { return r.rangeStart(); },
        [](auto const& r) { return r.rangeEnd(); });
  });
  return hash.finish(source_.get(), destination_.get());
}

}  // namespace Naxel
