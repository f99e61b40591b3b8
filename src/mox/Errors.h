#pragma once

/// The framework's exceptions. They report bad values to the caller of a setter or a parser; none
/// of them ever crosses a stage boundary.

#include "mox/Export.h"

#include <stdexcept>
#include <string>

namespace Mox {

/// A value outside its documented range. what() is the fixed text of the violated bound; an error
/// raised while a field of a larger value was parsed carries ", in field 'NAME'" behind it.
class NAXEL_EXPORT RangeError : public std::range_error {
 public:
  using std::range_error::range_error;
  ~RangeError() override;
};

/// An instance exists under the name already, made from other constructor arguments.
class NAXEL_EXPORT NameInUseError : public std::logic_error {
 public:
  using std::logic_error::logic_error;
  ~NameInUseError() override;
};

/// Text that is not a text form of the wanted type. what() says what was expected and at which
/// offset.
class NAXEL_EXPORT ParseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  ~ParseError() override;
};

}  // namespace Mox
