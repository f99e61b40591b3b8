#pragma once

/// Copies of configurations, down to the last value. What an agent ought not to do, such as an index that
/// refers to a rule of no name, is copied as it is.

#include "naxel/types/AclConfig.h"

namespace Verify {

/// Makes `to` say what `from` says, and writes only what differs.
void copyAcls(Naxel::AclConfigColl const& from, Naxel::AclConfigColl& to);
void copyAcl(Naxel::AclConfig const& from, Naxel::AclConfig& to);
/// Into a filter that says nothing yet; the lists are new ones.
void copyFilter(Naxel::RuleFilter const& from, Naxel::RuleFilter& to);

}  // namespace Verify
