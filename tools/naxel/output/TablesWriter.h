#pragma once

/// Writes the tables of a kick as JSON. The same tables give the same bytes. The format is described
/// in docs/formats.md.

#include "input/RuleReading.h"
#include "naxel/control/RootTypes.h"
#include "naxel/loader/PDData.h"
#include "naxel/types/AclConfig.h"

#include <ostream>

namespace NaxelTool {

/// `acls` gives the rules their names; `data` is the output that the kick put in force; `source` says what
/// became of the entries of the rule files.
void writeTables(std::ostream& out, Naxel::RootStatus const& kick, Naxel::PDData const& data,
                 Naxel::AclConfigColl const& acls, ReadCounts const& source);

}  // namespace NaxelTool
