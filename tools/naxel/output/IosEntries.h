#pragma once

/// One rule as entries of the IOS family's text.

#include "output/RuleView.h"

#include <functional>
#include <stdexcept>

namespace NaxelTool {

/// What the text cannot say about a rule.
class CannotSay : public std::runtime_error {
 public:
  explicit CannotSay(std::string const& what, std::string help = {})
      : std::runtime_error(what), help_(std::move(help)) {}
  ~CannotSay() override;
  std::string const& help() const { return help_; }

 private:
  std::string help_;
};

/// How entries that look at layer 4 are read where they say nothing of fragments.
enum class FragmentRule : uint8_t {
  layered,  ///< a permit lets later fragments through by addresses and protocol, a deny passes them on
  plain     ///< they do not match later fragments
};

/// The name of a group for a list that is more than one prefix.
using GroupNamer = std::function<std::string(Naxel::IpPrefixList const&)>;

/// The entries without their numbers, from "permit" or "deny" on: more than one where a rule has values
/// that one entry cannot hold, none where it matches nothing. `hasLaterPart` says that another rule lets
/// through what a layered permit does besides. Throws CannotSay.
std::vector<std::string> iosEntries(RuleView const& rule, FragmentRule fragments, bool hasLaterPart,
                                    GroupNamer const& groupOf);

/// "host 10.0.0.1", "10.0.0.0 0.0.0.255" with wildcard bits or a netmask, "2001:db8::/32".
std::string iosAddress(Lumox::IpGenPrefix const& prefix, bool netmask);

/// The protocols of a rule, where TCP flags say TCP.
IntervalSet iosProtocols(RuleView const& rule);

}  // namespace NaxelTool
