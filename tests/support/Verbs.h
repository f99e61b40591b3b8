#pragma once

/// What may stand in a script of the simulator, in one table: how an event reads, how often it is drawn, and what
/// it does.

#include "support/SimChip.h"

#include <functional>
#include <span>
#include <sstream>

namespace Test {

class Simulator;

/// One line of a script while it is played.
struct Event {
  Simulator& simulator;
  SimChip& chip;  // of an event for all: any
  std::istringstream in;

  [[noreturn]] void unknown() const;
  /// The next word, as it is or in some meaning. Throws std::invalid_argument if it has none.
  std::string word();
  uint32_t number();
  Naxel::AceIndex index() { return Naxel::AceIndex(number()); }
  /// True for the first of two words.
  bool is(std::string const& yes, std::string const& no);
  bool on() { return is("on", "off"); }
  template <class E>
  E named() {
    auto const e = Mox::instanceFromText<E>(word());
    if (!e) unknown();
    return *e;
  }
  /// Null if there is none of that name.
  Mox::Ptr<Naxel::AclConfig> acl() { return chip.acls().acl(word()); }
  Mox::Ptr<Naxel::RuleConfig> rule();
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
