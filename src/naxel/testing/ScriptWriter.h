#pragma once

/// Draws scripts from a grammar of verbs and courses.

#include "naxel/testing/Edits.h"
#include "naxel/testing/Vocabulary.h"

#include <map>
#include <string>
#include <vector>

namespace Naxel::Testing {

/// A course of several events. A step is an event or, with a @, one of a group; "0..2*" before it says how
/// often. A <kind.name> is the same one throughout a course.
struct Course {
  char const* group;
  size_t weight;
  char const* steps;
};

class ScriptWriter {
 public:
  explicit ScriptWriter(Dice& dice) : dice_(dice), words_(dice) {}
  virtual ~ScriptWriter() = default;

  /// All that may be drawn, before the first draw.
  template <class E>
  void add(std::span<Verb<E> const> verbs) {
    for (Verb<E> const& verb : verbs)
      if (verb.weight > 0) groups_[verb.group].push_back({verb.group, verb.weight, verb.pattern});
  }
  void add(std::span<Course const> courses) {
    for (Course const& course : courses) groups_[course.group].push_back(course);
  }
  /// From now on one group stands for another one as well.
  void replace(std::string const& group, std::string const& by) { groups_[group] = groups_.at(by); }

  /// Draws a course of a group and plays it.
  void group(std::string const& name);
  /// Each event of it comes here.
  virtual void line(std::string const& text) = 0;

 private:
  using Names = std::map<std::string, std::string>;

  void play(std::string const& steps);
  /// Draws the words of a pattern that are not fixed.
  std::string filled(std::string const& pattern, Names& names);
  /// One of the words between bars; a number, if that is two with dots between.
  std::string drawn(std::string const& word);
  std::string some(std::string const& kind);
  /// Which family an ACL mostly has; a prefix of the other one makes a kick fail.
  Lumox::AddressFamily family();

  Dice& dice_;
  Vocabulary words_;
  std::map<std::string, std::vector<Course>> groups_;
  bool v6_ = false;
};

}  // namespace Naxel::Testing
