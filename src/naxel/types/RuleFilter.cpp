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

uint64_t RuleFilter::contentHash() const {
  uint64_t salt = 1;
  uint64_t h = 0;
  auto const list = [&](Mox::Ptr<IpPrefixList> const& l) {
    h = Mox::hashCombine(h, l ? Mox::hashCombine(salt, l->contentHash()) : salt);
    ++salt;
  };
  list(source_);
  list(destination_);
  forEachRangeColl([&](auto const& ranges) {
    uint64_t sum = 0;
    for (auto const& r : ranges) sum += r.hash64();
    if (!ranges.empty())
      h = Mox::hashCombine(h, Mox::hashCombine(salt, Mox::hashCombine(sum, ranges.size())));
    ++salt;
  });
  return Mox::hashCombine(h, (matchTcpInit_ ? 1u : 0u) | (matchTcpEstablished_ ? 2u : 0u));
}

}  // namespace Naxel
