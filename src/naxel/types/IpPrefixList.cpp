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

IpPrefixList::IpPrefixList() : content_(Mox::makePtr<Content>()) {}

IpPrefixList::Content& IpPrefixList::ownContent() {
  // Copied only for a change to what somebody else holds as well: mostly the frozen copy that a set was
  // built from.
  if (content_->references() > 1) content_ = Mox::makePtr<Content>(*content_);
  stamp_.renew();
  digest_.reset();
  return *content_;
}

Mox::Ptr<IpPrefixList> IpPrefixList::copy() const {
  auto list = Mox::makePtr<IpPrefixList>();
  static_cast<void>(stamp());  // so that both have it
  list->stamp_ = stamp_;
  // Computed before it is handed on, so that it is computed once for both.
  list->digest_ = digest();
  list->content_ = content_;
  return list;
}

void IpPrefixList::insert(PrefixColl Content::*coll, Lumox::IpGenPrefix const& p, On on) {
  // Asked first: to write what is there already is no change, and must not cost the list its stamp.
  if (((*content_).*coll).contains(p)) return;
  (ownContent().*coll).insertAbsent(p);
  notify(on, p);
}

void IpPrefixList::erase(PrefixColl Content::*coll, Lumox::IpGenPrefix const& p, On on) {
  if (((*content_).*coll).contains(p)) itemDel(ownContent().*coll, p, on);
}

void IpPrefixList::eraseAll(PrefixColl Content::*coll, On on) {
  if (!((*content_).*coll).empty()) collDelAll(ownContent().*coll, on);
}

void IpPrefixList::addrIs(Lumox::IpGenPrefix const& p) {
  insert(&Content::addr, p, &Notifiee::onAddr);
}
void IpPrefixList::addrDel(Lumox::IpGenPrefix const& p) {
  erase(&Content::addr, p, &Notifiee::onAddr);
}
void IpPrefixList::addrDelAll() { eraseAll(&Content::addr, &Notifiee::onAddr); }
void IpPrefixList::exceptAddrIs(Lumox::IpGenPrefix const& p) {
  insert(&Content::exceptAddr, p, &Notifiee::onExceptAddr);
}
void IpPrefixList::exceptAddrDel(Lumox::IpGenPrefix const& p) {
  erase(&Content::exceptAddr, p, &Notifiee::onExceptAddr);
}
void IpPrefixList::exceptAddrDelAll() { eraseAll(&Content::exceptAddr, &Notifiee::onExceptAddr); }

IpPrefixList::Digest IpPrefixList::computeDigest() const {
  Families families;
  uint64_t place = 0;
  auto const sum = [&](PrefixColl const& coll, bool excepted) {
    uint64_t total = 0;
    for (Lumox::IpGenPrefix const& p : coll) {
      total += p.hash64();
      Mox::KeyedHash h;
      p.placeWords(h);
      // A prefix that is excepted must not count like one that is a member.
      if (excepted) h.word(1);
      // A sum, because both sets are unordered.
      place += h.finish();
      (p.af() == Lumox::ipv4() ? families.ipv4 : families.ipv6) = true;
    }
    return total;
  };
  uint64_t const members = sum(addr(), false);
  uint64_t const exceptions = sum(exceptAddr(), true);
  uint64_t const hash = Mox::hashCombine(Mox::hashCombine(members, exceptions),
                                         Mox::hashCombine(addrs(), exceptAddrs()));
  return {hash, place, families};
}

uint32_t IpPrefixList::hash() const { return Mox::foldHash(contentHash()); }

bool IpPrefixList::isEqual(Mox::Ptr<Dedupable const> const& other) const {
  auto const* list = dynamic_cast<IpPrefixList const*>(other.get());
  return list && isEqual(*list);
}

bool IpPrefixList::isEqual(IpPrefixList const& other) const {
  if (content_ == other.content_ || stamp() == other.stamp()) return true;
  auto const same = [](PrefixColl const& a, PrefixColl const& b) {
    return a.size() == b.size() &&
           std::all_of(a.begin(), a.end(),
                       [&](Lumox::IpGenPrefix const& p) { return b.contains(p); });
  };
  // The place is cached and mostly tells lists apart; that they are equal only their members say.
  bool const equal = place() == other.place() && same(addr(), other.addr()) &&
                     same(exceptAddr(), other.exceptAddr());
  // Else every rule that shares one of them would have its members compared again.
  if (equal) stamp_.agreeWith(other.stamp_);
  return equal;
}

}  // namespace Naxel
