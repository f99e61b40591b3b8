#pragma once

/// The parts of a rule as our own JSON has them. Each function throws InputError at the value's place.

#include "input/JsonAccess.h"
#include "input/NamedLists.h"
#include "input/RuleDraft.h"

namespace NaxelTool {

/// A number, a name that IANA has for one, a text "first-last", or an array of these, which must not be
/// empty.
RuleDraft::Ranges readRanges(JsonFile const& file, JsonNode const& node,
                             Naxel::RangeField const& field);

Naxel::NaxelActionValue readAction(JsonFile const& file, JsonNode const& node);

/// An array of prefixes, or an object with "addr", "except" and "description". Name and place are left
/// to the caller.
NamedList readPrefixList(JsonFile const& file, JsonNode const& node);

/// The members of `rule` for the fields that are ranges and for the TCP flags, into the draft.
void readMatch(JsonFile const& file, JsonNode const& rule, RuleDraft& draft);

}  // namespace NaxelTool
