#pragma once

/// A list of prefixes with exceptions, as a rule names it for its source or destination.

#include "lumox/IpGenPrefix.h"
#include "mox/HashMap.h"
#include "mox/Stamp.h"
#include "naxel/types/Dedupable.h"

#include <optional>

namespace Naxel {

/// Matches an address that lies in a prefix of `addr` and in none of `exceptAddr`; a list with only
/// except prefixes matches nothing. Prefixes are kept as written, host bits included; matching
/// ignores host bits. Written by the agent, which must not leave a list without any member in the
/// configuration when it requests a kick.
class NAXEL_EXPORT IpPrefixList : public Dedupable {
 public:
  using PrefixColl = Mox::HashSet<Lumox::IpGenPrefix>;

  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onAddr(Lumox::IpGenPrefix const&) {}
    virtual void onExceptAddr(Lumox::IpGenPrefix const&) {}
  };

  IpPrefixList();
  std::string_view fwkType() const override { return "Naxel::IpPrefixList"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// The prefixes that match.
  PrefixColl const& addr() const { return content_->addr; }
  size_t addrs() const { return addr().size(); }
  bool addrHas(Lumox::IpGenPrefix const& p) const { return addr().contains(p); }
  void addrIs(Lumox::IpGenPrefix const& p);
  void addrDel(Lumox::IpGenPrefix const& p);
  void addrDelAll();

  /// The prefixes carved out of `addr`.
  PrefixColl const& exceptAddr() const { return content_->exceptAddr; }
  size_t exceptAddrs() const { return exceptAddr().size(); }
  bool exceptAddrHas(Lumox::IpGenPrefix const& p) const { return exceptAddr().contains(p); }
  void exceptAddrIs(Lumox::IpGenPrefix const& p);
  void exceptAddrDel(Lumox::IpGenPrefix const& p);
  void exceptAddrDelAll();

  /// Stamp of what both sets hold. Lists of equal stamps have the same members.
  Mox::Stamp stamp() const { return stamp_.get(); }
  /// 64-bit hash of both sets, independent of insertion order: public, so different lists may be made
  /// that have the same one. Computed once after each change, as are the next two.
  uint64_t contentHash() const { return digest().hash; }
  /// The families of the prefixes in both sets.
  struct Families {
    bool ipv4 = false;
    bool ipv6 = false;
    /// Whether there is any prefix.
    bool any() const { return ipv4 || ipv6; }
    /// Whether all prefixes are of that family.
    bool only(Lumox::AddressFamily af) const { return af == Lumox::ipv4() ? !ipv6 : !ipv4; }
  };
  Families families() const { return digest().families; }
  uint32_t hash() const override;
  uint64_t place() const override { return digest().place; }
  /// True for a prefix list with the same members in both sets. At once for lists of equal stamps,
  /// else by a look at the members.
  bool isEqual(Mox::Ptr<Dedupable const> const& other) const override;
  bool isEqual(IpPrefixList const& other) const;

  /// A list with the members that this one has now. Both share them until one of them changes.
  Mox::Ptr<IpPrefixList> copy() const;

 private:
  struct Content : Mox::RefCounted {
    PrefixColl addr;
    PrefixColl exceptAddr;
  };
  /// What is remembered of the content.
  struct Digest {
    uint64_t hash;
    uint64_t place;
    Families families;
  };
  using On = void (Notifiee::*)(Lumox::IpGenPrefix const&);
  /// The content for a change: a copy where it is shared, and without what is remembered of it.
  Content& ownContent();
  void insert(PrefixColl Content::*coll, Lumox::IpGenPrefix const& p, On on);
  void erase(PrefixColl Content::*coll, Lumox::IpGenPrefix const& p, On on);
  void eraseAll(PrefixColl Content::*coll, On on);
  Digest const& digest() const {
    if (!digest_) digest_ = computeDigest();
    return *digest_;
  }
  Digest computeDigest() const;

  Mox::ContentStamp stamp_;
  mutable std::optional<Digest> digest_;
  Mox::Ptr<Content> content_;
};
inline Mox::Ptr<IpPrefixList> ipPrefixListFactory() { return Mox::makePtr<IpPrefixList>(); }

}  // namespace Naxel
