#pragma once

/// Why a packet gets its verdict in each ACL: what the chip looks up, which rule decides and what of it the
/// packet meets, which entry it hits; and why a rule of the user's choice does not decide.

#include "answers/Lookups.h"
#include "answers/RuleDemands.h"
#include "answers/RuleTargets.h"
#include "session/Session.h"

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace NaxelTool {

/// What became of a packet at one rule.
struct WhyNot {
  Naxel::AceIndex rule;
  bool decides = false;
  std::vector<FieldCheck> unmet;           ///< what the packet does not meet
  std::optional<Naxel::AceIndex> earlier;  ///< the rule that takes the packet though all is met
};

/// A field of an entry that is compared.
struct ComparedField {
  std::string field;
  std::optional<uint16_t> value;  ///< and its mask; none for a flag, which must hold
  uint16_t mask = 0;
};

struct AclExplanation {
  Mox::Ptr<Naxel::AclConfig> acl;
  std::optional<Naxel::AceIndex> rule;  ///< that decides by the rules
  Verify::Verdict found;                ///< by the tables
  bool agrees = true;
  // Where a rule decides and the tables agree:
  std::vector<FieldCheck> met;
  size_t entry = 0;  ///< of the rule, counted from 1
  size_t entries = 0;
  std::vector<ComparedField> compared;
  std::vector<WhyNot> whyNot;  ///< by the rules that were asked for
};

struct PacketExplanation {
  Verify::Packet packet;
  Verify::Labels labels;
  std::vector<LookupStep> lookups;
  std::vector<AclExplanation> acls;  ///< those of the packet's family, in the order of names
  std::vector<RuleTarget> foreign;   ///< rules that were asked for, in ACLs of the other family
  /// ACLs in which tables and rules disagree.
  size_t differences() const;
};

/// Looks the packet up in the ACL named `only`, or in all. `targets` are the rules of whyNot; if there are any, only
/// their ACLs are looked at.
PacketExplanation explainPacket(Session& session, RuleSet const& rules,
                                Verify::Packet const& packet, std::string const& only,
                                std::vector<RuleTarget> const& targets);

/// The packet as a line that can be given again; one that no parser yields in another form.
std::string packetShown(Verify::Packet const& packet);

/// Of many ACLs each has its verdict on a line and nothing more, unless `all` is wanted.
void print(std::ostream& out, PacketExplanation const& explanation, RuleSet const& rules,
           bool all = false);
/// As schema/naxel-explain.schema.json has it.
void printJson(std::ostream& out, PacketExplanation const& explanation, RuleSet const& rules);

}  // namespace NaxelTool
