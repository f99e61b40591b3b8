#pragma once

/// Whether a set of rules is sound: what is wrong, odd or idle in it, exactly and for every packet that
/// there can be (Verify::Packet::isPossible()).
///
/// Rules that one entry of the source was expanded to count as one: what is said holds for all of them
/// together, and rules among them may cover one another. The last rule that a format implies is never
/// complained about.

#include "input/RuleSet.h"
#include "verify/Packet.h"

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace NaxelTool {

/// A kind of finding. The codes stay as they are.
struct FindingKind {
  std::string_view code;
  Severity severity;
  std::string_view text;  ///< what it means, a clause
};
/// All of them, the most important first.
std::vector<FindingKind> const& findingKinds();

struct Finding {
  FindingKind const* kind = nullptr;
  /// The rules that it is about, all of one entry; none where it is about a list.
  std::string acl;
  std::vector<Naxel::AceIndex> rules;
  size_t entryRules = 1;  ///< how many rules that entry has
  std::string list;       ///< name of the list that it is about
  std::string place;      ///< "edge.json:24"; empty where it is unknown
  std::string text;       ///< what is wrong, a clause behind the name of the rule or list
  /// Other rules of the ACL that it is because of, one for each entry, ascending.
  std::vector<Naxel::AceIndex> others;
};

struct CheckedRule {
  enum class Reached : uint8_t { yes, no, matchesNothing, undecided };

  Naxel::AceIndex index;
  Reached reached = Reached::undecided;
  std::optional<Verify::Packet> witness;  ///< a packet that the rule decides, where it is reached
};

struct CheckedAcl {
  std::string name;
  size_t entries = 0;
  std::vector<CheckedRule> rules;  ///< ascending
};

struct CheckReport {
  /// By kind, then by ACL and rule; lists by name.
  std::vector<Finding> findings;
  std::vector<CheckedAcl> acls;

  size_t count(Severity severity) const;
  size_t rules() const;
  size_t entries() const;
  size_t reached() const;
};

struct CheckOptions {
  static constexpr uint64_t defaultEffort = 2'000'000;
  /// How many rules the searches of the whole run may ask for what they match. What is left open then is a
  /// finding.
  uint64_t effort = defaultEffort;
  std::set<std::string_view> leftOut;  ///< codes that nobody wants to see, nor wait for
  /// Told before each ACL.
  std::function<void(std::string const& acl)> tell = [](std::string const&) {};
};

/// Throws std::invalid_argument in a build that has no decision diagrams. Cost: mostly a few
/// look-ups per rule (verify/ExactStudy.h); at most `effort` steps.
CheckReport check(RuleSet const& rules, CheckOptions const& options);

/// What the user reads: at most `limit` findings of a kind, and with `witnesses` a packet for each rule.
void print(CheckReport const& report, RuleSet const& rules, size_t limit, bool witnesses,
           std::ostream& out);
/// schema/naxel-check.schema.json
void printJson(CheckReport const& report, RuleSet const& rules, std::ostream& out);

}  // namespace NaxelTool
