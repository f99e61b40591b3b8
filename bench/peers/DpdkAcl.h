#pragma once

/// DPDK's librte_acl as a peer: the same 5-tuples, built into its tries.

#include "naxel/types/AclConfig.h"

#include <cstddef>
#include <string>
#include <vector>

struct rte_acl_ctx;

namespace Bench {

/// One rule of the usual IPv4 layout.
struct FiveTuple {
  uint8_t proto = 0;
  uint8_t protoMask = 0;
  uint32_t src = 0;
  uint32_t srcLength = 0;
  uint32_t dst = 0;
  uint32_t dstLength = 0;
  uint16_t sportFirst = 0;
  uint16_t sportLast = 0xffff;
  uint16_t dportFirst = 0;
  uint16_t dportLast = 0xffff;
};

/// The rules of all ACLs in order. Throws std::runtime_error for a rule that says more than a 5-tuple
/// can.
std::vector<FiveTuple> fiveTuples(Naxel::AclConfigColl const& acls);

/// Starts DPDK's environment in this process, without huge pages and devices. Throws
/// std::runtime_error.
void startDpdk(char const* program, unsigned megabytes);

/// A context that holds the rules, the first of them with the highest priority.
class DpdkAcl {
 public:
  explicit DpdkAcl(std::vector<FiveTuple> const& rules);
  DpdkAcl(DpdkAcl const&) = delete;
  DpdkAcl& operator=(DpdkAcl const&) = delete;
  ~DpdkAcl();

  /// Seconds that building takes; no limit of size, one category. Throws std::runtime_error with the
  /// reason where it fails.
  double build();

 private:
  rte_acl_ctx* context_;
};

}  // namespace Bench
