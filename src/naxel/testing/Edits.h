#pragma once

/// Lines of scripts, and those of them that edit a chip's configuration, in one table: how an edit reads, how
/// often it is drawn, and what it does.

#include "acl/ParamConfig.h"
#include "mox/Enum.h"
#include "naxel/loader/HwCapability.h"
#include "naxel/types/AclConfig.h"

#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>

namespace Naxel::Testing {

/// The words of one line behind the name of its event, held against those of the pattern.
struct Words {
  std::istringstream in;
  std::istringstream pattern;
  std::optional<size_t> choice = {};  // of the pattern, that the last word was

  [[noreturn]] void unknown() const;
  /// The next word. Throws std::invalid_argument if there is none, or another one than the pattern has.
  std::string word();
  /// The next word as a number; where the pattern has a choice of words, its place among those.
  uint32_t number();
  AceIndex index() { return AceIndex(number()); }
  template <class E>
  E named() {
    auto const e = Mox::instanceFromText<E>(word());
    if (!e) unknown();
    return *e;
  }
};

/// One edit while it is made.
struct Edit : Words {
  AclConfigColl& acls;
  ChipHwCapability& capability;
  Acl::ParamConfig& params;

  /// The ACL of the next word, and its rule of the one behind. Throw Nothing if there is none of that name.
  struct Nothing {};
  Mox::Ptr<AclConfig> acl() { return there(acls.acl(word())); }
  Mox::Ptr<RuleConfig> rule() { return rule(*acl()); }
  Mox::Ptr<RuleConfig> rule(AclConfig const& acl) { return there(acl.ruleByName(word())); }
  template <class T>
  static T there(T const& p) {
    return p ? p : throw Nothing();
  }
};

/// A pattern is the text of an event, the words of it that are drawn being:
///   a|b      one of several
///   0..9     a number
///   <kind>   something that ScriptWriter knows how to draw
template <class E>
struct Verb {
  char const* group;  // that it is drawn from; empty for none
  size_t weight;
  char const* pattern;
  void (*apply)(E&);
  bool forAll = false;  // it is about no chip
};

/// The words at the beginning of a pattern that say which event it is.
std::string_view nameOfPattern(std::string_view pattern);
/// True if these are the first words of a line.
bool beginsWith(std::string_view line, std::string_view name);
/// The verb that a line begins with; null for none.
template <class E>
Verb<E> const* verbOf(std::span<Verb<E> const> verbs, std::string_view line) {
  for (Verb<E> const& verb : verbs)
    if (beginsWith(line, nameOfPattern(verb.pattern))) return &verb;
  return nullptr;
}

std::span<Verb<Edit> const> allEdits();

}  // namespace Naxel::Testing
