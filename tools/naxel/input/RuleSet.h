#pragma once

/// The ACLs of one run, whatever files they come from, and where each of their rules stands there.

#include "input/NamedLists.h"
#include "naxel/types/AclConfig.h"

#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace NaxelTool {

/// Where a rule comes from.
struct RuleOrigin {
  uint32_t file = 0;  ///< place of the file in RuleSet::files()
  Position at;        ///< of the entry, or of the end of the list for an implied rule
  /// Number of the entry within its ACL, counted from 0: the rules that one entry was expanded to have
  /// the same one.
  uint32_t entry = 0;
  /// The format implies the rule; no line says it.
  bool implied = false;
  std::string description;  ///< remark or description of the source
};

/// Entries of the source, not rules: one entry may become several rules.
struct ReadCounts {
  size_t read = 0;
  size_t compiled = 0;
  size_t reported = 0;  ///< refused or left out, each with a message
  /// How many of the reported ones the verdicts of the source depend on: without them those of the rules
  /// are different ones.
  size_t leftOut = 0;
};

class RuleSet {
 public:
  explicit RuleSet(Obel::ChipId chip) : acls_(Mox::makePtr<Naxel::AclConfigColl>(chip)) {}

  Mox::Ptr<Naxel::AclConfigColl> const& acls() const { return acls_; }

  /// Makes an ACL. Throws InputError at the given place when there is one of that name.
  Mox::Ptr<Naxel::AclConfig> aclIs(std::string const& name, Lumox::AddressFamily af,
                                   std::string const& file, Position at);

  /// A text about an ACL, from its source; empty where there is none.
  void descriptionIs(std::string const& acl, std::string text);
  std::string const& description(std::string const& acl) const;

  NamedLists& lists() { return lists_; }
  NamedLists const& lists() const { return lists_; }

  /// The paths of all files that rules come from.
  std::vector<std::string> const& files() const { return files_; }
  /// Adds a path, and returns its place in files().
  uint32_t fileIs(std::string path);

  /// What the sources held; answers about the rules say whether they are about all of it.
  ReadCounts const& counts() const { return counts_; }
  void countsIs(ReadCounts const& counts) { counts_ = counts; }

  void originIs(std::string const& acl, Naxel::AceIndex rule, RuleOrigin origin);
  /// Null where nothing is known of it.
  RuleOrigin const* origin(std::string const& acl, Naxel::AceIndex rule) const;
  /// "edge.cfg:12", or nothing.
  std::string originText(std::string const& acl, Naxel::AceIndex rule) const;

 private:
  Mox::Ptr<Naxel::AclConfigColl> acls_;
  std::map<std::string, std::string> file_;  // by name of the ACL
  std::unordered_map<std::string, std::string> description_;
  NamedLists lists_;
  std::vector<std::string> files_;
  ReadCounts counts_;
  std::unordered_map<std::string, std::unordered_map<uint32_t, RuleOrigin>> origin_;
};

/// Reads "10.0.0.0/8" or "2001:db8::/32"; bits behind the length are kept. Throws
/// std::invalid_argument with a text for the user.
Lumox::IpGenPrefix prefixFromText(std::string_view text);
/// The same, and an address without a length stands for itself alone.
Lumox::IpGenPrefix prefixOrHostFromText(std::string_view text);

/// A list that matches every address constrains nothing, and costs entries if it is taken at its
/// word: a rule leaves it out.
bool matchesEverything(Naxel::IpPrefixList const& list);

}  // namespace NaxelTool
