#pragma once

/// All that two ACLs do differently, by the rules that decide. Only in builds that have the BDD library.
///
/// A change is a pair of rules, one of each ACL or none, of different actions such that some packet
/// is decided by the one before and by the other after. Rules that are the same on both sides
/// (ExactAlignment.h) are passed over; a change has a rule that is not on one of its sides at least. So each
/// of these rules is held against those of the other side that it meets:
///
///   open := what the rule matches
///   for each rule of the other side of another action, in their order:
///     while some packet lies in both: the two that decide it are the pair that is asked for, and that
///     is a change; or an earlier one of either side, and all that this one matches leaves `open`
///
/// What has left `open` need not come back: its decider on the rule's side is another one, or that
/// on the other side has been asked for before. A few packets drawn from the rules beforehand find most of the
/// changes without any diagram.
///
/// Cost: with few rules that differ, about that of so many questions of ExactStudy. Where all differ there
/// may be as many changes as pairs of rules; the effort bounds that.

#include "naxel/types/AclConfig.h"
#include "verify/ExactRuleRow.h"

#include <optional>
#include <vector>

namespace Verify {

/// One pair of rules that decide the same packets to another end.
struct VerdictChange {
  std::optional<Naxel::AceIndex> before;  ///< none: no rule matched
  std::optional<Naxel::AceIndex> after;
  Packet packet;  ///< one of them
};

struct VerdictChanges {
  /// Each pair once, by the rules before, then after; no rule comes last.
  std::vector<VerdictChange> all;
  size_t rulesOnlyBefore = 0;  ///< rules without a partner
  size_t rulesOnlyAfter = 0;
  /// Of these, how many could not be looked at in full. 0: there are no other changes.
  size_t rulesLeft = 0;
};

/// Of two ACLs of one family. There must be a BddTable. `effort` is the number of steps that may be taken, each
/// a packet looked up or two diagrams combined, and loses those that were.
VerdictChanges verdictChanges(Naxel::AclConfig const& before, Naxel::AclConfig const& after,
                              Exact::Among among, uint64_t& effort);

/// How the outcome of a packet has changed, the gravest first.
enum class ChangeKind : uint8_t {
  dropToPermit,
  noneToPermit,
  dropToNone,
  permitToDrop,
  noneToDrop,
  permitToNone,
  otherActions  ///< the verdict is the same
};
/// Null: no rule decides. One of them is not null.
ChangeKind changeKind(Naxel::NaxelActionValue const* before, Naxel::NaxelActionValue const* after);

}  // namespace Verify
