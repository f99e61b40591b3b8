#pragma once

/// Rules as short texts, for tests and scripts.

#include "naxel/types/AclConfig.h"

#include <string_view>

namespace Naxel::Testing {

/// Puts rules into a configuration. One rule per line:
///
///   ACL INDEX NAME [src P,P,!P] [dst ...] [FIELD R,R] [init] [est] [drop] [log] [tc=N]
///
/// P is a prefix, !P an except prefix, FIELD the beginning of a range field's name, R a number or FIRST-LAST. A rule of a name that is there
/// already is replaced. "af ACL ipv6" sets an ACL's family, "acl NAME" makes an ACL without rules.
/// Throws std::invalid_argument on anything else.
void addRules(AclConfigColl& coll, std::string_view text);

/// The range field whose name begins with a word of three letters or more; null for none.
RangeField const* rangeFieldOf(std::string_view word);
/// The filter of one rule in the form above, without ACL, index and name.
void fillFilter(RuleConfig& rule, std::string_view text);

}  // namespace Naxel::Testing
