#pragma once

/// One entry of a list of the IOS family:
///
///   permit|deny PROTOCOL SOURCE [PORTS] DESTINATION [PORTS] [OPTIONS]
///   permit|deny SOURCE [log]                                             in a standard list

#include "input/text/ObjectGroups.h"

namespace NaxelTool {

/// Reads an entry from "permit" or "deny" on. Throws EntryError.
Entry readIosEntry(Words words, Lumox::AddressFamily af, bool standard, TextContext& context,
                   ObjectGroups& groups);

}  // namespace NaxelTool
