#pragma once

/// Descriptions of a chip: its label widths, and how the software chip behaves that stands in for it.
/// The format is described in docs/formats.md and schema/naxel-chip.schema.json.

#include "acl/ParamConfig.h"
#include "naxel/loader/HwCapability.h"
#include "softchip/SoftChip.h"

#include <string>

namespace NaxelTool {

struct ChipSetup {
  Mox::Ptr<Naxel::ChipHwCapability> capability;
  /// The agent's choice of the policy that stands while a hitful change is loaded.
  bool permitDuringUpdate = false;
  Acl::LabelCode labelCode = Acl::LabelCode::compact;
  /// A kick leaves labels as they are where it can (Acl::ParamConfig::keepLabels).
  bool keepLabels = false;
  /// Most entries that all rules may take.
  uint64_t entryLimit = Acl::ParamConfig::defaultEntryLimit;
  SoftChip::Options softChip;
};

/// Chip 0 with labels of 16 bits for prefixes, of 12 bits for ports and of 2 bits for fragment offsets,
/// raw values for all other fields, no combinations, and tables without limit.
ChipSetup defaultChip();

/// Throws InputError.
ChipSetup readChip(std::string const& path, std::string const& content);

/// Name of a prefix table: "ipv4Src", "ipv4Dst", "ipv6Src", "ipv6Dst".
std::string prefixKeyName(Naxel::PrefixXformKey const& key);

}  // namespace NaxelTool
