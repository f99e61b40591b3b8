#pragma once

/// Rules of entries. One entry becomes several rules where it has several kinds of services, and where it means
/// something special for later fragments.
///
/// A packet lacks ports, ICMP type and TCP flags behind its first fragment, and what a packet lacks counts as
/// 0. What an entry that looks at these makes of such fragments is one of two things:
///
/// - layered: a permit lets them through if addresses and protocol match; a deny does not apply to them. The
///   permit gets a second rule without layer 4 and with the offsets 1 and above, the deny the offset 0.
/// - plain: such an entry does not match them. It gets the offset 0 where it would match zeros.

#include "input/text/TextContext.h"

namespace NaxelTool {

/// Writes the rules of one list for one address family, in the order of its entries.
class EntryRules {
 public:
  /// The rules go to `acl`.
  EntryRules(TextContext& context, Mox::Ptr<Naxel::AclConfig> acl, bool layeredFragments)
      : context_(context), acl_(std::move(acl)), layered_(layeredFragments) {}

  /// Writes the rules of an entry, or of several that one line stands for; their addresses match something
  /// in the family. The first rule has the name of the number, and its index if that lies behind all before;
  /// the others are named "NUMBER-2" and so on. Throws EntryError.
  void entryIs(std::vector<Entry> const& entries, uint64_t number, Word at,
               std::string description);
  /// Writes a rule that stands behind all entries, and gives its filter, which matches every packet.
  Naxel::RuleFilter& endIs(std::string const& name, bool permit, Position at, bool implied,
                           std::string description = {});

 private:
  TextContext& context_;
  Mox::Ptr<Naxel::AclConfig> acl_;
  bool layered_;
  uint32_t entries_ = 0;
};

}  // namespace NaxelTool
