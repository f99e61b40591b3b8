#include "mox/Errors.h"

namespace Mox {

// Out of line, so that each type has one home for its type information.
RangeError::~RangeError() = default;
NameInUseError::~NameInUseError() = default;
ParseError::~ParseError() = default;

}  // namespace Mox
