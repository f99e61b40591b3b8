#pragma once

/// The match fields in words, as messages to operators name them.

#include "naxel/genset/GenSetTypes.h"

#include <string>

namespace Naxel {

/// "IPv4 source address".
std::string fieldName(PrefixXformKey const& key);
/// "destination port".
std::string fieldName(RangeSetType type);
/// "IPv4 source and destination address".
std::string fieldName(ComboLabelSetType type);
/// "destination port", "the pair of ports"; of a field that carries labels.
std::string fieldName(TcamFieldType field);

}  // namespace Naxel
