#pragma once

/// What rules take in the tables of a chip, by compiling them: once for the chip as it is, and again for each
/// change of the chip or of the rules whose effect is asked for. Estimates would mislead, because what a rule takes
/// depends on the labels of all others.
///
/// Cost. A kick for each trial; it starts from what the one before has left, so a change of one rule costs less than
/// the first kick.

#include "input/ChipReader.h"
#include "session/Session.h"
#include "softchip/Table.h"

#include <optional>
#include <vector>

namespace NaxelTool {

/// What the tables of an output take.
struct TableSizes {
  SoftChip::PerTable<uint64_t> rows;
  /// Bits that the rows match: of a prefix the whole address, of a range its first and last value, of a
  /// combination both labels, of an entry the key of its ACL. What a row yields is not counted.
  SoftChip::PerTable<uint64_t> bits;

  uint64_t entries() const { return rows[SoftChip::Table::aclEntries]; }
  uint64_t allBits() const;
};
TableSizes sizesOf(Naxel::PDData const& data);

/// A copy that shares nothing.
ChipSetup copyOf(ChipSetup const& chip);

class Trials {
 public:
  /// The chip's tables count as unlimited. `acls` may be changed between kicks.
  Trials(ChipSetup const& chip, Mox::Ptr<Naxel::AclConfigColl> acls);

  /// Compiles for that chip. True on success; otherwise session() knows why it failed.
  bool kick(ChipSetup const& chip);
  Session& session() { return session_; }
  Session const& session() const { return session_; }
  /// How often kick() has been called.
  size_t kicks() const { return kicks_; }
  /// Of the last kick; none where it failed.
  std::optional<TableSizes> const& sizes() const { return sizes_; }

 private:
  Session session_;
  std::optional<TableSizes> sizes_;
  size_t kicks_ = 0;
};

/// Takes rules out of their ACLs for as long as it lives.
class RulesTakenOut {
 public:
  explicit RulesTakenOut(Naxel::AclConfigColl const& acls) : acls_(acls) {}
  RulesTakenOut(RulesTakenOut const&) = delete;
  RulesTakenOut& operator=(RulesTakenOut const&) = delete;
  ~RulesTakenOut();

  void takeOut(std::string const& acl, Naxel::AceIndex rule);

 private:
  struct Rule {
    Mox::Ptr<Naxel::AclConfig> acl;
    Naxel::AceIndex index;
    Mox::Ptr<Naxel::RuleConfig> rule;
  };
  Naxel::AclConfigColl const& acls_;
  std::vector<Rule> rules_;
};

}  // namespace NaxelTool
