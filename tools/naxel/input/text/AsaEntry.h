#pragma once

/// One entry of a list of an ASA:
///
///   extended permit|deny PROTOCOL SOURCE [PORTS] DESTINATION [PORTS|ICMP] [log ...] [inactive]
///   standard permit|deny DESTINATION
///
/// where PROTOCOL may be a group or object of services, and masks are netmasks.

#include "input/text/ObjectGroups.h"

namespace NaxelTool {

/// Which addresses "any" means in an entry.
struct AnyAddress {
  bool ipv4 = true;
  bool ipv6 = true;
};

/// Reads an entry from "permit" or "deny" on. Throws EntryError; of the kind `ineffective` for one that is
/// switched off.
Entry readAsaEntry(Words words, bool standard, AnyAddress any, TextContext& context,
                   ObjectGroups& groups);

/// What the entry says about one family: its services without those that the family does not have. No
/// services where it matches nothing there.
Entry inFamily(Entry entry, Lumox::AddressFamily af);

}  // namespace NaxelTool
