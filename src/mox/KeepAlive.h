#pragma once

/// Staying alive while calling those who may let go of you.

#include "mox/Ptr.h"

namespace Mox {

/// Shares ownership of an object for the length of a call in which handlers may drop its last owner.
/// An object that no Ptr owns, one on the stack, is kept by its scope, and the result is null.
template <class T>
[[nodiscard]] Ptr<T> keepAlive(T* object) {
  return Ptr<T>(object->references() > 0 ? object : nullptr);
}

}  // namespace Mox
