#pragma once

/// The lists of a text as ACLs: their entries as rules, and the ends that their dialect implies.

#include "input/text/EntryRules.h"
#include "input/text/NumberedList.h"
#include "input/text/ObjectGroups.h"

namespace NaxelTool {

/// Adds an ACL of that name for a list of the IOS family. Counts and reports its entries.
void readIosList(NumberedList const& list, std::string const& name, TextContext& context,
                 ObjectGroups& groups);

/// Says why an entry gives no rules, and counts it.
void reportEntry(RuleReading& reading, EntryError const& error);

/// Says once in a file that entries which look at layer 4 do not match later fragments, where the
/// documentation of the dialect does not say what becomes of these.
void noteFragments(TextContext& context, Entry const& entry, Place place);

}  // namespace NaxelTool
