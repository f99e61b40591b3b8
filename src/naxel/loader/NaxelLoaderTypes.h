#pragma once

/// What the loader reads and writes besides the output model: the loader infos of the encoders, the
/// expander's entries, and the record of the last refused output.

#include "naxel/encoder/EncoderTypes.h"
#include "naxel/loader/PDConfig.h"
#include "naxel/loader/RowCounts.h"

namespace Naxel {

/// A reference to an output. Equality, order and text go by the identity of the object, not by its
/// content; it cannot be read back from text.
class PDDataRef {
 public:
  PDDataRef() = default;
  PDDataRef(Mox::Ptr<PDData const> data) : data_(std::move(data)) {}

  Mox::Ptr<PDData const> const& get() const { return data_; }
  /// Number of the object among the outputs of the process; 0 for none.
  uint64_t identity() const { return data_ ? data_->instance() : 0; }
  uint64_t hash64() const { return Mox::mix64(identity()); }
  uint64_t placeWord() const { return identity(); }

  friend bool operator==(PDDataRef const& a, PDDataRef const& b) {
    return a.identity() == b.identity();
  }
  friend std::strong_ordering operator<=>(PDDataRef const& a, PDDataRef const& b) {
    return a.identity() <=> b.identity();
  }

 private:
  Mox::Ptr<PDData const> data_;
};

/// An output that the driver refused, with the id of the refusing answer.
class FailureData : public Mox::ValueType<FailureData> {
 public:
  static constexpr std::string_view typeName = "Naxel::FailureData";
  FailureData() = default;
  FailureData(Mox::Ptr<PDData const> data, Mox::Seconds id)
      : pdData_(std::move(data)), responseId_(id) {}
  explicit FailureData(Mox::TextCursor& c);

  Mox::Ptr<PDData const> const& pdData() const { return pdData_.get(); }
  Mox::Seconds responseId() const { return responseId_; }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("pdData", &FailureData::pdData_),
                           Mox::field("responseId", &FailureData::responseId_));
  }

 private:
  PDDataRef pdData_;
  Mox::Seconds responseId_ = 0;
};

/// The loader infos that the root passes on from the encoders' statuses, null where a field has no
/// transform table, and the expander's output. Every key is there from the start, so that passing on
/// cannot fail: it happens in reactors, where nobody would learn of it.
class NAXEL_EXPORT LoaderConfig : public StageConfig {
 public:
  LoaderConfig();
  std::string_view fwkType() const override { return "Naxel::LoaderConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::Ptr<PrefixXformLoaderInfo const> prefixXformLoaderInfo(PrefixXformKey const& key) const {
    return Mox::lookup(prefixXformLoaderInfo_, key);
  }
  void prefixXformLoaderInfoIs(PrefixXformKey const& key, Mox::Ptr<PrefixXformLoaderInfo const> v) {
    prefixXformLoaderInfo_.set(key, std::move(v));
  }
  Mox::Ptr<RangeSplitLoaderInfo const> rangeSplitLoaderInfo(RangeSetType type) const {
    return Mox::lookup(rangeSplitLoaderInfo_, type);
  }
  void rangeSplitLoaderInfoIs(RangeSetType type, Mox::Ptr<RangeSplitLoaderInfo const> v) {
    rangeSplitLoaderInfo_.set(type, std::move(v));
  }
  Mox::Ptr<ComboLabelLoaderInfo const> comboLabelLoaderInfo(ComboLabelSetType type) const {
    return Mox::lookup(comboLabelLoaderInfo_, type);
  }
  void comboLabelLoaderInfoIs(ComboLabelSetType type, Mox::Ptr<ComboLabelLoaderInfo const> v) {
    comboLabelLoaderInfo_.set(type, std::move(v));
  }
  /// The collection that the expander rebuilds in place. Outputs take over its ACLs, never the collection
  /// itself, which the next kick changes.
  Mox::Ptr<PDAclColl const> const& ruleExpanderLoaderInfo() const {
    return ruleExpanderLoaderInfo_;
  }
  void ruleExpanderLoaderInfoIs(Mox::Ptr<PDAclColl const> v) {
    ruleExpanderLoaderInfo_ = std::move(v);
  }
  /// True once the root has made all encoders whose loader infos come here.
  bool initialized() const { return initialized_; }
  void initializedIs(bool v) { initialized_ = v; }

 private:
  Mox::OrderedMap<PrefixXformKey, Mox::Ptr<PrefixXformLoaderInfo const>> prefixXformLoaderInfo_;
  Mox::OrderedMap<RangeSetType, Mox::Ptr<RangeSplitLoaderInfo const>> rangeSplitLoaderInfo_;
  Mox::OrderedMap<ComboLabelSetType, Mox::Ptr<ComboLabelLoaderInfo const>> comboLabelLoaderInfo_;
  Mox::Ptr<PDAclColl const> ruleExpanderLoaderInfo_;
  bool initialized_ = false;
};

class NAXEL_EXPORT LoaderStatus : public StageStatus {
 public:
  class NAXEL_EXPORT Notifiee : public StageStatus::Notifiee {
   public:
    virtual void onLastFailedState() {}
    virtual void onRows() {}
  };
  std::string_view fwkType() const override { return "Naxel::LoaderStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// The last output that the driver refused.
  FailureData const& lastFailedState() const { return lastFailedState_; }
  void lastFailedStateIs(FailureData const& v) {
    attrIs(lastFailedState_, v, &Notifiee::onLastFailedState);
  }

  /// What the output that was last asked to be acquired changes against the one then in force, by table.
  TableRowCounts const& rows() const { return rows_; }
  void rowsIs(TableRowCounts v) { attrIs(rows_, std::move(v), &Notifiee::onRows); }

 private:
  FailureData lastFailedState_;
  TableRowCounts rows_;
};

/// Where the loader stands in its handshake with the driver.
enum class LoaderSmState : uint8_t {
  initial,
  waitingForAcquire,
  pdAcquireSuccess,
  pdLocalFail,
  pdAcquireFail,
  pdLoadSuccess,
  waitingForRevert,
  pdRevertSuccess
};

}  // namespace Naxel

template <>
struct Mox::EnumNames<Naxel::LoaderSmState> {
  static constexpr std::array<std::string_view, 8> value = {
      "initial",       "waitingForAcquire", "pdAcquireSuccess", "pdLocalFail",
      "pdAcquireFail", "pdLoadSuccess",     "waitingForRevert", "pdRevertSuccess"};
};

template <>
struct NAXEL_EXPORT Mox::TextForm<Naxel::PDDataRef> {
  static void write(std::string& out, Naxel::PDDataRef const& v);
  [[noreturn]] static void read(TextCursor& c, Naxel::PDDataRef& v);
};

namespace Naxel {
inline FailureData::FailureData(Mox::TextCursor& c) { Mox::TextForm<FailureData>::read(c, *this); }
}  // namespace Naxel
