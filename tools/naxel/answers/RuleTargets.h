#pragma once

/// Rules that the user names.

#include "input/RuleSet.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace NaxelTool {

struct RuleTarget {
  std::string acl;
  Naxel::AceIndex rule;
};

/// There is no such rule; what() says so, and help() what may be meant.
class NoSuchRule : public std::invalid_argument {
 public:
  NoSuchRule(std::string const& text, std::string help)
      : std::invalid_argument(text), help_(std::move(help)) {}
  ~NoSuchRule() override;
  std::string const& help() const { return help_; }

 private:
  std::string help_;
};

/// The rules that `text` names: by the index, else by the name, else by the place FILE:LINE of a file that was
/// read, whose path may be shortened from the left at a slash; in every ACL that has such a rule, or with "ACL:" in
/// front in that one. `only` limits it to one ACL unless it is empty. In the order of ACLs and rules; never
/// empty. Throws NoSuchRule.
std::vector<RuleTarget> rulesNamed(std::string const& text, RuleSet const& rules,
                                   std::string const& only);

}  // namespace NaxelTool
