#pragma once

/// What the expander multiplies the entries of a rule from, as the encoders of a kick have published it.

#include "naxel/control/NaxelRootSm.h"
#include "naxel/encoder/EncoderTypes.h"
#include "naxel/genset/NaxelAggregatorTypes.h"
#include "naxel/xform/NaxelXformTypes.h"

#include <functional>
#include <vector>

namespace NaxelTool {

struct RuleFactorView {
  Naxel::TcamFieldType field;
  std::string
      name;  ///< of the field in the chip's description: "ipv4Src", "dstPort", "srcDstL4Port"
  Naxel::GenSetKey key;
  bool isCombo = false;
  uint64_t pairs = 0;  ///< 0 where the set covers nothing
};

/// In the order of the fields of an entry.
std::vector<RuleFactorView> factorsOf(Naxel::NaxelRootSm const& root,
                                      Naxel::GenSetIpRule const& rule, Lumox::AddressFamily af);
/// Their product; the largest number where there are even more.
uint64_t entriesOf(std::vector<RuleFactorView> const& factors);
/// Of all rules.
uint64_t entriesOf(Naxel::NaxelRootSm const& root);

/// Labels that the pieces of a set have; 0 where its field is matched by raw values.
size_t labelsOf(Naxel::XformStatus const& xform, Naxel::GenSetKey key);

}  // namespace NaxelTool
