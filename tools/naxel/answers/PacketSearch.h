#pragma once

/// Whether there is a packet within given bounds that gets some verdict, or the proof that there is none.
/// Packets are those that there can be (Verify::Packet::isPossible()).

#include "input/RuleSet.h"
#include "packets/PatternText.h"
#include "verify/Packet.h"

#include <optional>
#include <string>
#include <vector>

namespace NaxelTool {

/// What is to become of the packet.
struct WantedVerdict {
  enum class Kind : uint8_t { permit, drop, noRule, rule, log, setDscp, setTc, sflow };

  Kind kind = Kind::permit;
  std::string rule;  ///< as rulesNamed() takes it
};

/// The words "permit", "drop", "none", "log", "dscp", "tc", "sflow" and "rule:R". Throws
/// std::invalid_argument.
WantedVerdict wantedFromText(std::string const& text);

struct SearchQuestion {
  static constexpr uint64_t defaultEffort = 1'000'000;

  std::vector<Pattern> in;     ///< one of them matches the packet; none: any
  std::vector<Pattern> notIn;  ///< none of them does
  std::string acl;             ///< in this one only; empty: in all
  WantedVerdict wanted;
  size_t count = 1;  ///< at most so many packets of each ACL
  uint64_t effort = defaultEffort;
};

struct FoundPacket {
  Verify::Packet packet;
  std::optional<Naxel::AceIndex> rule;  ///< that decides; none: no rule matches
};

/// What was found in one ACL.
struct SearchedAcl {
  enum class Outcome : uint8_t {
    found,
    none,
    outOfBounds,  ///< no packet lies within the bounds, whatever the rules say
    undecided     ///< the effort did not suffice
  };

  std::string name;
  Outcome outcome = Outcome::none;
  std::vector<FoundPacket> packets;  ///< each decided by another rule
  bool isComplete = false;           ///< no other rule decides such a packet
  /// Where there are none, the proof: each packet within the bounds is matched by one of these rules, and by
  /// no rule before that one that would be wanted; or, with `hitsNone`, by none at all.
  std::vector<Naxel::AceIndex> takenBy;
  bool hitsNone = false;
};

struct SearchReport {
  std::vector<SearchedAcl> acls;  ///< by name; those of the family that the bounds are of

  bool has(SearchedAcl::Outcome outcome) const;
};

/// Throws NoSuchRule, and std::invalid_argument for an ACL that there is not, and in a build that has no
/// decision diagrams.
SearchReport searchPackets(RuleSet const& rules, SearchQuestion const& question);

void print(SearchReport const& report, RuleSet const& rules, bool all, std::ostream& out);
/// schema/naxel-search.schema.json
void printJson(SearchReport const& report, RuleSet const& rules, std::ostream& out);

}  // namespace NaxelTool
