#pragma once

/// What a verification came to, as text and as JSON (schema/naxel-verify.schema.json).

#include "input/RuleSet.h"

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace NaxelTool {

struct VerifiedAcl {
  std::string name;
  uint64_t packets = 0;  ///< that were looked up in it
  uint64_t matched = 0;
  size_t reached = 0;  ///< rules that decided a packet
  size_t rules = 0;
};

/// The first thing that is not as it has to be.
struct Difference {
  std::string text;  ///< "difference in ACL a after 12 packets, seed 1"
  std::string packet;
  std::string rules;   ///< what the rules say of the packet; empty where there is none
  std::string tables;  ///< what the tables say
  std::string labels;
};

struct ProofCounts {
  size_t acls = 0;
  size_t rules = 0;
  size_t entries = 0;
};

struct VerifyReport {
  ReadCounts source;  ///< entries that were left out are not among the rules that are compared with
  uint64_t seed = 0;
  uint64_t packets = 0;           ///< drawn
  std::vector<VerifiedAcl> acls;  ///< by name; none behind a difference
  std::optional<Difference> difference;
  std::optional<ProofCounts> proof;  ///< where all packets were proved to agree
};

void print(VerifyReport const& report, std::ostream& out);
/// The difference or the proof alone.
void printFindings(VerifyReport const& report, std::ostream& out);
void printJson(VerifyReport const& report, std::ostream& out);

}  // namespace NaxelTool
