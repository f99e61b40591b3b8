#pragma once

/// The 64-bit hash of what a rule says, from its parts: of a rule as the agent wrote it, and of one as it was
/// compiled. It is a public function, so different rules of equal hashes can be computed.

#include "naxel/types/Action.h"
#include "naxel/types/IpPrefixList.h"
#include "naxel/types/MatchFields.h"

#include <string_view>

namespace Naxel {

/// The part of the filter: flags first, then the fields in the order of RangeSetType, then the lists.
class FilterHash {
 public:
  explicit FilterHash(bool tcpInit = false, bool tcpEstablished = false)
      : hash_((tcpInit ? 1u : 0u) | (tcpEstablished ? 2u : 0u)) {}

  /// The ranges of a field, ascending; `start(r)` and `end(r)` are the ends of one. None are as no call.
  template <class Ranges, class Start, class End>
  void ranges(RangeSetType type, Ranges const& all, Start start, End end) {
    if (all.empty()) return;
    // The number of ranges is part of it, so that no range of one field can be read as the beginning of the
    // next.
    uint64_t const salt = firstRangeSalt + static_cast<uint64_t>(type);
    hash_ = Mox::hashCombine(hash_, Mox::hashCombine(salt, all.size()));
    for (auto const& r : all)
      hash_ = Mox::hashCombine(hash_, uint64_t{start(r)} << 32 | uint64_t{end(r)});
  }
  uint64_t finish(IpPrefixList const* source, IpPrefixList const* destination) const {
    auto const list = [](uint64_t salt, IpPrefixList const* l) {
      return l ? Mox::hashCombine(salt, l->contentHash()) : salt;
    };
    return Mox::hashCombine(Mox::hashCombine(hash_, list(sourceSalt, source)),
                            list(destinationSalt, destination));
  }

 private:
  // Every field is mixed with a number of its own, so that content which moves from one field to another
  // changes the hash.
  enum : uint64_t { sourceSalt = 1, destinationSalt, firstRangeSalt };
  uint64_t hash_;
};

inline uint64_t ruleHash(std::string_view name, NaxelActionValue const& action, uint64_t filter) {
  return Mox::hashCombine(Mox::hashCombine(Mox::hashText(name), action.hash64()), filter);
}

}  // namespace Naxel
