/// The scripts that are played: some fixed ones, and those that are drawn.

#include "naxel/testing/Pieces.h"
#include "naxel/testing/Player.h"
#include "naxel/testing/ScriptWriter.h"

namespace Naxel::Testing {

namespace {

// Rules that tell one mistake from another: nested prefixes, ranges side by side, flags, misses, both families.
constexpr char commonRules[] =
    "set a0 10 r0 src 10.0.0.0/8,!10.64.0.0/10 dport 80-90 proto 6 drop; "
    "set a0 20 r1 src 10.64.0.0/10 dst 10.32.0.0/11 sport 1-5,9 dport 91-100; "
    "set a0 30 r2 dst 10.0.0.0/9 sport 6-8 proto 17 tc=3; "
    "set a0 40 r3 proto 6 init drop log; "
    "set a0 50 r4 proto 6 est; "
    "set a0 60 r5 src 10.0.0.0/8,10.128.0.0/9 dst !10.32.0.0/11 dscp 0-7 len 64-1500 drop; "
    "set a2 10 r0 src 2001::/16,!2001:8000::/17 dport 443 proto 6; "
    "set a2 20 r1 dst 2001:4000::/18 icmp 1-3 proto 58 drop; "
    "set a2 30 r2 src 2001::/17 dst 2001::/16 proto 17; ";

/// "@rules" stands for those.
constexpr char const* scripts[] = {
    // One output: fields by value, then by wide labels, then with combinations.
    "@rules; kick",
    "widths roomy 7; @rules; kick",
    "width srcPort 8; width dstPort 8; width proto 4; width v4PrefixCombo 8; "
    "width v6PrefixCombo 8; width portCombo 8; @rules; kick",
    // Changes: less of a rule, a rule and an ACL less, another order, another action, and there and back. One ACL
    // changes each time, so that the output before is never all that is wrong.
    "width dstPort 6; set a0 10 r0 dport 1,3,5,7 drop; set a0 20 r1 src 10.0.0.0/8; "
    "set a0 30 r2 proto 17 drop; set a1 10 r0 proto 6; set b 1 r0 tc=1; kick; "
    "set a0 10 r0 dport 1,5 drop; set b 1 r0 tc=2; kick; "
    "del-rule a0 r2; set b 1 r0 tc=3; kick; del-acl a1; set b 1 r0 tc=4; kick; "
    "set a0 20 r1 src 10.0.0.0/9 drop; set b 1 r0 tc=5; kick; "
    "swap-index a0 10 20; set b 1 r0 tc=6; kick; toggle a0 r0 drop; kick; "
    "toggle a0 r0 drop; kick; kick; kick; kick",
    // In the place of the output before: under a policy, and under the other one.
    "room 12; set a0 10 r0 dport 80; set a0 20 r1 src 10.0.0.0/8 drop; kick; oversize a1 8; kick; "
    "set a0 30 r2 proto 6; kick; permit on; set a0 10 r0 dport 81 drop; kick",
    // More than there is room for, and what comes after.
    "room 12; set a0 10 r0 dport 80; kick; oversize a1 14; kick; set a0 20 r1 proto 17 drop; kick; "
    "oversize a1 2; kick",
    // Acquires that nobody loads.
    "room 20; oversize a0 8; kick; oversize a0 10; down-at acquire; kick; up; down-at acquire; "
    "kick; up; down-at acquire; kick; up; down-at acquire; kick; up; kick",
    // A load that a newer acquire comes upon.
    "set a0 10 r0 dport 80; kick; set a0 10 r0 dport 81 drop; request; until load; down; up; "
    "set a0 20 r1 proto 6; kick; set a0 10 r0 dport 82; request; until load; cancel; request; run",
    // The driver ends, at rest and under way; the chip keeps its tables, or not.
    "set a0 10 r0 dport 80 drop; set a1 10 r0 proto 6; kick; restart kept; run; "
    "set a0 10 r0 dport 81; kick; restart lost; run; set a0 20 r1 src 10.0.0.0/8; request; "
    "until acquire; restart kept; run; del-acl a1; request; until load; restart lost; run; kick",
    // And under a policy.
    "room 12; oversize a0 8; kick; oversize a0 9; down-at load; kick; restart kept; run; up; kick; "
    "oversize a0 7; request; until load; restart lost; run; oversize a0 40; request; "
    "until revert; restart kept; run",
    // What nobody was told of: the library ends with each request.
    "set a0 10 r0 dport 80; down-at acquire; kick; up; kick; set a0 10 r0 dport 81; down-at load; "
    "kick; up; kick; room 12; oversize a0 20; down-at revert; kick; up; kick",
};

constexpr Course courses[] = {
    {"world", 3, "@widths; code aligned|compact; 2..3*@new-acl; kick"},
    {"world", 1, "room 10..40; widths roomy 0..65535; 1..3*@new-acl; kick"},
    {"event", 4, "kick"},
    {"event", 7, "@edit"},
    {"event", 2, "@halfway"},
    {"event", 1, "@upheaval"},
    {"new-acl", 1, "1..5*set <acl.a> <index> <rule> <filter>"},
    {"edit", 4, "@new-acl"},
    {"edit", 4, "oversize <acl.a> 3..40; kick; oversize <acl.a> 0"},
    {"edit", 2, "oversize <acl.a> 3..40; kick"},
    {"halfway", 3, "request; pass 0..19"},
    {"halfway", 2, "request; pass 0..19; cancel|request"},
    {"halfway", 1, "request; until acquire|load|revert; @edit; cancel|request"},
    {"halfway", 2, "request; pass 0..19; @edit; request; pass 0..19"},
    {"upheaval", 2, "request; pass 0..19; down; 0..1*pass 0..9; up"},
    {"upheaval", 2, "down-at acquire|load|revert; @edit; kick; up"},
    {"upheaval", 2, "0..1*request; pass 0..19; restart kept|lost; 0..1*run"},
    {"upheaval", 1, "request; pass 0..19; down; restart kept|lost; 0..1*run; up"},
};

class LessonAuthor : ScriptWriter {
 public:
  explicit LessonAuthor(Dice& dice) : ScriptWriter(dice) {
    add(allEdits());
    add(Player::verbs());
    add(courses);
  }
  Script write(size_t events) {
    group("world");
    for (; events > 0; --events) group("event");
    for (char const* last : {"up", "kick"}) line(last);
    return std::move(script_);
  }

 private:
  void line(std::string const& text) override { script_.push_back(text); }
  Script script_;
};

}  // namespace

std::vector<Script> fixedScripts() {
  std::vector<Script> out;
  for (std::string text : scripts) {
    constexpr std::string_view name = "@rules; ";
    if (size_t const at = text.find(name); at != text.npos)
      text.replace(at, name.size(), commonRules);
    out.push_back(pieces(text, "; "));
  }
  return out;
}

Script drawnScript(uint64_t seed) {
  constexpr size_t events = 25;
  Dice dice(seed);
  return LessonAuthor(dice).write(events);
}

}  // namespace Naxel::Testing
