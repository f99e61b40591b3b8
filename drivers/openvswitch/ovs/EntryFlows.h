#pragma once

/// One entry of a rule as matches on labels, and what no switch of this kind can match.

#include "naxel/loader/PDData.h"
#include "ovs/LabelFlows.h"

#include <array>
#include <string>
#include <vector>

namespace NaxelOvs {

class EntryFlows {
 public:
  /// Both must outlive it.
  EntryFlows(Naxel::PDData const& data, Layout const& layout);

  /// Adds the matches of an entry, one or two, in an ACL of this family and number. Returns why it cannot be said,
  /// to be read behind the name of a rule: "matches the length of packets, ..."; "" if it can.
  std::string add(Naxel::PDAclFilter const& entry, Lumox::AddressFamily af, uint32_t aclId,
                  std::vector<std::string>& to) const;
  /// Why an action cannot be carried out; "" if it can.
  std::string faultOf(Naxel::NaxelActionValue const& action) const;

 private:
  struct Bits {
    uint32_t value = 0;
    uint32_t mask = 0;
  };
  std::string faultOf(Naxel::PDAclFilter const& entry, Lumox::AddressFamily af) const;
  std::string fieldFault(Naxel::TcamFieldType field,
                         Naxel::EncodedLabelWithMask const& match) const;
  std::string portFault(Naxel::PDAclFilter const& entry) const;
  std::string laterFragmentFault(Naxel::PDAclFilter const& entry) const;
  std::array<Bits, registersUsed> bitsOf(Naxel::PDAclFilter const& entry) const;

  Naxel::PDData const& data_;
  Layout const& layout_;
  std::vector<LabelPiece> protocols_;
  std::vector<LabelPiece> fragments_;
};

}  // namespace NaxelOvs
