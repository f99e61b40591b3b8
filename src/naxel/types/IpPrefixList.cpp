#include "naxel/types/IpPrefixList.h"

#include <algorithm>

namespace Naxel {

namespace {

bool haveSameMembers(IpPrefixList::PrefixColl const& a, IpPrefixList::PrefixColl const& b) {
  if (a.size() != b.size()) return false;
  if (a.size() == 1) return *a.begin() == *b.begin();
  return std::all_of(a.begin(), a.end(),
                     [&](Lumox::IpGenPrefix const& p) { return b.contains(p); });
}

}  // namespace

Mox::AttributeTable const& IpPrefixList::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::derivedAttribute<&IpPrefixList::hash>("hash"), Mox::operation("isEqual"),
      Mox::attribute<&IpPrefixList::addr>("addr"),
      Mox::attribute<&IpPrefixList::exceptAddr>("exceptAddr")};
  return table;
}

IpPrefixList::IpPrefixList() : content_(Mox::makePtr<Content>()) {}

IpPrefixList::PrefixColl const& IpPrefixList::noPrefixes() {
  static PrefixColl const none;
  return none;
}

IpPrefixList::Content& IpPrefixList::ownContent() {
  // Copied only for a change to what somebody else holds as well: mostly the frozen copy that a set was
  // built from.
  if (content_->references() > 1) content_ = Mox::makePtr<Content>(*content_);
  stamp_.renew();
  digest_.known = false;
  return *content_;
}

IpPrefixList::PrefixColl& IpPrefixList::ownColl(bool except) {
  Content& content = ownContent();
  if (!except) return content.addr;
  if (!content.exceptAddr) content.exceptAddr = std::make_unique<PrefixColl>();
  return *content.exceptAddr;
}

Mox::Ptr<IpPrefixList> IpPrefixList::copy() const {
  Mox::Ptr<IpPrefixList> list(new IpPrefixList(content_));
  static_cast<void>(stamp());  // so that both have it
  list->stamp_ = stamp_;
  // Computed before it is handed on, so that it is computed once for both.
  list->digest_ = digest();
  return list;
}

void IpPrefixList::insert(bool except, Lumox::IpGenPrefix const& p, On on) {
  // Asked first: to write what is there already is no change, and must not cost the list its stamp.
  if ((except ? exceptAddr() : addr()).contains(p)) return;
  ownColl(except).insertAbsent(p);
  notify(on, p);
}

void IpPrefixList::erase(bool except, Lumox::IpGenPrefix const& p, On on) {
  if ((except ? exceptAddr() : addr()).contains(p)) itemDel(ownColl(except), p, on);
}

void IpPrefixList::eraseAll(bool except, On on) {
  if (!(except ? exceptAddr() : addr()).empty()) collDelAll(ownColl(except), on);
}

void IpPrefixList::addrIs(Lumox::IpGenPrefix const& p) { insert(false, p, &Notifiee::onAddr); }
void IpPrefixList::addrDel(Lumox::IpGenPrefix const& p) { erase(false, p, &Notifiee::onAddr); }
void IpPrefixList::addrDelAll() { eraseAll(false, &Notifiee::onAddr); }
void IpPrefixList::exceptAddrIs(Lumox::IpGenPrefix const& p) {
  insert(true, p, &Notifiee::onExceptAddr);
}
void IpPrefixList::exceptAddrDel(Lumox::IpGenPrefix const& p) {
  erase(true, p, &Notifiee::onExceptAddr);
}
void IpPrefixList::exceptAddrDelAll() { eraseAll(true, &Notifiee::onExceptAddr); }

IpPrefixList::Digest IpPrefixList::computeDigest() const {
  Digest all;
  auto const add = [&](PrefixColl const& coll, bool excepted) {
    coll.forEach([&](Lumox::IpGenPrefix const& p) {
      Mox::KeyedHash h;
      p.placeWords(h);
      // A prefix that is excepted must not count like one that is a member.
      if (excepted) h.word(1);
      // A sum, because both sets are unordered.
      all.place += h.finish();
      (p.af() == Lumox::ipv4() ? all.families.ipv4 : all.families.ipv6) = true;
    });
  };
  add(addr(), false);
  if (content_->exceptAddr) add(*content_->exceptAddr, true);
  all.known = true;
  return all;
}

uint64_t IpPrefixList::contentHash() const {
  auto const sum = [](PrefixColl const& coll) {
    uint64_t total = 0;
    coll.forEach([&](Lumox::IpGenPrefix const& p) { total += p.hash64(); });
    return total;
  };
  return Mox::hashCombine(Mox::hashCombine(sum(addr()), sum(exceptAddr())),
                          Mox::hashCombine(addrs(), exceptAddrs()));
}

uint32_t IpPrefixList::hash() const { return Mox::foldHash(contentHash()); }

bool IpPrefixList::isEqual(Mox::Ptr<Dedupable const> const& other) const {
  auto const* list = dynamic_cast<IpPrefixList const*>(other.get());
  return list && isEqual(*list);
}

bool IpPrefixList::isEqual(IpPrefixList const& other) const {
  if (content_ == other.content_ || stamp() == other.stamp()) return true;
  // The place is remembered and mostly tells lists apart; that they are equal only their members say.
  bool const excepts = content_->exceptAddr || other.content_->exceptAddr;
  bool const equal = place() == other.place() &&
                     haveSameMembers(content_->addr, other.content_->addr) &&
                     (!excepts || haveSameMembers(exceptAddr(), other.exceptAddr()));
  // Else every rule that shares one of them would have its members compared again.
  if (equal) stamp_.agreeWith(other.stamp_);
  return equal;
}

}  // namespace Naxel
