#pragma once

/// A list of prefixes with exceptions, as a rule names it for its source or destination.

#include "lumox/IpGenPrefix.h"
#include "mox/HashMap.h"
#include "naxel/types/ConfigStamp.h"
#include "naxel/types/Dedupable.h"

#include <memory>

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
  PrefixColl const& exceptAddr() const {
    return content_->exceptAddr ? *content_->exceptAddr : noPrefixes();
  }
  size_t exceptAddrs() const { return exceptAddr().size(); }
  bool exceptAddrHas(Lumox::IpGenPrefix const& p) const { return exceptAddr().contains(p); }
  void exceptAddrIs(Lumox::IpGenPrefix const& p);
  void exceptAddrDel(Lumox::IpGenPrefix const& p);
  void exceptAddrDelAll();

  /// Stamp of what both sets hold. Lists of equal stamps have the same members.
  Mox::Stamp stamp() const { return stamp_.get(); }
  /// 64-bit hash of both sets, independent of insertion order: public, so different lists may be made
  /// that have the same one. O(members).
  uint64_t contentHash() const;
  /// The families of the prefixes in both sets. Found once after each change, as is the place.
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
    Content() = default;
    Content(Content const& o)
        : RefCounted(o),
          addr(o.addr),
          exceptAddr(o.exceptAddr ? std::make_unique<PrefixColl>(*o.exceptAddr) : nullptr) {}
    PrefixColl addr;
    std::unique_ptr<PrefixColl> exceptAddr;  // most lists have none
  };
  /// What is remembered of the content.
  struct Digest {
    uint64_t place = 0;
    Families families;
    bool known = false;
  };
  using On = void (Notifiee::*)(Lumox::IpGenPrefix const&);
  explicit IpPrefixList(Mox::Ptr<Content> content) : content_(std::move(content)) {}
  static PrefixColl const& noPrefixes();
  /// The content for a change: a copy where it is shared, and without what is remembered of it.
  Content& ownContent();
  /// One of the two sets, for a change.
  PrefixColl& ownColl(bool except);
  void insert(bool except, Lumox::IpGenPrefix const& p, On on);
  void erase(bool except, Lumox::IpGenPrefix const& p, On on);
  void eraseAll(bool except, On on);
  Digest const& digest() const {
    if (!digest_.known) digest_ = computeDigest();
    return digest_;
  }
  Digest computeDigest() const;

  ConfigStamp stamp_;
  mutable Digest digest_;
  Mox::Ptr<Content> content_;
};
inline Mox::Ptr<IpPrefixList> ipPrefixListFactory() { return Mox::makePtr<IpPrefixList>(); }

}  // namespace Naxel
