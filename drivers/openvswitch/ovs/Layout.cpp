#include "ovs/Layout.h"

#include "mox/Assert.h"

#include <array>
#include <optional>

namespace NaxelOvs {

Slot Layout::slot(Naxel::TcamFieldType field) const {
  using enum Naxel::TcamFieldType;
  // Two labels of 16 bits to a register, in the order of the tables.
  constexpr std::array order = {tcamFieldTypeSrcIp,      tcamFieldTypeDstIp, tcamFieldTypeSrcPort,
                                tcamFieldTypeDstPort,    tcamFieldTypeProto, tcamFieldTypeIcmp,
                                tcamFieldTypeFragOffset, tcamFieldTypeDscp,  tcamFieldTypeSrcDstIp,
                                tcamFieldTypeSrcDstPort};
  for (unsigned i = 0; i < order.size(); ++i)
    if (order[i] == field)
      return {static_cast<uint8_t>(firstRegister + i / 2), static_cast<uint8_t>(i % 2 ? 0 : 16),
              16};
  MOX_ASSERT(!"a field that has no place");
  return {};
}

namespace {

/// Tables behind it are no user's: the switch keeps 254 for itself, and 255 means all of them.
constexpr unsigned mostTable = 253;
/// Ports of a bridge, beside the one that it is itself.
constexpr uint32_t mostPort = 0xfeff;
constexpr uint32_t localPort = 0xfffffffe;

std::string exitFault(Layout const& layout, Exit exit, char const* what) {
  if (exit.kind != Exit::Kind::table) return {};
  std::string const to = std::string(what) + " go to table " + std::to_string(exit.table) + ", ";
  if (exit.table > mostTable)
    return to + "and the last one of a bridge is " + std::to_string(mostTable);
  if (exit.table <= layout.lastTable())
    return to + "which is not behind our last one, " + std::to_string(layout.lastTable());
  return {};
}

std::string bindingFault(Binding const& binding) {
  if (binding.by == Binding::By::reg && binding.reg >= registerCount)
    return "there is no register " + std::to_string(binding.reg);
  bool const port = (1 <= binding.value && binding.value <= mostPort) || binding.value == localPort;
  if (binding.by == Binding::By::inPort && !port)
    return "no port of a bridge has the number " + std::to_string(binding.value) + ": they go to " +
           std::to_string(mostPort) + ", and the bridge's own is " + std::to_string(localPort);
  return {};
}

}  // namespace

std::string layoutFault(Layout const& layout) {
  if (layout.firstTable + stageCount > mostTable + 1)
    return "the tables from " + std::to_string(layout.firstTable) + " on are fewer than the " +
           std::to_string(stageCount) + " that are needed";
  if (layout.firstRegister + registersUsed > registerCount)
    return "the registers from " + std::to_string(layout.firstRegister) +
           " on are fewer than the " + std::to_string(registersUsed) + " that are needed";
  for (auto const& [exit, what] : {std::pair(layout.next, "permitted packets"),
                                   std::pair(layout.noVerdict, "packets without a verdict"),
                                   std::pair(layout.noAcl, "packets without an ACL"),
                                   std::pair(layout.notIp, "packets of other protocols than IP")})
    if (std::string fault = exitFault(layout, exit, what); !fault.empty()) return fault;
  for (Binding const& binding : layout.bindings)
    if (std::string fault = bindingFault(binding); !fault.empty()) return fault;
  return {};
}

}  // namespace NaxelOvs
