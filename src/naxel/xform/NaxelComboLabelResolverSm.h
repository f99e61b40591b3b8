#pragma once

/// The combo label resolver: forms, for the source/destination pair of every rule, the set of all
/// (source label, destination label) combinations that the pair covers.
///
/// Reads    the rules in terms of set keys, and the label lists of the two sides' transforms.
/// Writes   ComboLabelInfo (combination sets by key, and which serves which pair) and the count of
///          rules per set.
/// Skips    when both transforms report that they skipped and pairs, label lists and width are those
///          of the last run that succeeded. The lists are part of it because a kick that ended between
///          transform and resolver renumbers labels unseen. The digest of the pairs decides nothing.
/// Fails    when a side's output is unusable, or when the products are larger than `comboCap` in all.
/// Off      where the chip has no width for the type, or where a side is not labelled; then nothing
///          is published, and rules match the two fields separately.
/// Order    pairs in the order of ACL name and rule; sets by ascending key.

#include "mox/Trace.h"
#include "naxel/control/StageSm.h"
#include "naxel/genset/NaxelDedup.h"
#include "naxel/loader/HwCapability.h"
#include "naxel/xform/NaxelXformTypes.h"

#include <optional>

namespace Naxel {

/// Most combinations that the products of one type may have in all: beyond it memory would have no
/// bound.
inline constexpr uint64_t comboCap = uint64_t{1} << 24;

/// Shares combination sets of one type.
class NAXEL_EXPORT ComboLabelDedupMarkAndSweeper : public DedupMarkAndSweeper {
 public:
  ComboLabelDedupMarkAndSweeper(ComboLabelSetType type, Mox::Ptr<ComboLabelInfo> info,
                                Obel::ChipId chipId)
      : type_(type), comboLabelInfo_(std::move(info)), chipId_(chipId) {}
  std::string_view fwkType() const override { return "Naxel::ComboLabelDedupMarkAndSweeper"; }
  void doCleanupSweptEntry(GenSetKey key) override;
  GenSetKey getGenSetKey(Dedupable const& obj) const override;

 private:
  ComboLabelSetType type_;
  Mox::Ptr<ComboLabelInfo> comboLabelInfo_;
  Obel::ChipId chipId_;
};

class NAXEL_EXPORT ComboLabelResolverSm : public StageSm {
 public:
  ComboLabelResolverSm(Obel::ChipId chipId, Mox::Ptr<ComboLabelResolverConfig> config,
                       Mox::Ptr<ComboLabelResolverStatus> status,
                       Mox::Ptr<ChipHwCapability const> hwCapability, ComboLabelSetType type,
                       Mox::Ptr<GenSetKeyGenerator> genSetKeyGenerator);

  ComboLabelSetType type() const { return type_; }
  ComboLabelResolverConfig const& comboLabelConfig() const {
    return configAs<ComboLabelResolverConfig>();
  }
  ComboLabelResolverStatus& comboLabelStatus() const { return *status_; }
  Mox::Ptr<ComboLabelDedupMarkAndSweeper> const& comboLabelDeduper() const {
    return comboLabelDeduper_;
  }
  /// Digest of the last run that succeeded; none before it and after a failure.
  std::optional<uint64_t> workingSetHash() const { return workingSetHash_; }

  void doStartKick() override;
  /// Digest of the width, the pairs and the labels of both sides; a public function of them, which decides
  /// nothing.
  uint64_t doComputeComboHash() const;
  /// The steps of a run by themselves, in this order. First: unmarks every set and withdraws which set
  /// serves which pair.
  void doCleanSm();
  void checkRulesForSrcDstSets();
  /// Makes the product of two sets, or finds the one that is there, and counts the use. Costs the product
  /// where the pair is new to this run. Throws std::length_error beyond `comboCap`.
  void doBuildComboLabelSet(GenSetKey src, GenSetKey dst);
  void doDeleteUnusedSets();

 protected:
  void doForget() noexcept override { workingSetHash_.reset(); }
  Look doLook() override;
  std::optional<std::string> doWork() override;
  void doRemember() noexcept override;
  void doClearOutput() override;

 private:
  /// What a run works from.
  struct Input {
    uint8_t width = 0;
    std::vector<GenSetKeyPair> pairs;  // one for each rule that has both sides, in their order
    // Published label lists are never changed, so they are told by identity.
    Mox::Ptr<PlainLabelListMap const> src;
    Mox::Ptr<PlainLabelListMap const> dst;
    friend bool operator==(Input const&, Input const&) = default;
  };
  Input input() const;
  void handleInitialized();
  Mox::TraceLine traceStep(int level, char const* step) const;
  uint8_t width() const { return hwCapability_->comboXformWidth(type_); }
  /// Calls `f(src, dst)` for the pair of every rule that has both sides.
  template <class F>
  void forEachPair(F f) const;
  /// Throws where the product does not fit under the cap.
  void countProduct(GenSetKey src, GenSetKey dst, uint64_t combos);

  Mox::Ptr<ComboLabelResolverStatus> status_;
  Mox::Ptr<ChipHwCapability const> hwCapability_;
  ComboLabelSetType type_;
  Mox::Ptr<GenSetKeyGenerator> genSetKeyGenerator_;
  Mox::Ptr<ComboLabelDedupMarkAndSweeper> comboLabelDeduper_;
  std::optional<uint64_t> workingSetHash_;
  Input now_;  // of the run at hand, as is the next
  uint64_t workHash_ = 0;
  Input builtFrom_;      // of the last run that succeeded; means nothing without the digest
  uint64_t combos_ = 0;  // combinations built in this run
};
NAXEL_EXPORT Mox::Ptr<ComboLabelResolverSm> comboLabelResolverSmFactory(
    Obel::ChipId chipId, Mox::Ptr<ComboLabelResolverConfig> config,
    Mox::Ptr<ComboLabelResolverStatus> status, Mox::Ptr<ChipHwCapability const> hwCapability,
    ComboLabelSetType type, Mox::Ptr<GenSetKeyGenerator> genSetKeyGenerator);

}  // namespace Naxel
