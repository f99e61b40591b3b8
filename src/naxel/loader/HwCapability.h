#pragma once

/// How many bits of its match key each chip gives to each kind of transformed field.

#include "mox/Entity.h"
#include "mox/OrderedMap.h"
#include "naxel/genset/GenSetTypes.h"
#include "obel/ChipId.h"

namespace Naxel {

/// The label widths of one chip. The agent writes them before it requests a kick; they may change
/// between kicks. The entity checks nothing itself. Contract: a prefix width is 1 to 16 (a chip
/// without IPv6 keeps the default width and gets no IPv6 ACL), every other width 0 to 16; more than 255
/// raises Mox::RangeError. An absent
/// range width means that the field is matched by its raw value, an absent combination width that
/// the chip does not match that combination through one label; an entry of 0 says the same.
class NAXEL_EXPORT ChipHwCapability : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onPrefixXformWidth(PrefixXformKey const&) {}
    virtual void onRangeXformWidth(RangeSetType const&) {}
    virtual void onComboXformWidth(ComboLabelSetType const&) {}
    virtual void onTcpFlagsXformSupported() {}
    virtual void onTcpFlagsXformWidth() {}
  };

  explicit ChipHwCapability(Obel::ChipId chipId) : chipId_(chipId) { handleInitialized(); }
  std::string_view fwkType() const override { return "Naxel::ChipHwCapability"; }
  Mox::AttributeTable const& attributeTable() const override;

  Obel::ChipId chipId() const { return chipId_; }

  /// Label width in bits for the prefix sets of a family and side; 16 for all four by default.
  Mox::OrderedMap<PrefixXformKey, uint8_t> const& prefixXformWidth() const {
    return prefixXformWidth_;
  }
  uint8_t prefixXformWidth(PrefixXformKey const& key) const {
    return width(prefixXformWidth_, key);
  }
  void prefixXformWidthIs(PrefixXformKey const& key, uint32_t width) {
    itemSet(prefixXformWidth_, key, checked(width), &Notifiee::onPrefixXformWidth);
  }
  void prefixXformWidthDel(PrefixXformKey const& key) {
    itemDel(prefixXformWidth_, key, &Notifiee::onPrefixXformWidth);
  }
  void prefixXformWidthDelAll() { collDelAll(prefixXformWidth_, &Notifiee::onPrefixXformWidth); }

  /// Label width for the range sets of a type; none by default.
  Mox::OrderedMap<RangeSetType, uint8_t> const& rangeXformWidth() const { return rangeXformWidth_; }
  /// The width of a type; 0 where there is none.
  uint8_t rangeXformWidth(RangeSetType type) const { return width(rangeXformWidth_, type); }
  void rangeXformWidthIs(RangeSetType type, uint32_t width) {
    itemSet(rangeXformWidth_, type, checked(width), &Notifiee::onRangeXformWidth);
  }
  void rangeXformWidthDel(RangeSetType type) {
    itemDel(rangeXformWidth_, type, &Notifiee::onRangeXformWidth);
  }
  void rangeXformWidthDelAll() { collDelAll(rangeXformWidth_, &Notifiee::onRangeXformWidth); }

  /// Label width for the combination sets of a type; none by default.
  Mox::OrderedMap<ComboLabelSetType, uint8_t> const& comboXformWidth() const {
    return comboXformWidth_;
  }
  uint8_t comboXformWidth(ComboLabelSetType type) const { return width(comboXformWidth_, type); }
  void comboXformWidthIs(ComboLabelSetType type, uint32_t width) {
    itemSet(comboXformWidth_, type, checked(width), &Notifiee::onComboXformWidth);
  }
  void comboXformWidthDel(ComboLabelSetType type) {
    itemDel(comboXformWidth_, type, &Notifiee::onComboXformWidth);
  }
  void comboXformWidthDelAll() { collDelAll(comboXformWidth_, &Notifiee::onComboXformWidth); }

  /// Whether pairs of that type are matched through one label: both sides must have labels, too.
  bool comboEnabled(ComboLabelSetType type) const;

  /// Takes over all values of another one; the chip stays.
  void valuesIs(ChipHwCapability const& from);
  /// Whether another one has the same values. An absent width and one of 0 are two things here.
  bool hasValuesOf(ChipHwCapability const& other) const;

  /// Held for the agent; TCP flags are always matched directly.
  bool tcpFlagsXformSupported() const { return tcpFlagsXformSupported_; }
  void tcpFlagsXformSupportedIs(bool v) {
    attrIs(tcpFlagsXformSupported_, v, &Notifiee::onTcpFlagsXformSupported);
  }
  uint8_t tcpFlagsXformWidth() const { return tcpFlagsXformWidth_; }
  void tcpFlagsXformWidthIs(uint32_t v) {
    attrIs(tcpFlagsXformWidth_, checked(v), &Notifiee::onTcpFlagsXformWidth);
  }

 private:
  /// Gives the four prefix keys their default width.
  void handleInitialized();
  static uint8_t checked(uint32_t width) {
    if (width > 255) throw Mox::RangeError("ChipHwCapability: width > 255 not allowed");
    return static_cast<uint8_t>(width);
  }
  template <class K>
  static uint8_t width(Mox::OrderedMap<K, uint8_t> const& map, K const& key) {
    uint8_t const* w = map.get(key);
    return w ? *w : uint8_t{0};
  }

  Obel::ChipId chipId_;
  Mox::OrderedMap<PrefixXformKey, uint8_t> prefixXformWidth_;
  Mox::OrderedMap<RangeSetType, uint8_t> rangeXformWidth_;
  Mox::OrderedMap<ComboLabelSetType, uint8_t> comboXformWidth_;
  bool tcpFlagsXformSupported_ = false;
  uint8_t tcpFlagsXformWidth_ = 2;
};
inline Mox::Ptr<ChipHwCapability> chipHwCapabilityFactory(Obel::ChipId chipId) {
  return Mox::makePtr<ChipHwCapability>(chipId);
}

/// The capabilities of all chips of an agent.
class NAXEL_EXPORT HwCapabilityColl : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onChipHwCapability(Obel::ChipId const&) {}
  };
  std::string_view fwkType() const override { return "Naxel::HwCapabilityColl"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::OrderedMap<Obel::ChipId, Mox::Ptr<ChipHwCapability>> const& chipHwCapability() const {
    return chipHwCapability_;
  }
  Mox::Ptr<ChipHwCapability> chipHwCapability(Obel::ChipId chip) const {
    return Mox::lookup(chipHwCapability_, chip);
  }
  bool chipHwCapabilityHas(Obel::ChipId chip) const { return chipHwCapability_.contains(chip); }
  /// The chip's entry, made with default widths if absent.
  Mox::Ptr<ChipHwCapability> chipHwCapabilityIs(Obel::ChipId chip) {
    return itemIs(chipHwCapability_, chip, &Notifiee::onChipHwCapability,
                  [&] { return chipHwCapabilityFactory(chip); });
  }
  void chipHwCapabilityDel(Obel::ChipId chip) {
    itemDel(chipHwCapability_, chip, &Notifiee::onChipHwCapability);
  }
  void chipHwCapabilityDelAll() { collDelAll(chipHwCapability_, &Notifiee::onChipHwCapability); }

 private:
  Mox::OrderedMap<Obel::ChipId, Mox::Ptr<ChipHwCapability>> chipHwCapability_;
};
inline Mox::Ptr<HwCapabilityColl> hwCapabilityCollFactory() {
  return Mox::makePtr<HwCapabilityColl>();
}

}  // namespace Naxel
