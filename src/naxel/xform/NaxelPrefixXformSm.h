#pragma once

/// The prefix transform: cuts the addresses that the prefix sets of one family and side describe
/// into disjoint pieces. The frame (reads, writes, skips, fails, order) is that of XformSmBase.
///
/// How they are cut is said in PrefixCut.h. The trie and its groups are there for whoever asks and for traces.

#include "naxel/xform/PrefixCut.h"
#include "naxel/xform/XformSmBase.h"
#include "routing/TrieGen.h"

namespace Naxel {

class NAXEL_EXPORT NaxelPrefixXformSm : public XformSmBase {
 public:
  using GroupMap = Mox::FlatMap<Lumox::IpGenPrefix, Mox::Ptr<GenSetKeyGroup>>;

  NaxelPrefixXformSm(Obel::ChipId chipId, Mox::Ptr<PrefixXformConfig> config,
                     Mox::Ptr<PrefixXformStatus> status,
                     Mox::Ptr<ChipHwCapability const> hwCapability);

  PrefixXformConfig const& prefixXformConfig() const { return configAs<PrefixXformConfig>(); }
  PrefixXformStatus& prefixXformStatus() const { return *status_; }
  PrefixAggregatorInfo const& prefixAggregatorInfo() const {
    return *prefixXformConfig().aggregatorInfo();
  }

  /// The trie of the last run, put together for the caller; null before it and after trieDel().
  Mox::Ptr<Routing::TrieGen> const& trie() const;
  /// Keeps the trie of that name and family, or makes a new one.
  Mox::Ptr<Routing::TrieGen> trieIs(Mox::Name const& name, Lumox::AddressFamily af);
  void trieDel();

  /// For each prefix of the trie of the last run the sets that contain it, put together for the caller.
  GroupMap const& prefixToGenSetGrp() const;
  Mox::Ptr<GenSetKeyGroup> prefixToGenSetGrp(Lumox::IpGenPrefix const& p) const;
  void prefixToGenSetGrpIs(Lumox::IpGenPrefix const& p, Mox::Ptr<GenSetKeyGroup> group);
  void prefixToGenSetGrpDel(Lumox::IpGenPrefix const& p);
  void prefixToGenSetGrpDelAll() { prefixToGenSetGrp_.emplace(); }

  void doBuildWorkingSet() override;
  void doBuildSetGroup() override;
  PieceCount doCountGroups() override;
  void doAllocLabels() override;
  uint32_t xformWidth() const override;
  std::string traceStr() const override;
  std::string subject() const override;

  /// Puts in the place of the groups the sets that name each prefix.
  void doInitSetGroup();
  /// Makes the trie of the prefixes that have a group.
  void doBuildTrie();

 protected:
  void doClearGroups() override;
  void doClearLabels() override { status_->prefixToLabelMapIs({}); }

 private:
  friend class UpdatePrefixSetListCallback;

  PrefixSets sets() const;
  std::optional<PrefixPieces> changedPieces(PrefixSets const& sets) const;
  GroupMap& groupMap() const;
  void traceGroups();

  Mox::Ptr<PrefixXformStatus> status_;
  std::vector<PrefixXformStatus::LabelMap::value_type> items_;  // of the run at hand
  PrefixSets sets_;                                             // of the last run
  std::vector<uint32_t> namings_;                               // by node
  // What has been asked for of the last run.
  mutable Mox::Ptr<Routing::TrieGen> trie_;
  mutable bool trieIsFilled_ = true;
  mutable std::optional<GroupMap> prefixToGenSetGrp_;
};
NAXEL_EXPORT Mox::Ptr<NaxelPrefixXformSm> naxelPrefixXformSmFactory(
    Obel::ChipId chipId, Mox::Ptr<PrefixXformConfig> config, Mox::Ptr<PrefixXformStatus> status,
    Mox::Ptr<ChipHwCapability const> hwCapability);

/// Completes the groups of a map in which each prefix has the sets that name it; sees every parent before its
/// children.
class UpdatePrefixSetListCallback : public Routing::TrieGenWalkCallback {
 public:
  explicit UpdatePrefixSetListCallback(NaxelPrefixXformSm& sm) : sm_(sm) {}
  int handlePrefix(Lumox::IpGenPrefix const& prefix) override;

 private:
  NaxelPrefixXformSm& sm_;
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
