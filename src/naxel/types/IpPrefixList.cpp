#include "naxel/types/IpPrefixList.h"

#include <algorithm>

namespace Naxel {

Mox::AttributeTable const& IpPrefixList::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&IpPrefixList::hash>("hash"), Mox::operation("isEqual"),
      Mox::attribute<&IpPrefixList::addr_>("addr"),
      Mox::attribute<&IpPrefixList::exceptAddr_>("exceptAddr")};
  return table;
}

void IpPrefixList::addrIs(Lumox::IpGenPrefix const& p) {
  contentHash_.reset();
  memberIs(addr_, p, &Notifiee::onAddr);
}
void IpPrefixList::addrDel(Lumox::IpGenPrefix const& p) {
  contentHash_.reset();
  itemDel(addr_, p, &Notifiee::onAddr);
}
void IpPrefixList::addrDelAll() {
  contentHash_.reset();
  collDelAll(addr_, &Notifiee::onAddr);
}
void IpPrefixList::exceptAddrIs(Lumox::IpGenPrefix const& p) {
  contentHash_.reset();
  memberIs(exceptAddr_, p, &Notifiee::onExceptAddr);
}
void IpPrefixList::exceptAddrDel(Lumox::IpGenPrefix const& p) {
  contentHash_.reset();
  itemDel(exceptAddr_, p, &Notifiee::onExceptAddr);
}
void IpPrefixList::exceptAddrDelAll() {
  contentHash_.reset();
  collDelAll(exceptAddr_, &Notifiee::onExceptAddr);
}

uint64_t IpPrefixList::contentHash() const {
  if (!contentHash_) {
    auto const sum = [](PrefixColl const& coll) {
      uint64_t total = 0;
      for (Lumox::IpGenPrefix const& p : coll) total += p.hash64();
      return total;
    };
    contentHash_ = Mox::hashCombine(Mox::hashCombine(sum(addr_), sum(exceptAddr_)),
                                    Mox::hashCombine(addr_.size(), exceptAddr_.size()));
  }
  return *contentHash_;
}

uint32_t IpPrefixList::hash() const { return Mox::OneAtATime().bytes(contentHash()).finish(); }

bool IpPrefixList::isEqual(Mox::Ptr<Dedupable const> const& other) const {
  auto const* list = dynamic_cast<IpPrefixList const*>(other.get());
  if (!list) return false;
  if (list == this) return true;
  auto const same = [](PrefixColl const& a, PrefixColl const& b) {
    return a.size() == b.size() &&
           std::all_of(a.begin(), a.end(),
                       [&](Lumox::IpGenPrefix const& p) { return b.contains(p); });
  };
  return contentHash() == list->contentHash() && same(addr_, list->addr_) &&
         same(exceptAddr_, list->exceptAddr_);
}

}  // namespace Naxel
