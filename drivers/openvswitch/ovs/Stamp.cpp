#include "ovs/Stamp.h"

#include <random>

namespace NaxelOvs {

namespace {

constexpr uint16_t etherReserved = 0xffff;
/// Over all bindings, and beside that of a policy.
constexpr uint16_t stampPriority = 65534;

}  // namespace

Flow stampFlow(uint32_t number, Layout const& layout) {
  MatchBuilder match;
  match.add(MatchField::ethType, etherReserved).add(registerField(layout.firstRegister), 0, number);
  return {layout.table(Stage::entry), stampPriority, match.bytes(), leave(layout.notIp)};
}

uint32_t newStamp() {
  std::random_device device;
  return std::uniform_int_distribution<uint32_t>(1)(device);
}

bool isStamp(ReportedFlow const& flow, Layout const& layout) {
  return flow.cookie == layout.stampCookie() && flow.ours &&
         flow.flow.table == layout.table(Stage::entry) && flow.flow.priority == stampPriority;
}

}  // namespace NaxelOvs
