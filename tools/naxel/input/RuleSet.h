#pragma once

/// The ACLs of one run, whatever files they come from, and what all readers of rules share.

#include "input/Errors.h"
#include "naxel/types/AclConfig.h"

#include <map>
#include <string>
#include <string_view>

namespace NaxelTool {

class RuleSet {
 public:
  explicit RuleSet(Obel::ChipId chip) : acls_(Mox::makePtr<Naxel::AclConfigColl>(chip)) {}

  Mox::Ptr<Naxel::AclConfigColl> const& acls() const { return acls_; }

  /// Makes an ACL. Throws InputError at the given place when there is one of that name.
  Mox::Ptr<Naxel::AclConfig> aclIs(std::string const& name, Lumox::AddressFamily af,
                                   std::string const& file, Position at);

 private:
  Mox::Ptr<Naxel::AclConfigColl> acls_;
  std::map<std::string, std::string> file_;  // by name of the ACL
};

/// Reads "10.0.0.0/8" or "2001:db8::/32"; bits behind the length are kept. Throws
/// std::invalid_argument with a text for the user.
Lumox::IpGenPrefix prefixFromText(std::string_view text);

/// A list that matches every address constrains nothing, and costs entries if it is taken at its
/// word: a rule leaves it out.
bool matchesEverything(Naxel::IpPrefixList const& list);

}  // namespace NaxelTool
