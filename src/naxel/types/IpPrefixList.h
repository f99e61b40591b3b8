#pragma once

/// A list of prefixes with exceptions, as a rule names it for its source or destination.

#include "lumox/IpGenPrefix.h"
#include "mox/HashMap.h"
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

  IpPrefixList() : content_(Mox::makePtr<Content>()) {}
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

  /// 64-bit hash of both sets, independent of insertion order. Computed once after each change, as is
  /// the next.
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
  /// True for a prefix list with the same members in both sets.
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
    Families families;
  };
  IpPrefixList(Mox::Ptr<Content> content, Digest const& digest)
      : digest_(digest), content_(std::move(content)) {}
  /// The content for a change: a copy where it is shared, and without its digest.
  Content& ownContent();
  Digest const& digest() const {
    if (!digest_) digest_ = computeDigest();
    return *digest_;
  }
  Digest computeDigest() const;

  mutable std::optional<Digest> digest_;
  Mox::Ptr<Content> content_;
};

}  // namespace Naxel
