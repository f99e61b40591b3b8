#pragma once

/// What a rule does with the packets that it matches, and the index that orders the rules.

#include "lumox/DscpValue.h"
#include "mox/Enum.h"
#include "mox/Value.h"

#include <array>
#include <cstdint>
#include <string_view>
#include <tuple>

namespace Naxel {

/// Index of a rule within its ACL; rules are evaluated in ascending order. `null` is the largest
/// legal index; a larger one raises Mox::RangeError.
class AceIndex : public Mox::NumberValue<AceIndex, uint32_t> {
 public:
  static constexpr uint32_t min = 0;
  static constexpr uint32_t null = 4294967294u;

  constexpr AceIndex() = default;
  constexpr explicit AceIndex(uint64_t v) : NumberValue(static_cast<uint32_t>(v)) {
    if (v > null)
      throw Mox::RangeError("AceIndex::value < AceIndex::min or > AceIndex::null not allowed");
  }
  explicit AceIndex(Mox::TextCursor& c) { Mox::TextForm<AceIndex>::read(c, *this); }

  void valueIs(uint64_t v) { *this = AceIndex(v); }
};

/// Traffic class 0..7; `null` (8) means none. A larger value raises Mox::RangeError.
class NaxelTrafficClass : public Mox::NumberValue<NaxelTrafficClass, uint8_t> {
 public:
  static constexpr uint8_t min = 0;
  static constexpr uint8_t null = 8;

  constexpr NaxelTrafficClass() : NumberValue(null) {}
  constexpr explicit NaxelTrafficClass(uint64_t v) : NumberValue(static_cast<uint8_t>(v)) {
    if (v > null)
      throw Mox::RangeError(
          "NaxelTrafficClass::value < NaxelTrafficClass::min or > NaxelTrafficClass::null not "
          "allowed");
  }
  explicit NaxelTrafficClass(Mox::TextCursor& c) {
    Mox::TextForm<NaxelTrafficClass>::read(c, *this);
  }

  void valueIs(uint64_t v) { *this = NaxelTrafficClass(v); }
};

/// Kinds of action that a chip may support.
enum class NaxelActionType : uint8_t {
  dropAction,
  countAction,
  policeAction,
  setDscpAction,
  setTcAction,
  sflowAction,
  continueAction
};

/// The action of a rule. By default it permits the packet and does nothing else.
class NaxelActionValue : public Mox::ValueType<NaxelActionValue> {
 public:
  static constexpr std::string_view typeName = "Naxel::NaxelActionValue";

  NaxelActionValue() = default;
  explicit NaxelActionValue(Mox::TextCursor& c) { Mox::TextForm<NaxelActionValue>::read(c, *this); }

  /// Drop the packet.
  bool dropEnabled() const { return dropEnabled_; }
  void dropEnabledIs(bool v) { dropEnabled_ = v; }
  /// Log the match.
  bool logEnabled() const { return logEnabled_; }
  void logEnabledIs(bool v) { logEnabled_ = v; }
  /// DSCP to write when setDscpEnabled().
  Lumox::DscpValue dscp() const { return dscp_; }
  void dscpIs(Lumox::DscpValue v) { dscp_ = v; }
  bool setDscpEnabled() const { return setDscpEnabled_; }
  void setDscpEnabledIs(bool v) { setDscpEnabled_ = v; }
  /// Traffic class to set when setTcEnabled().
  NaxelTrafficClass tc() const { return tc_; }
  void tcIs(NaxelTrafficClass v) { tc_ = v; }
  bool setTcEnabled() const { return setTcEnabled_; }
  void setTcEnabledIs(bool v) { setTcEnabled_ = v; }
  /// Sample the packet to sFlow.
  bool sflowEnabled() const { return sflowEnabled_; }
  void sflowEnabledIs(bool v) { sflowEnabled_ = v; }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("dropEnabled", &NaxelActionValue::dropEnabled_),
                           Mox::field("logEnabled", &NaxelActionValue::logEnabled_),
                           Mox::field("dscp", &NaxelActionValue::dscp_),
                           Mox::field("setDscpEnabled", &NaxelActionValue::setDscpEnabled_),
                           Mox::field("tc", &NaxelActionValue::tc_),
                           Mox::field("setTcEnabled", &NaxelActionValue::setTcEnabled_),
                           Mox::field("sflowEnabled", &NaxelActionValue::sflowEnabled_));
  }

 private:
  bool dropEnabled_ = false;
  bool logEnabled_ = false;
  Lumox::DscpValue dscp_;
  bool setDscpEnabled_ = false;
  NaxelTrafficClass tc_;
  bool setTcEnabled_ = false;
  bool sflowEnabled_ = false;
};

}  // namespace Naxel

template <>
struct Mox::EnumNames<Naxel::NaxelActionType> {
  static constexpr std::array<std::string_view, 7> value = {
      "dropAction",  "countAction", "policeAction",  "setDscpAction",
      "setTcAction", "sflowAction", "continueAction"};
};
