#pragma once

/// One rule of CONFIG_DB, from its fields.

#include "input/AclDraft.h"
#include "input/JsonAccess.h"

namespace NaxelTool::ConfigDb {

struct RuleFields {
  uint64_t priority = 0;
  EntryDraft entry;
};

/// `families` are those of the rule's table. Name and origin are left to the caller. Throws InputError,
/// UnsupportedError or NeverMatches.
RuleFields readRule(JsonFile const& file, JsonNode const& node, Families families);

/// The families of the packets that may match a rule, as far as its fields can be read; never fails.
Families familiesLeft(JsonFile const& file, JsonNode const& node);

/// The text of a value, which may be a number; `what` names it in errors.
std::string textOf(JsonFile const& file, JsonNode const& node, std::string_view what);

/// In capitals.
std::string upper(std::string_view text);

}  // namespace NaxelTool::ConfigDb
