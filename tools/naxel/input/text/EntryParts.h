#pragma once

/// The parts that entries of all dialects are made of, taken word by word. All throw EntryError.

#include "input/text/ObjectGroups.h"

namespace NaxelTool {

/// Takes a protocol by name or number; empty for any. The names for any are those of the family.
ValueSet takeProtocol(Words& words, TextContext const& context, Lumox::AddressFamily af);

/// Takes the address of an entry of the IOS family, or of a group.
AddressMatch takeAddress(Words& words, TextContext& context, ObjectGroups& groups);

/// Takes the ports of a side if there are any.
ValueSet takePorts(Words& words, TextContext const& context, ObjectGroups& groups,
                   ValueSet const& protocols);
/// The ports of a group behind an address.
ValueSet portsOfGroup(Word name, ObjectGroups& groups, ValueSet const& protocols);

/// Takes an ICMP type if there is one, for the protocol icmp or icmp6. A code cannot be matched.
ValueSet takeIcmpType(Words& words, TextContext const& context, uint32_t protocol);

/// Whether ports make sense for these protocols.
bool hasPorts(ValueSet const& protocols);
/// The protocol if it is a single one; else 0.
uint32_t singleProtocol(ValueSet const& protocols);

}  // namespace NaxelTool
