#include "naxel/testing/ModelLookup.h"

#include "verify/NaiveLookup.h"

namespace Naxel::Testing {

Met lookup(PDData const& inForce, PDAclKey const& acl, Verify::Packet const& packet) {
  auto const verdict = Verify::naiveLookup(inForce, Verify::KeyLayout::of(inForce), acl, packet);
  if (verdict.kind == Verify::Verdict::Kind::none) return {Met::Kind::noRule};
  return {Met::Kind::rule, verdict.rule, verdict.action};
}

}  // namespace Naxel::Testing
