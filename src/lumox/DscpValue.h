#pragma once

/// Differentiated services code point (RFC 2474).

#include "mox/Value.h"

namespace Lumox {

/// 0 to 63; more raises Mox::RangeError.
class DscpValue : public Mox::NumberValue<DscpValue, uint8_t> {
 public:
  static constexpr uint8_t max = 63;

  constexpr DscpValue() = default;
  constexpr explicit DscpValue(uint64_t v) : NumberValue(static_cast<uint8_t>(v)) {
    if (v > max) throw Mox::RangeError("DscpValue::value > 63 not allowed");
  }
  explicit DscpValue(Mox::TextCursor& c) { Mox::TextForm<DscpValue>::read(c, *this); }
};

}  // namespace Lumox
