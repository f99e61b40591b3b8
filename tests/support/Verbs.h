#pragma once

/// What may stand in a script of the simulator, in one table: how an event reads, how often it is drawn, and what
/// it does.

#include "support/SimChip.h"

#include <optional>
#include <span>
#include <sstream>

namespace Test {

class Simulator;

/// One line of a script while it is played.
struct Event {
  Simulator& simulator;
  SimChip& chip;  // of an event for all: any
  std::istringstream in;
  std::istringstream pattern;
  std::optional<size_t> choice = {};  // of the pattern, that the last word was

  [[noreturn]] void unknown() const;
  /// The next word. Throws std::invalid_argument if there is none, or another one than the pattern has.
  std::string word();
  /// The next word as a number; where the pattern has a choice of words, its place among those.
  uint32_t number();
  Naxel::AceIndex index() { return Naxel::AceIndex(number()); }
  template <class E>
  E named() {
    auto const e = Mox::instanceFromText<E>(word());
    if (!e) unknown();
    return *e;
  }
  /// The ACL of the next word, and its rule of the one behind. Throw Nothing if there is none of that name.
  struct Nothing {};
  Mox::Ptr<Naxel::AclConfig> acl() { return there(chip.acls().acl(word())); }
  Mox::Ptr<Naxel::RuleConfig> rule() { return rule(*acl()); }
  Mox::Ptr<Naxel::RuleConfig> rule(Naxel::AclConfig const& acl) {
    return there(acl.ruleByName(word()));
  }
  template <class T>
  static T there(T const& p) {
    return p ? p : throw Nothing();
  }
};

/// A pattern is the text of an event, the words of it that are drawn being:
///   a|b      one of several
///   0..9     a number
///   <kind>   something that Script.cpp knows how to draw
struct Verb {
  char const* group;  // that it is drawn from; empty for none
  unsigned weight;
  char const* pattern;
  void (*apply)(Event&);
  bool forAll = false;  // and so has no number of a chip in front
};

std::span<Verb const> allVerbs();
/// The words at its beginning that say which one it is.
std::string_view nameOf(Verb const& verb);
/// The one that a line begins with; null for none.
Verb const* verbOf(std::string const& line);

}  // namespace Test
