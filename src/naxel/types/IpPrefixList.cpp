#include "naxel/types/IpPrefixList.h"

#include <algorithm>

namespace Naxel {

Mox::AttributeTable const& IpPrefixList::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&IpPrefixList::hash>("hash"), Mox::operation("isEqual"),
      Mox::attribute<&IpPrefixList::addr>("addr"),
      Mox::attribute<&IpPrefixList::exceptAddr>("exceptAddr")};
  return table;
}

IpPrefixList::Content& IpPrefixList::ownContent() {
  if (content_->references() > 1) content_ = Mox::makePtr<Content>(*content_);
  digest_.reset();
  return *content_;
}

Mox::Ptr<IpPrefixList> IpPrefixList::copy() const {
  return Mox::Ptr<IpPrefixList>(new IpPrefixList(content_, digest()));
}

void IpPrefixList::addrIs(Lumox::IpGenPrefix const& p) {
  memberIs(ownContent().addr, p, &Notifiee::onAddr);
}
void IpPrefixList::addrDel(Lumox::IpGenPrefix const& p) {
  itemDel(ownContent().addr, p, &Notifiee::onAddr);
}
void IpPrefixList::addrDelAll() { collDelAll(ownContent().addr, &Notifiee::onAddr); }
void IpPrefixList::exceptAddrIs(Lumox::IpGenPrefix const& p) {
  memberIs(ownContent().exceptAddr, p, &Notifiee::onExceptAddr);
}
void IpPrefixList::exceptAddrDel(Lumox::IpGenPrefix const& p) {
  itemDel(ownContent().exceptAddr, p, &Notifiee::onExceptAddr);
}
void IpPrefixList::exceptAddrDelAll() {
  collDelAll(ownContent().exceptAddr, &Notifiee::onExceptAddr);
}

IpPrefixList::Digest IpPrefixList::computeDigest() const {
  Families families;
  auto const sum = [&](PrefixColl const& coll) {
    uint64_t total = 0;
    for (Lumox::IpGenPrefix const& p : coll) {
      total += p.hash64();
      (p.af() == Lumox::ipv4() ? families.ipv4 : families.ipv6) = true;
    }
    return total;
  };
  uint64_t const hash = Mox::hashCombine(Mox::hashCombine(sum(addr()), sum(exceptAddr())),
                                         Mox::hashCombine(addrs(), exceptAddrs()));
  return {hash, families};
}

uint32_t IpPrefixList::hash() const { return Mox::foldHash(contentHash()); }

bool IpPrefixList::isEqual(Mox::Ptr<Dedupable const> const& other) const {
  auto const* list = dynamic_cast<IpPrefixList const*>(other.get());
  return list && isEqual(*list);
}

bool IpPrefixList::isEqual(IpPrefixList const& other) const {
  if (content_ == other.content_) return true;
  auto const same = [](PrefixColl const& a, PrefixColl const& b) {
    return a.size() == b.size() &&
           std::all_of(a.begin(), a.end(),
                       [&](Lumox::IpGenPrefix const& p) { return b.contains(p); });
  };
  return contentHash() == other.contentHash() && same(addr(), other.addr()) &&
         same(exceptAddr(), other.exceptAddr());
}

}  // namespace Naxel
