#pragma once

/// A prefix trie of one address family.
///
/// The trie is flat: the prefixes stand in one array in natural order, which is the pre-order of
/// the tree, and each has the position of its parent, found for all of them in one pass with a
/// stack of ancestors. So a trie of n prefixes is two arrays, a walk is a scan, and a search is a
/// binary search followed by a climb. The array is put in order at the first question after
/// insertions, O(n) when they came in order and O(n log n) otherwise; alternating insertions and
/// questions is the one use that it is not made for.

#include "lumox/IpGenPrefix.h"
#include "mox/Ptr.h"

#include <vector>

namespace Routing {

/// What a walk calls for every prefix.
class NAXEL_EXPORT TrieGenWalkCallback : public Mox::RefCounted {
 public:
  /// A result of 0 ends the walk, any other goes on. The trie must not be changed in the call.
  virtual int handlePrefix(Lumox::IpGenPrefix const& prefix) = 0;
};

class NAXEL_EXPORT TrieGen : public Mox::RefCounted {
 public:
  TrieGen(Mox::Name name, Lumox::AddressFamily af) : name_(std::move(name)), af_(af) {}

  Mox::Name const& name() const { return name_; }
  Lumox::AddressFamily af() const { return af_; }
  size_t size() const;

  /// Inserts (true) or removes (false) a prefix of the trie's family without host bits.
  void routeIs(Lumox::IpGenPrefix const& prefix, bool present);
  /// Makes room for this many prefixes.
  void reserve(size_t n) { prefixes_.reserve(n); }
  bool has(Lumox::IpGenPrefix const& prefix) const;

  /// The longest stored prefix that contains `prefix`, which need not be stored, and is shorter. If
  /// there is none, noParent(). O(1) for the prefix that a running walk has just handed out.
  Lumox::IpGenPrefix findParent(Lumox::IpGenPrefix const& prefix) const;
  /// A prefix of the other family, which this trie can never hold.
  Lumox::IpGenPrefix noParent() const;

  /// Calls back for every stored prefix under `root`, itself included, each before any longer
  /// prefix under it, in natural order.
  void preOrderWalk(Lumox::IpGenPrefix const& root, TrieGenWalkCallback& callback) const;

 private:
  static constexpr uint32_t none = ~uint32_t{0};

  void settle() const;
  /// Position of the first prefix that is not less than `prefix`.
  size_t position(Lumox::IpGenPrefix const& prefix) const;

  Mox::Name name_;
  Lumox::AddressFamily af_;
  mutable std::vector<Lumox::IpGenPrefix> prefixes_;
  mutable std::vector<uint32_t> parents_;  // by position; valid while settled
  mutable bool settled_ = true;
  mutable size_t cursor_ = 0;  // position that a walk has reached
};

}  // namespace Routing
