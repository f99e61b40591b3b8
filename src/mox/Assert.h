#pragma once

/// Assertions for broken invariants: they print the expression with its place and abort, in every
/// build type. They are never used for bad input; that is a Mox::RangeError or a stage's status.

#include "mox/Export.h"

namespace Mox {

/// Prints "assertion failed: TEXT at FILE:LINE in FUNCTION" to standard error and aborts.
[[noreturn]] NAXEL_EXPORT void assertionFailed(char const* text, char const* file, int line,
                                               char const* function) noexcept;

}  // namespace Mox

/// Aborts with the text of the expression unless it holds.
#define MOX_ASSERT(expression) MOX_ASSERT_TEXT((expression), #expression)

/// The same for an expression whose fixed message differs from its C++ spelling.
#define MOX_ASSERT_TEXT(condition, text) \
  ((condition) ? static_cast<void>(0)    \
               : ::Mox::assertionFailed(text, __FILE__, __LINE__, __PRETTY_FUNCTION__))
