#pragma once

/// Number of a switch chip.

#include "mox/Value.h"

namespace Obel {

class ChipId : public Mox::NumberValue<ChipId, uint8_t> {
 public:
  using NumberValue::NumberValue;
  constexpr ChipId() = default;
  explicit ChipId(Mox::TextCursor& c) { Mox::TextForm<ChipId>::read(c, *this); }
};

}  // namespace Obel
