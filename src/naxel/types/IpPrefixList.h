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

  /// 64-bit hash of both sets, independent of insertion order. Computed once after each change.
  uint64_t contentHash() const;
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
  IpPrefixList(Mox::Ptr<Content> content, uint64_t hash)
      : contentHash_(hash), content_(std::move(content)) {}
  /// The content for a change: a copy where it is shared, and without its hash.
  Content& ownContent();

  mutable std::optional<uint64_t> contentHash_;
  Mox::Ptr<Content> content_;
};

}  // namespace Naxel
