#pragma once

/// The agent's configuration: chips, and ACLs with the chips that they are for.
///
///     chip 0 rows 1024                     a chip, with room for so many entries in each of its banks
///     acl edge 0 1                         an ACL on these chips; its rules follow, one a line
///     10 permit proto 6 dport 80-89 src 10.0.0.0/8 except 10.1.0.0/16
///     20 deny                              first match decides, in the order of the numbers
///
/// Words are separated by spaces; what follows # is a comment.

#include "naxel/agent/Agent.h"

#include <functional>
#include <map>

namespace ExampleAgent {

struct Rule {
  Naxel::AceIndex index;
  bool denies = false;
  std::vector<std::function<void(Naxel::RuleFilter&)>> matches;  ///< what the rule asks of a packet
};

struct Config {
  std::map<uint8_t, size_t> rows;                                    ///< by chip
  std::map<uint8_t, std::map<std::string, std::vector<Rule>>> acls;  ///< by chip and name
};

/// Throws std::runtime_error with file, line and reason, also where a kick could not take the rules.
Config readConfig(std::string const& path);

/// Makes the ACLs of a chip those of the configuration, and no others.
void writeAcls(Naxel::AclConfigColl& to, Config const& config);

}  // namespace ExampleAgent
