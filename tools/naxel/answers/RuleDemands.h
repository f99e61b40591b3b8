#pragma once

/// What a rule demands of a packet, field by field, and whether a packet meets it.

#include "input/Intervals.h"
#include "input/NamedLists.h"
#include "verify/AddressSet.h"
#include "verify/Packet.h"

#include <cstdint>
#include <string>
#include <vector>

namespace NaxelTool {

class RuleDemands {
 public:
  /// The rule must not change meanwhile; `af` is the family of its ACL.
  RuleDemands(Naxel::RuleConfig const& rule, Lumox::AddressFamily af, NamedLists const& lists);

  /// How many there are, in the order of source, destination, fields and TCP flags; none for a rule that
  /// matches every packet. At most 64.
  size_t size() const { return demand_.size(); }
  /// "source", "dport", "matchTcpInit", as rule files name it.
  std::string const& field(size_t i) const { return demand_[i].field; }
  /// "198.51.100.0/24", "80,443,8000-8099"; lists go by their names where they have one.
  std::string const& wanted(size_t i) const { return demand_[i].wanted; }

  /// The demands that the packet does not meet, a bit each. Takes time in proportion to the demands and to the
  /// logarithm of the lists.
  uint64_t unmet(Verify::Packet const& packet) const;
  /// What the packet has in the field: "80", "198.51.100.7".
  std::string had(size_t i, Verify::Packet const& packet) const;
  /// "dport is not 443", "source is not in 10.0.0.0/8".
  std::string unmetText(size_t i) const;
  /// A demand and a packet in words: "dport is 80, not 443". Takes time in proportion to the list.
  std::string text(size_t i, Verify::Packet const& packet) const;

 private:
  enum class Kind : uint8_t { source, destination, range, tcpInit, tcpEstablished };
  struct Demand {
    Kind kind;
    std::string field;
    std::string wanted;
    Mox::Ptr<Naxel::IpPrefixList> list = {};  ///< of a side
    Verify::AddressSet addresses = {};        ///< the same
    Naxel::RangeSetType type = Naxel::RangeSetType::srcPort;
    IntervalSet values = {};  ///< of a range
  };

  void addSide(Kind kind, Mox::Ptr<Naxel::IpPrefixList> const& list, Lumox::AddressFamily af,
               NamedLists const& lists);
  static bool isMet(Demand const& demand, Verify::Packet const& packet);
  static std::string sideText(Demand const& demand, Verify::Packet const& packet);
  static std::string rangeFieldText(Demand const& demand, Verify::Packet const& packet);

  std::vector<Demand> demand_;
};

/// One demand and how a packet does by it.
struct FieldCheck {
  std::string field;
  std::string wanted;
  std::string had;
  std::string text;
};
/// Those that the packet meets, or those that it does not.
std::vector<FieldCheck> checksOf(RuleDemands const& demands, Verify::Packet const& packet,
                                 bool met);

}  // namespace NaxelTool
