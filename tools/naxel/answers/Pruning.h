#pragma once

/// A smaller rule set that treats every packet as the one that was read, and what has become of the rules that
/// it lacks.

#include "input/ChipReader.h"
#include "input/RuleReading.h"
#include "input/RuleSet.h"

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace NaxelTool {

struct PruneOptions {
  /// Adjacent rules of one action that differ in one field become one rule.
  bool merge = false;
  /// How many steps each of the searches may take: for spare rules, and for a difference at the end.
  uint64_t effort = 2'000'000;
};

/// A rule that is not there any more. One that the format of the source implies is no line of it, and not among
/// them.
struct PrunedRule {
  enum class Why : uint8_t { matchesNothing, decidesNothing, sameWithout, merged };
  std::string acl;
  uint32_t index = 0;
  Why why = Why::matchesNothing;
  std::string name;  ///< "rule 20 'web' (edge.json:24)"
  std::string text;  ///< "permit  tcp any > web:80"
  /// By name: the rules that do the same, or the one that this was merged into.
  std::vector<std::string> because;
  std::string field;  ///< in which merged rules differed: "destination", "dport"
};

struct PrunedAcl {
  std::string name;
  size_t before = 0;  ///< rules, without those that the format implies
  size_t after = 0;
};

/// Entries of the rules in the tables of a chip; none where they do not fit.
struct PruneCosts {
  std::optional<size_t> before;
  std::optional<size_t> after;
};

struct Pruning {
  ReadCounts read;  ///< entries that were left out are not in what is written either
  std::vector<PrunedAcl> acls;
  std::vector<PrunedRule> rules;  ///< by ACL and index
  size_t undecided = 0;           ///< rules that stay because the effort did not suffice
  bool isProved =
      false;          ///< every packet is treated as before; the rules must not be used otherwise
  std::string doubt;  ///< why it is not proved, a sentence
  std::optional<PruneCosts> costs;

  size_t before() const;
  size_t after() const;
};

/// Takes rules out of `rules`; whatever is known of the others stays. Throws std::invalid_argument in
/// builds without the BDD library.
Pruning prune(RuleSet& rules, PruneOptions const& options);

/// Whether another rule set treats every packet as `before` does: what is different, or why that cannot be
/// told, a sentence; empty if it is proved that nothing is. As prune(), it throws where it cannot prove.
std::string differenceOf(Naxel::AclConfigColl const& before, Naxel::AclConfigColl const& after,
                         uint64_t effort);

/// How many entries rules take on a chip; none where they do not fit.
std::optional<size_t> entriesOf(Mox::Ptr<Naxel::AclConfigColl> const& acls, ChipSetup const& chip);

/// At most `limit` of the rules. What is not proved is not printed.
void print(Pruning const& pruning, size_t limit, std::ostream& out);
/// schema/naxel-prune.schema.json
void printJson(Pruning const& pruning, std::ostream& out);

}  // namespace NaxelTool
