#pragma once

/// The label encoder stages: they turn the plain labels of the transforms into encoded labels and
/// each set into value/mask pairs over them. One base does the work; the three kinds differ in key,
/// width, inputs and loader info.
///
/// Reads    the label lists of the transform that feeds the encoder, and the counts of use; the
///          range encoder also the range sets, the combo encoder the labels of both sides' encoders.
/// Writes   an EncoderStatus: plain to encoded labels, each set's pairs, and a loader info.
/// Skips    when the transform reports that it skipped or is not enabled and everything that is read
///          is what it was at the last run that succeeded: the transform's output (or in raw mode the
///          range sets), the counts, mode and width, and for combinations the labels of both sides.
///          These are compared themselves; the digest of them decides nothing.
/// Fails    when the transform's output is unusable or the labels do not fit into the width.
/// Off      where a combination has no width; then nothing is published.
/// Order    by ascending key; equal lists get equal pairs.
///
/// Kept labels. Where the configuration has a basis, the output in force, the compact code is made from what stands
/// there (compact/KeptCode.h), and afresh only where there is no room for that or little to keep. What is read of the
/// basis is compared as well, unless it is what the last run has made.
///
/// Each encoder keeps the highest value of its width free of every set's pairs: it is what a chip
/// yields that must yield something on a miss, and the label of pieces that are in no set.
///
/// A range field without label width is encoded raw: the pairs match the field's own value.

#include "mox/Trace.h"
#include "naxel/control/StageSm.h"
#include "naxel/encoder/CostModel.h"
#include "naxel/encoder/EncodedLabelAllocator.h"
#include "naxel/encoder/EncoderTypes.h"
#include "naxel/encoder/Mergers.h"
#include "naxel/loader/HwCapability.h"

#include <functional>
#include <memory>
#include <optional>
#include <span>

namespace Naxel {

namespace Compact {
struct Cube;
struct LabelsInForce;
}  // namespace Compact

/// Bits of the raw value of a range field.
uint32_t naturalBitWidth(RangeSetType type);

class NAXEL_EXPORT LabelEncoderSm : public StageSm {
 public:
  LabelEncoderSm(Obel::ChipId chipId, Mox::Ptr<EncoderConfig> config,
                 Mox::Ptr<EncoderStatus> status, Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo,
                 Mox::Ptr<ChipHwCapability const> hwCapability);

  /// Who is told what stands in force: of each item of the transform its label and what the table yields for it, or for
  /// what it is a part of; and of each entry of the table what it yields.
  struct InForce {
    std::function<void(PlainLabel, std::optional<EncodedLabel>)> item;
    std::function<void(EncodedLabel)> entry;
  };

  /// Width of the encoded labels as of the last kick; 0 when the encoder is not enabled.
  uint32_t encodeBitWidth() const { return encodeBitWidth_; }
  std::string const& traceKey() const { return traceKey_; }
  /// Digest of the last run that succeeded; none before it and after a failure.
  std::optional<uint64_t> workingSetHash() const { return workingSetHash_; }
  /// The pairs of each set before merging; where there is one, the list is also the merged one.
  EncoderStatus::MaskListMap const& eLabelMask() const { return eLabelMask_; }

  void doStartKick() final;
  virtual uint64_t doBuildWorkingSetHash() const;
  /// Fills eLabelMask; false when the labels do not fit.
  /// Where it returns false the reason is kept for the status, and what is published is not to be used.
  virtual bool doEncode();
  virtual void doUpdateLoaderInfo() {}
  /// Joins the pairs of every set and publishes them.
  void doMerge();
  /// Publishes what the last run has made by that code, where it has made both; otherwise what there is stands.
  void codeIs(Acl::LabelCode code);
  /// Whether there is a choice: by the compact code some set takes more than one pair.
  bool hasBothCodes() const { return other_.has_value(); }

 protected:
  /// Width under the encoder's key as the capability has it now.
  virtual uint32_t labelWidth() const { return 0; }
  /// Width to encode in: the label width, unless the kind has a fallback.
  virtual uint32_t currentBitWidth() const { return labelWidth(); }
  virtual void doClearLoaderInfo() {}
  /// The field in words, for the reason of a failure.
  virtual std::string subject() const { return "encoder"; }
  /// The sets that are encoded as they are; none where labels are encoded.
  virtual std::vector<GenSetKey> rawSets() const { return {}; }
  /// Whether what is read besides transform and counts is what it was at rememberMore(), which every
  /// run calls before its work.
  virtual bool isMoreUnchanged() const { return true; }
  virtual void rememberMore() {}
  /// The table in force; null where it is none of the present width.
  virtual KeepsSets const* tableInForce() const { return nullptr; }
  virtual void walkInForce(InForce const&) const {}
  /// Leaves with a loader info what the next kick needs to keep its labels.
  void keepIn(KeepsSets& info);
  void doForget() noexcept override { workingSetHash_.reset(); }
  Look doLook() final;
  std::optional<std::string> doWork() final;
  void doRemember() noexcept final;
  void doClearOutput() final;
  void traceKeyIs(std::string v) { traceKey_ = std::move(v); }
  void encodeBitWidthIs(uint32_t v) { encodeBitWidth_ = v; }

  EncoderConfig const& encoderConfig() const { return configAs<EncoderConfig>(); }
  EncoderStatus& encoderStatus() const { return *status_; }
  ChipHwCapability const& hwCapability() const { return *hwCapability_; }
  GenSetUsageInfo const& usage() const { return *usage_; }
  /// The pairs of a set, made if absent; O(1) behind the last key.
  Mox::Ptr<EncodedLabelWithMaskList> const& eLabelMaskIs(GenSetKey key);
  void eLabelMaskDelAll() { eLabelMask_.clear(); }
  Mox::TraceLine traceStep(int level, char const* step) const;
  /// The value that belongs to no set.
  EncodedLabel reservedLabel() const {
    return EncodedLabel(static_cast<uint16_t>((1u << encodeBitWidth_) - 1));
  }

 private:
  /// What a code makes of the labels.
  struct Encoding {
    Acl::LabelCode code;
    EncoderStatus::LabelMap labels;
    EncoderStatus::MaskListMap lists;
  };
  bool doEncodeAligned();
  EncoderStatus::MaskListMap mergedLists() const;
  bool doEncodeCompact();
  /// The pairs of each list with labels, of which `cubesOf` says the cubes.
  void makeLists(std::function<std::span<Compact::Cube const>(size_t)> const& cubesOf);
  /// The labels as they stand in the table in force, by their numbers.
  Compact::LabelsInForce labelsInForce(std::vector<uint32_t> const& number, uint32_t labels) const;
  /// Whether there are so many codes; the reason otherwise.
  bool fits(uint64_t labels);
  /// The published encoding and the other one change places.
  void exchange();
  /// Encodes by the aligned code as well, where that might take fewer entries.
  void doEncodeOtherwise();
  /// What a run reads, in so far as all kinds read it.
  struct Input {
    uint32_t labelWidth = 0;
    uint32_t encodeBitWidth = 0;
    Acl::LabelCode code = Acl::LabelCode::aligned;
    Mox::Stamp xform = 0;            // of the transform's output; 0 in raw mode
    std::vector<GenSetKey> rawSets;  // sets are frozen, so their keys say everything
    Mox::Stamp usage = 0;
    std::vector<uint32_t> uses;  // of the sets, in their order
    bool keeps = false;
    std::shared_ptr<Compact::KeptSets const> basis;
  };
  /// All of it but the counts.
  Input inputWithoutUses() const;
  std::vector<uint32_t> uses(Input const& input) const;
  bool isUnchanged(Input const& now);

  Mox::Ptr<EncoderStatus> status_;
  Mox::Ptr<GenSetUsageInfo const> usage_;
  Mox::Ptr<ChipHwCapability const> hwCapability_;
  uint32_t encodeBitWidth_ = 0;
  std::string traceKey_;
  std::optional<uint64_t> workingSetHash_;
  Input now_;  // of the run at hand, as is the next
  uint64_t workHash_ = 0;
  Input builtFrom_;  // of the last run that succeeded; means nothing without the digest
  EncoderStatus::MaskListMap eLabelMask_;
  Acl::LabelCode code_ = Acl::LabelCode::aligned;  // of the encoding at hand
  std::optional<Encoding> other_;
  bool keeps_ = false;  // the last run
  std::shared_ptr<Compact::KeptSets const>
      keptFrom_;  // what it has kept; null where it encoded afresh
  std::shared_ptr<Compact::KeptSets const> made_;
  // See KeptSets.
  std::vector<bool> resists_;
  uint32_t triedAgain_ = 0;
  std::vector<uint32_t> firsts_;  // of the lists with labels the first one of each that are alike
  std::string failure_;
};

/// Sets of prefixes of one family and side. The chip must give them a width of 1 to 16.
class NAXEL_EXPORT PrefixLabelEncoderSm final : public LabelEncoderSm {
 public:
  PrefixLabelEncoderSm(Obel::ChipId chipId, Mox::Ptr<EncoderConfig> config,
                       Mox::Ptr<PrefixEncoderStatus> status,
                       Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo,
                       Mox::Ptr<ChipHwCapability const> hwCapability);
  uint64_t doBuildWorkingSetHash() const override;
  bool doEncode() override;
  void doUpdateLoaderInfo() override;

 protected:
  uint32_t labelWidth() const override { return hwCapability().prefixXformWidth(status_->key()); }
  void doClearLoaderInfo() override { status_->loaderInfoIs(nullptr); }
  std::string subject() const override;
  KeepsSets const* tableInForce() const override;
  void walkInForce(InForce const& tell) const override;

 private:
  void handleInitialized();
  PrefixXformStatus const& xform() const;
  Mox::Ptr<PrefixEncoderStatus> status_;
};

/// Sets of ranges of one field.
class NAXEL_EXPORT RangeEncoderSm final : public LabelEncoderSm {
 public:
  RangeEncoderSm(Obel::ChipId chipId, Mox::Ptr<RangeEncoderConfig> config,
                 Mox::Ptr<RangeEncoderStatus> status,
                 Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo,
                 Mox::Ptr<ChipHwCapability const> hwCapability);
  uint64_t doBuildWorkingSetHash() const override;
  bool doEncode() override;
  void doUpdateLoaderInfo() override;

 protected:
  uint32_t labelWidth() const override { return hwCapability().rangeXformWidth(status_->key()); }
  uint32_t currentBitWidth() const override {
    return labelWidth() ? labelWidth() : naturalBitWidth(status_->key());
  }
  std::vector<GenSetKey> rawSets() const override;
  void doClearLoaderInfo() override { status_->loaderInfoIs(nullptr); }
  std::string subject() const override;
  KeepsSets const* tableInForce() const override;
  void walkInForce(InForce const& tell) const override;

 private:
  void handleInitialized();
  RangeEncoderConfig const& rangeConfig() const { return configAs<RangeEncoderConfig>(); }
  Mox::Ptr<RangeEncoderStatus> status_;
};

/// Combination sets of one type.
class NAXEL_EXPORT ComboLabelEncoderSm final : public LabelEncoderSm {
 public:
  ComboLabelEncoderSm(Obel::ChipId chipId, Mox::Ptr<ComboLabelEncoderConfig> config,
                      Mox::Ptr<ComboLabelEncoderStatus> status,
                      Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo,
                      Mox::Ptr<ChipHwCapability const> hwCapability);
  uint64_t doBuildWorkingSetHash() const override;
  void doUpdateLoaderInfo() override;

 protected:
  uint32_t labelWidth() const override { return hwCapability().comboXformWidth(status_->key()); }
  bool isMoreUnchanged() const override;
  void rememberMore() override;
  void doClearLoaderInfo() override { status_->loaderInfoIs(nullptr); }
  std::string subject() const override;
  KeepsSets const* tableInForce() const override;
  void walkInForce(InForce const& tell) const override;

 private:
  void handleInitialized();
  ComboLabelSplitStatus const& xform() const;
  Mox::Ptr<EncoderStatus const> const& srcEncStatus() const {
    return configAs<ComboLabelEncoderConfig>().srcEncStatus();
  }
  Mox::Ptr<EncoderStatus const> const& dstEncStatus() const {
    return configAs<ComboLabelEncoderConfig>().dstEncStatus();
  }
  Mox::Ptr<ComboLabelEncoderStatus> status_;
  // The labels of both sides at the last run that succeeded.
  EncoderStatus::LabelMap srcLabels_;
  EncoderStatus::LabelMap dstLabels_;
};

NAXEL_EXPORT Mox::Ptr<LabelEncoderSm> labelEncoderSmFactory(
    Obel::ChipId chipId, Mox::Ptr<EncoderConfig> config, Mox::Ptr<EncoderStatus> status,
    Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo, Mox::Ptr<ChipHwCapability const> hwCapability);
NAXEL_EXPORT Mox::Ptr<PrefixLabelEncoderSm> prefixLabelEncoderSmFactory(
    Obel::ChipId chipId, Mox::Ptr<EncoderConfig> config, Mox::Ptr<PrefixEncoderStatus> status,
    Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo, Mox::Ptr<ChipHwCapability const> hwCapability);
NAXEL_EXPORT Mox::Ptr<RangeEncoderSm> rangeEncoderSmFactory(
    Obel::ChipId chipId, Mox::Ptr<RangeEncoderConfig> config, Mox::Ptr<RangeEncoderStatus> status,
    Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo, Mox::Ptr<ChipHwCapability const> hwCapability);
NAXEL_EXPORT Mox::Ptr<ComboLabelEncoderSm> comboLabelEncoderSmFactory(
    Obel::ChipId chipId, Mox::Ptr<ComboLabelEncoderConfig> config,
    Mox::Ptr<ComboLabelEncoderStatus> status, Mox::Ptr<GenSetUsageInfo const> genSetUsageInfo,
    Mox::Ptr<ChipHwCapability const> hwCapability);

}  // namespace Naxel
