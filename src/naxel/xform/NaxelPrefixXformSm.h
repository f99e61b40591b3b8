#pragma once

/// The prefix transform: cuts the addresses that the prefix sets of one family and side describe
/// into disjoint pieces. The frame (reads, writes, skips, fails, order) is that of XformSmBase.
///
/// How they are cut is said in PrefixCut.h.

#include "naxel/xform/XformSmBase.h"
#include "routing/TrieGen.h"

#include <memory>

namespace Naxel {

class PrefixCut;

class NAXEL_EXPORT NaxelPrefixXformSm : public XformSmBase {
 public:
  using GroupMap = Mox::FlatMap<Lumox::IpGenPrefix, Mox::Ptr<GenSetKeyGroup>>;

  NaxelPrefixXformSm(Obel::ChipId chipId, Mox::Ptr<PrefixXformConfig> config,
                     Mox::Ptr<PrefixXformStatus> status,
                     Mox::Ptr<ChipHwCapability const> hwCapability);
  ~NaxelPrefixXformSm() override;

  PrefixXformConfig const& prefixXformConfig() const { return configAs<PrefixXformConfig>(); }
  PrefixXformStatus& prefixXformStatus() const { return *status_; }
  PrefixAggregatorInfo const& prefixAggregatorInfo() const {
    return *prefixXformConfig().aggregatorInfo();
  }

  /// The trie of the last run; null before it.
  Mox::Ptr<Routing::TrieGen> const& trie() const { return trie_; }
  /// Keeps the trie of that name and family, or makes a new one.
  Mox::Ptr<Routing::TrieGen> trieIs(Mox::Name const& name, Lumox::AddressFamily af);
  void trieDel() { trie_ = nullptr; }

  /// For each prefix of the trie its group: before the walk the sets that name it, afterwards the
  /// sets that contain it.
  GroupMap const& prefixToGenSetGrp() const { return prefixToGenSetGrp_; }
  Mox::Ptr<GenSetKeyGroup> prefixToGenSetGrp(Lumox::IpGenPrefix const& p) const;
  void prefixToGenSetGrpIs(Lumox::IpGenPrefix const& p, Mox::Ptr<GenSetKeyGroup> group) {
    prefixToGenSetGrp_.set(p, std::move(group));
  }
  void prefixToGenSetGrpDel(Lumox::IpGenPrefix const& p) { prefixToGenSetGrp_.erase(p); }
  void prefixToGenSetGrpDelAll() { prefixToGenSetGrp_.clear(); }

  void doBuildWorkingSet() override;
  void doBuildSetGroup() override;
  PieceCount doCountGroups() override;
  void doAllocLabels() override;
  uint32_t xformWidth() const override;
  std::string traceStr() const override;
  std::string subject() const override;

  /// Seeds the groups with direct membership.
  void doInitSetGroup();
  void doBuildTrie();

 protected:
  void doClearGroups() override;
  void doClearLabels() override { status_->prefixToLabelMapIs({}); }

 private:
  friend class UpdatePrefixSetListCallback;

  Mox::Ptr<PrefixXformStatus> status_;
  Mox::Ptr<Routing::TrieGen> trie_;
  GroupMap prefixToGenSetGrp_;
  std::unique_ptr<PrefixCut> cut_;  // of the run at hand
};
NAXEL_EXPORT Mox::Ptr<NaxelPrefixXformSm> naxelPrefixXformSmFactory(
    Obel::ChipId chipId, Mox::Ptr<PrefixXformConfig> config, Mox::Ptr<PrefixXformStatus> status,
    Mox::Ptr<ChipHwCapability const> hwCapability);

/// Completes the groups; sees every parent before its children, in the order of the prefixes.
class UpdatePrefixSetListCallback : public Routing::TrieGenWalkCallback {
 public:
  explicit UpdatePrefixSetListCallback(NaxelPrefixXformSm& sm) : sm_(sm) {}
  int handlePrefix(Lumox::IpGenPrefix const& prefix) override;

 private:
  NaxelPrefixXformSm& sm_;
  size_t at_ = 0;  // position of the present node among all prefixes
};

/// Writes the trie and its groups to the trace.
class DumpWalkCallback : public Routing::TrieGenWalkCallback {
 public:
  explicit DumpWalkCallback(NaxelPrefixXformSm const& sm) : sm_(sm) {}
  int handlePrefix(Lumox::IpGenPrefix const& prefix) override;

 private:
  NaxelPrefixXformSm const& sm_;
};

}  // namespace Naxel
