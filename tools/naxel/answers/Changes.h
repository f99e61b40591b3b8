#pragma once

/// What is different between two rule sets: which packets are treated differently, and what the driver of
/// a switch that runs the old rules has to write for the new ones.

#include "input/ChipReader.h"
#include "input/RuleReading.h"
#include "input/RuleSet.h"
#include "naxel/loader/RowCounts.h"
#include "verify/Packet.h"

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace NaxelTool {

/// Old name, new name.
using AclNames = std::pair<std::string, std::string>;

struct ChangeOptions {
  /// ACLs that are compared although their names differ.
  std::vector<AclNames> pairs;
  /// How many steps the search for changes may take.
  uint64_t effort = 2'000'000;
};

/// A rule that decides, or that none does.
struct DecidingRule {
  std::optional<Naxel::AceIndex> index;
  std::string name;                    ///< "rule 20 'web' (edge.json:24)"; "no rule"
  std::string text;                    ///< "permit  tcp any > web:80"; empty for no rule
  std::string action;                  ///< "permit, log"; empty for no rule
  Mox::Ptr<Naxel::RuleFilter> filter;  ///< null for a rule without one, and for no rule
};

/// Packets that one rule decided, and now another one decides to another end.
struct PacketChange {
  size_t kind = 0;  ///< place in changeTitles(), the gravest first
  AclNames acl;
  std::shared_ptr<DecidingRule const> before;  ///< many changes may share one
  std::shared_ptr<DecidingRule const> after;
  Verify::Packet packet;  ///< one of them
};
/// "drop -> permit", ..., "other actions".
std::vector<std::string> const& changeTitles();

/// An ACL that cannot be compared.
struct AclChange {
  enum class Kind : uint8_t { onlyBefore, onlyAfter, otherFamily };
  Kind kind = Kind::onlyBefore;
  std::string acl;
  size_t rules = 0;  ///< of the one side, or before
};

/// What the chip has to be told, if both kicks succeed.
struct RowChanges {
  Naxel::TableRowCounts rows;
  bool isHitless = true;
  std::string policy;  ///< that stands meanwhile; empty if hitless
  /// Why one of the kicks has failed, a sentence each; then nothing else holds.
  std::vector<std::string> failure;
  bool isOldTheFailure = false;
};

struct Changes {
  /// Of the two sources: what stands there and was left out is not compared.
  ReadCounts readBefore;
  ReadCounts readAfter;
  size_t aclsCompared = 0;
  size_t aclsEqual = 0;           ///< of these
  std::vector<AclNames> renamed;  ///< compared under two names, because each side has just one
  std::vector<AclChange> acls;
  std::vector<PacketChange> packets;  ///< by kind, ACL and rules
  NamedLists names;                   ///< of the new rules
  size_t rulesOnlyBefore =
      0;  ///< in the ACLs compared: without a rule that is the same and in the same order
  size_t rulesOnlyAfter = 0;
  size_t rulesLeft = 0;  ///< of these, not looked at in full
  std::optional<RowChanges> rows;

  bool isSame() const { return acls.empty() && packets.empty() && rulesLeft == 0; }
};

/// Compares the two for every packet that can be. Throws std::invalid_argument for pairs of names that there
/// are not, and in builds without the BDD library.
Changes changesOf(RuleSet const& before, RuleSet const& after, ChangeOptions const& options);

/// Kicks a chip with the old rules and then with the new ones. ACLs in `renamed` keep their old name.
RowChanges rowChangesOf(RuleSet const& before, RuleSet const& after, ChipSetup const& chip,
                        std::vector<AclNames> const& renamed,
                        std::function<void(std::string const&)> const& step = nullptr);

/// At most `limit` of the packets' changes.
void print(Changes const& changes, size_t limit, std::ostream& out);
/// schema/naxel-diff.schema.json
void printJson(Changes const& changes, std::ostream& out);

}  // namespace NaxelTool
