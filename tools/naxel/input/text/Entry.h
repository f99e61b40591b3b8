#pragma once

/// An entry of a list as it is written, before it becomes rules: with groups resolved, and with the protocols
/// and ports of its groups side by side.

#include "input/text/Values.h"
#include "lumox/AddressFamily.h"
#include "naxel/types/IpPrefixList.h"

#include <vector>

namespace NaxelTool {

/// The addresses of one side of an entry, by family.
struct AddressMatch {
  struct Family {
    bool matches = false;                  ///< any address at all
    Mox::Ptr<Naxel::IpPrefixList> list{};  ///< null for all of them
  };
  Family ipv4{};
  Family ipv6{};

  Family const& of(Lumox::AddressFamily af) const { return af == Lumox::ipv4() ? ipv4 : ipv6; }
};

/// Packets of some protocols with some ports or ICMP types. What is empty does not constrain.
struct ServiceMatch {
  ValueSet protocols{};
  ValueSet sourcePorts{};
  ValueSet destinationPorts{};
  ValueSet icmpTypes{};

  bool looksAtLayer4() const {
    return !sourcePorts.empty() || !destinationPorts.empty() || !icmpTypes.empty();
  }
};

struct Entry {
  bool permit = false;
  bool log = false;
  std::vector<ServiceMatch> services{};  ///< packets of any of these
  AddressMatch source{};
  AddressMatch destination{};
  bool established = false;  ///< TCP with ACK or RST
  bool opening = false;      ///< TCP with SYN and without ACK
  bool fragments = false;    ///< behind the first fragment of a packet only
  ValueSet dscp{};
  ValueSet length{};
};

}  // namespace NaxelTool
