#pragma once

/// The defined sets of an OpenConfig file: prefixes and ports under names, for entries to refer to.

#include "input/NamedLists.h"
#include "input/OpenConfigTree.h"
#include "input/RuleReading.h"

#include <map>

namespace NaxelTool::OpenConfig {

class Sets {
 public:
  /// Adds those of a `defined-sets` container; what is wrong is told.
  void read(RuleReading& reading, Values const& values, JsonNode const& node);

  /// The set of that name; null where there is none. One that could not be read has no list.
  NamedList const* prefixes(Lumox::AddressFamily af, std::string_view name) const;
  /// One that could not be read is empty.
  RuleDraft::Ranges const* ports(std::string_view name) const;

 private:
  void readPrefixes(RuleReading& reading, Values const& values, JsonNode const& node,
                    Lumox::AddressFamily af);
  void readPorts(RuleReading& reading, Values const& values, JsonNode const& node);

  std::map<std::string, NamedList, std::less<>> prefixes_[2];  // of IPv4 and of IPv6
  std::map<std::string, RuleDraft::Ranges, std::less<>> ports_;
};

}  // namespace NaxelTool::OpenConfig
