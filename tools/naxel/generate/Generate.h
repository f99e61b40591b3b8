#pragma once

/// Rule sets of any size that resemble those in use. The same options give the same bytes on every
/// machine.

#include <cstdint>
#include <ostream>
#include <string>

namespace NaxelTool {

/// What a filter set is for.
enum class FilterStyle : uint8_t {
  acl,  ///< an edge router: many hosts on both sides, services at the destination
  fw,   ///< a firewall: one side mostly open, ports on both sides
  ipc   ///< a gateway: both sides specific, much without ports
};

struct FilterSetOptions {
  FilterStyle style = FilterStyle::acl;
  uint32_t rules = 1000;
  uint64_t seed = 1;
};

/// Writes a ClassBench filter set. Sets of 100,000 rules still fit prefix labels of 16 bits and port
/// labels of 12.
void generateFilterSet(std::ostream& out, FilterSetOptions const& options);

/// How the prefix lists of an object group configuration lie to each other.
enum class Overlap : uint8_t {
  nested,     ///< a list lies within another, or they are disjoint
  crossing,   ///< lists have members in common, and each has members of its own
  mixed,      ///< half of them each
  attributes  ///< lists of hosts picked by what they are: application, tier, environment, site
};

struct ObjectGroupOptions {
  uint32_t rules = 1000;  ///< of all ACLs together
  uint32_t acls = 2;
  uint32_t lists = 50;
  uint32_t listSize = 20;  ///< prefixes of a list on average
  Overlap overlap = Overlap::mixed;
  uint32_t handMade = 0;  ///< of lists by attributes: how many further ones that go by no attribute
  bool ipv6 = false;
  uint64_t seed = 1;
};

/// About how many bytes of memory it takes to make them.
uint64_t memoryFor(ObjectGroupOptions const& options);

/// Writes a configuration in our JSON format: shared prefix lists, some with exceptions, and ACLs whose
/// rules combine them with groups of ports.
void generateObjectGroups(std::ostream& out, ObjectGroupOptions const& options);

}  // namespace NaxelTool
