#pragma once

/// The members of a chip's description that say how much room there is, each by its path in the file:
/// "labelCode", "prefixXformWidth.ipv4Src", "rangeXformWidth.dstPort", "comboXformWidth.srcDstL4Port",
/// "softChip.capacity.aclEntries".

#include "input/ChipReader.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace NaxelTool {

struct ChipMember {
  std::string path;
  uint64_t least = 0;
  uint64_t most = 0;
  /// Of the label code its place among the enumerators.
  std::function<uint64_t(ChipSetup const&)> get;
  std::function<void(ChipSetup&, uint64_t)> set;

  bool isLabelCode() const { return path == "labelCode"; }
  /// The value as the file has it: a number, or the name of a label code; "any" for a capacity without limit.
  std::string text(uint64_t value) const;
  /// Reads that. Throws std::invalid_argument with a text for the user.
  uint64_t valueFromText(std::string_view text) const;
};

/// In the order of the description.
std::vector<ChipMember> const& chipMembers();
/// The member of that path; null where there is none.
ChipMember const* chipMember(std::string_view path);
/// The member of that path, or all those that stand in an object of that path. Throws std::invalid_argument with
/// a text for the user where there is none.
std::vector<ChipMember const*> chipMembersOf(std::string_view path);

std::string memberPath(Naxel::PrefixXformKey const& key);
std::string memberPath(Naxel::RangeSetType type);
std::string memberPath(Naxel::ComboLabelSetType type);

}  // namespace NaxelTool
