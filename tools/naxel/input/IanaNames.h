#pragma once

/// Names of protocols, ports and code points as IANA's registries have them, for rule files of our own.
/// Formats of others have tables of their own, which differ.

#include "naxel/types/MatchFields.h"

#include <optional>
#include <string_view>
#include <vector>

namespace NaxelTool {

/// The number of a name, in whatever case; none for a name that the field does not have. Only
/// protocols, ports and code points have names here.
std::optional<uint32_t> ianaNumber(Naxel::RangeSetType type, std::string_view name);

/// All names of a field, in the order of their numbers.
std::vector<std::string_view> ianaNames(Naxel::RangeSetType type);

}  // namespace NaxelTool
