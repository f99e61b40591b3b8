#pragma once

/// A made-up switch chip: two banks of match memory, of which one decides about packets while the other one can
/// be written. Joined, the two hold one larger configuration. A register holds the policy that stands in for
/// the ACLs. Put your chip's access functions in the place of this file.

#include "naxel/driver/Drivers.h"

#include <map>

namespace TwoBank {

/// What the parser finds in a packet. A field that the packet lacks is 0.
struct Packet {
  Lumox::IpGenPrefix source;  ///< of full length, as is the destination
  Lumox::IpGenPrefix destination;
  std::array<uint16_t, Naxel::rangeFieldCount> field{};  ///< by RangeSetType
  bool syn = false;
  bool ack = false;
  bool rst = false;
};

struct Bank {
  using Label = Naxel::EncodedLabel;
  /// Where an entry stands decides its priority: lower indexes match first.
  using Place = std::tuple<Naxel::PDAclKey, Naxel::AceIndex, Naxel::PDAclFilter>;

  std::map<Naxel::PrefixXformKey, std::map<Lumox::IpGenPrefix, Label>> prefix;
  std::array<std::map<Naxel::RangeSetElem, Label>, Naxel::rangeFieldCount> range;
  std::array<std::map<Naxel::EncodedComboLabel, Label>, 3> combo;
  std::map<Place, Naxel::NaxelActionValue> tcam;
  Mox::Ptr<Naxel::ChipHwCapability const> widths;  ///< which fields hold labels; null while empty
};

class Chip {
 public:
  std::array<Bank, 2> bank;
  size_t active = 0;    ///< the bank that decides
  bool joined = false;  ///< the active bank takes the room of both
  Naxel::GlobalAclControl policy = Naxel::GlobalAclControl::doNotApply;

  /// What happens to a packet at an interface with that ACL; none where no rule matches it.
  std::optional<Naxel::NaxelActionValue> decide(std::string const& acl, Packet const& packet) const;
};

}  // namespace TwoBank
