#pragma once

/// Prefix lists that have a name: those that all files of a run share, and what lists are called where
/// they come from.

#include "input/Diagnostics.h"
#include "naxel/types/AclConfig.h"

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace NaxelTool {

/// A prefix list and what rules need to know of it.
struct NamedList {
  Mox::Ptr<Naxel::IpPrefixList> list;
  Lumox::AddressFamily af = Lumox::ipv4();
  bool everything = false;  ///< it matches every address
  std::string description;
  uint32_t file = 0;  ///< place of the file in RuleSet::files()
  Position at;        ///< of its name
};

class NamedLists {
 public:
  /// Adds a list that rules of any file may use. Returns the one that has the name already, or null.
  NamedList const* add(std::string const& name, NamedList&& list);
  NamedList const* find(std::string const& name) const;
  std::map<std::string, NamedList> const& all() const { return all_; }

  /// What a list is called in its file, for whoever writes it out again.
  void nameIs(Mox::Ptr<Naxel::IpPrefixList> list, std::string name);
  /// The list of that name: one that all files share, or else the only one that is called so where it comes
  /// from. Null where there is none, or several.
  Mox::Ptr<Naxel::IpPrefixList> named(std::string const& name) const;
  /// Null where it has no name.
  std::string const* nameOf(Naxel::IpPrefixList const& list) const;

  /// A side of a rule that is to be a list which may stand in a later file.
  struct Wanted {
    Mox::Ptr<Naxel::RuleConfig> rule;
    bool source = true;
    Lumox::AddressFamily af = Lumox::ipv4();  ///< of the rule's ACL
    std::string name;
    uint32_t file = 0;
    Position at;
  };
  void want(Wanted wanted) { wanted_.push_back(std::move(wanted)); }
  /// Gives the rules the lists that they want; an error for each that there is not, or that is of another
  /// family. `files` has their paths. Returns how many rules got none. The wants of one rule follow one
  /// another.
  size_t resolve(std::vector<std::string> const& files, Diagnostics& diagnostics);

 private:
  std::map<std::string, NamedList> all_;
  struct Name {
    Mox::Ptr<Naxel::IpPrefixList> list;  // lives on, so that no other list takes its address
    std::string name;
  };
  std::unordered_map<Naxel::IpPrefixList const*, Name> name_;
  std::vector<Wanted> wanted_;
};

}  // namespace NaxelTool
