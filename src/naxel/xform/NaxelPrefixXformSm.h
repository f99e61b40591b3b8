#pragma once

/// The prefix transform: cuts the addresses that the prefix sets of one family and side describe
/// into disjoint pieces. The frame (reads, writes, skips, fails, order) is that of XformSmBase.
///
/// Every prefix that any set names, as a member or as an except prefix, becomes a node of a trie.
/// The walk from the top down gives each node the group of sets that contain the addresses at that
/// node which no longer prefix of the trie takes:
///
///   group(node)  = (group(parent) without the sets that except this node)
///                  with the sets that name this node, unless they except it or an ancestor
///
/// A set that excepts a node loses the whole subtree there, also where it names a prefix further
/// down itself: an except prefix is matched by nothing of its list. A node whose group is empty
/// keeps a label of its own, so that the longest-prefix match stops there.
///
/// Example: A = {10.0.0.0/8 except 10.1.0.0/16}, B = {10.1.2.0/24} gives the nodes 10.0.0.0/8 {A},
/// 10.1.0.0/16 {} and 10.1.2.0/24 {B}.
///
/// Cost: a node costs as much as the sets that name or except it (PieceGroups.h).

#include "naxel/genset/KeyPlaces.h"
#include "naxel/xform/PieceGroups.h"
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
  void doClearOutput() override;

 private:
  friend class UpdatePrefixSetListCallback;

  /// Prefixes named with the sets that name them, in natural order, as seeds or as exceptions.
  using Naming = std::vector<std::pair<Lumox::IpGenPrefix, GenSetKey>>;
  void nameAll(Naming& members, Naming& exceptions) const;
  GroupMap groupsOf(Naming naming);

  Mox::Ptr<PrefixXformStatus> status_;
  Mox::Ptr<Routing::TrieGen> trie_;
  GroupMap prefixToGenSetGrp_;
  GroupMap prefixToExceptGrp_;  // the sets that except a prefix
  PieceGroups groups_;
};
NAXEL_EXPORT Mox::Ptr<NaxelPrefixXformSm> naxelPrefixXformSmFactory(
    Obel::ChipId chipId, Mox::Ptr<PrefixXformConfig> config, Mox::Ptr<PrefixXformStatus> status,
    Mox::Ptr<ChipHwCapability const> hwCapability);

/// Completes the groups; sees every parent before its children, in the order of the prefixes.
class UpdatePrefixSetListCallback : public Routing::TrieGenWalkCallback {
 public:
  explicit UpdatePrefixSetListCallback(NaxelPrefixXformSm& sm);
  int handlePrefix(Lumox::IpGenPrefix const& prefix) override;

 private:
  /// A node on the path from the root to the present one.
  struct Ancestor {
    Lumox::IpGenPrefix prefix;
    PieceGroup group;
    GenSetKeyGroup const* excepting;  // the sets that except it; null for none
  };
  void exceptedBy(GenSetKeyGroup const* sets, uint32_t by);

  NaxelPrefixXformSm& sm_;
  size_t at_ = 0;  // position of the present node among all prefixes
  std::vector<Ancestor> path_;
  KeyPlaces places_;                 // of all sets, if any excepts anything
  std::vector<uint32_t> excepting_;  // for each set how many nodes of the path it excepts
  PieceGroups::Keys more_;
  PieceGroups::Keys less_;
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
