#include "naxel/types/RuleFilter.h"

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
      Mox::attribute<&RuleFilter::hash>("hash")};
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

namespace {

// Every field is mixed with a number of its own, so that content which moves from one field to another
// changes the hash.
enum : uint64_t { sourceSalt = 1, destinationSalt, firstRangeSalt };

}  // namespace

RuleFilter::OwnDigest RuleFilter::computeOwnDigest() const {
  uint64_t hash = (matchTcpInit_ ? 1u : 0u) | (matchTcpEstablished_ ? 2u : 0u);
  bool valid = true;
  forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    uint64_t const salt = firstRangeSalt + static_cast<uint64_t>(type);
    using R = typename std::remove_cvref_t<decltype(ranges)>::value_type;
    // The number of ranges is part of it, so that no range of one field can be read as the beginning of the
    // next.
    if (!ranges.empty()) hash = Mox::hashCombine(hash, Mox::hashCombine(salt, ranges.size()));
    ranges.forEach([&](R const& r) {
      hash = Mox::hashCombine(hash, r.orderKey());
      valid = valid && r.rangeStart() <= r.rangeEnd() && r.rangeEnd() <= R::bound;
    });
  });
  return {hash, valid};
}

uint64_t RuleFilter::contentHash() const {
  auto const list = [](uint64_t salt, IpPrefixList const* l) {
    return l ? Mox::hashCombine(salt, l->contentHash()) : salt;
  };
  return Mox::hashCombine(Mox::hashCombine(ownDigest().hash, list(sourceSalt, source_.get())),
                          list(destinationSalt, destination_.get()));
}

}  // namespace Naxel
