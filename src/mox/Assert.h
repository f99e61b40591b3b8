#pragma once

/// Assertions for broken invariants: they print the expression with its place and abort, in every
/// build type. They are never used for bad input; that is a Mox::RangeError or a stage's status.

#include "mox/Export.h"

#include <functional>
#include <string>

namespace Mox {

/// Called with the line that an assertion prints, before the process ends; for an agent that has a log
/// of its own, say. What it throws is ignored, and so is an assertion that fails within it.
using AssertionHandler = std::function<void(std::string const&)>;
/// Replaces the handler of the process and returns the one before; none at first.
NAXEL_EXPORT AssertionHandler assertionHandlerIs(AssertionHandler handler);

/// Prints "assertion failed: TEXT at FILE:LINE in FUNCTION", with ": DETAIL" behind it where there is one,
/// to standard error, calls the handler and aborts.
[[noreturn]] NAXEL_EXPORT void assertionFailed(char const* text, char const* file, int line,
                                               char const* function,
                                               std::string const& detail = {}) noexcept;

}  // namespace Mox

/// Aborts with the text of the expression unless it holds.
#define MOX_ASSERT(expression) MOX_ASSERT_TEXT((expression), #expression)

/// The same with a detail, which is put together only where it fails: what an operator has to look at.
#define MOX_ASSERT_DETAIL(condition, text, detail) \
  ((condition) ? static_cast<void>(0)              \
               : ::Mox::assertionFailed(text, __FILE__, __LINE__, __PRETTY_FUNCTION__, detail))

/// The same for an expression whose fixed message differs from its C++ spelling.
#define MOX_ASSERT_TEXT(condition, text) \
  ((condition) ? static_cast<void>(0)    \
               : ::Mox::assertionFailed(text, __FILE__, __LINE__, __PRETTY_FUNCTION__))
