#include "ovs/Flow.h"

#include "ovs/Bytes.h"

#include <cstdio>

namespace NaxelOvs {

namespace {

constexpr uint16_t instructionGoto = 1;
constexpr uint16_t instructionApply = 4;
constexpr uint16_t actionOutput = 0;
constexpr uint16_t actionSetField = 25;
constexpr uint16_t actionExperimenter = 0xffff;
constexpr uint32_t experimenterNicira = 0x00002320;
constexpr uint16_t nicRegLoad = 7;
constexpr uint32_t portNormal = 0xfffffffa;
constexpr uint32_t headerDscp = 0x80001001;

constexpr uint32_t registerHeader(unsigned reg) { return 0x00010004u | reg << 9; }

/// What instructions of ours say, read or to be written.
struct Program {
  struct Load {
    Slot slot;
    uint32_t value;
  };
  std::optional<Load> load;
  std::optional<uint8_t> dscp;
  bool normal = false;
  std::optional<uint8_t> next;
};

void putLoad(std::string& out, Program::Load const& load) {
  put<uint16_t>(out, actionExperimenter);
  put<uint16_t>(out, 24);
  put<uint32_t>(out, experimenterNicira);
  put<uint16_t>(out, nicRegLoad);
  put<uint16_t>(out, static_cast<uint16_t>(load.slot.offset << 6 | (load.slot.bits - 1)));
  put<uint32_t>(out, registerHeader(load.slot.reg));
  put<uint64_t>(out, load.value);
}

std::string bytesOf(Program const& program) {
  std::string actions;
  if (program.load) putLoad(actions, *program.load);
  if (program.dscp) {
    put<uint16_t>(actions, actionSetField);
    put<uint16_t>(actions, 16);
    put<uint32_t>(actions, headerDscp);
    put<uint8_t>(actions, *program.dscp);
    putZeros(actions, 7);
  }
  if (program.normal) {
    put<uint16_t>(actions, actionOutput);
    put<uint16_t>(actions, 16);
    put<uint32_t>(actions, portNormal);
    putZeros(actions, 8);
  }
  std::string out;
  if (!actions.empty()) {
    put<uint16_t>(out, instructionApply);
    put<uint16_t>(out, static_cast<uint16_t>(8 + actions.size()));
    putZeros(out, 4);
    out += actions;
  }
  if (program.next) {
    put<uint16_t>(out, instructionGoto);
    put<uint16_t>(out, 8);
    put<uint8_t>(out, *program.next);
    putZeros(out, 3);
  }
  return out;
}

bool readRegLoad(Reader& in, Program& to) {
  if (in.get<uint32_t>() != experimenterNicira || in.get<uint16_t>() != nicRegLoad) return false;
  uint16_t const offsetBits = in.get<uint16_t>();
  uint32_t const header = in.get<uint32_t>();
  uint64_t const value = in.get<uint64_t>();
  Slot slot;
  slot.reg = static_cast<uint8_t>(header >> 9 & 0xf);
  slot.offset = static_cast<uint8_t>(offsetBits >> 6 & 31);
  slot.bits = static_cast<uint8_t>((offsetBits & 63) + 1);
  if (to.load || header != registerHeader(slot.reg) || slot.offset + slot.bits > 32 ||
      offsetBits >> 11 || value >> 32)
    return false;
  to.load = {slot, static_cast<uint32_t>(value)};
  return true;
}

/// A DSCP, or a whole register, which a switch may report in this form.
bool readSetField(Reader& in, Program& to) {
  uint32_t const header = in.get<uint32_t>();
  if (header == headerDscp) {
    if (to.dscp) return false;
    to.dscp = in.get<uint8_t>();
    return true;
  }
  uint8_t const reg = static_cast<uint8_t>(header >> 9 & 0xf);
  if (header != registerHeader(reg) || to.load) return false;
  to.load = {Slot{reg, 0, 32}, in.get<uint32_t>()};
  return true;
}

bool readActions(std::string_view bytes, Program& to) {
  Reader in(bytes);
  while (!in.rest().empty()) {
    uint16_t const type = in.get<uint16_t>();
    uint16_t const length = in.get<uint16_t>();
    if (length < 8 || to.normal) return false;
    Reader body(in.bytes(length - 4u));
    bool known = true;
    if (type == actionExperimenter)
      known = !to.dscp && readRegLoad(body, to);
    else if (type == actionSetField)
      known = readSetField(body, to);
    else if (type == actionOutput)
      known = to.normal = body.get<uint32_t>() == portNormal;
    else
      known = false;
    if (!known || in.failed() || body.failed()) return false;
  }
  return true;
}

std::optional<Program> programOf(std::string_view bytes) {
  Program out;
  Reader in(bytes);
  while (!in.rest().empty()) {
    uint16_t const type = in.get<uint16_t>();
    uint16_t const length = in.get<uint16_t>();
    if (length < 8 || out.next) return std::nullopt;
    Reader body(in.bytes(length - 4u));
    if (type == instructionGoto) {
      out.next = body.get<uint8_t>();
    } else if (type == instructionApply) {
      body.skip(4);
      if (!readActions(body.rest(), out)) return std::nullopt;
    } else {
      return std::nullopt;
    }
    if (in.failed() || body.failed()) return std::nullopt;
  }
  return out;
}

std::string loadText(Program::Load const& load) {
  char out[80];
  if (load.slot.bits == 32)
    std::snprintf(out, sizeof out, "load:0x%x->NXM_NX_REG%u[]", load.value, load.slot.reg);
  else
    std::snprintf(out, sizeof out, "load:0x%x->NXM_NX_REG%u[%u..%u]", load.value, load.slot.reg,
                  load.slot.offset, load.slot.offset + load.slot.bits - 1);
  return out;
}

}  // namespace

std::string text(Exit exit) {
  switch (exit.kind) {
    case Exit::Kind::drop: return "drop";
    case Exit::Kind::normal: return "normal";
    case Exit::Kind::table: break;
  }
  return "table " + std::to_string(exit.table);
}

std::string loadAndGo(Slot slot, uint32_t value, uint8_t table) {
  Program program;
  program.load = {slot, value};
  program.next = table;
  return bytesOf(program);
}

std::string leave(Exit exit, std::optional<Lumox::DscpValue> dscp) {
  Program program;
  if (exit.kind == Exit::Kind::drop) return {};
  if (dscp) program.dscp = dscp->value();
  program.normal = exit.kind == Exit::Kind::normal;
  if (exit.kind == Exit::Kind::table) program.next = exit.table;
  return bytesOf(program);
}

std::optional<std::string> canonicalInstructions(std::string_view bytes) {
  auto const program = programOf(bytes);
  if (!program) return std::nullopt;
  return bytesOf(*program);
}

std::string instructionsText(std::string_view instructions) {
  auto const program = programOf(instructions);
  if (!program) return "(actions of others)";
  std::string out;
  auto const add = [&](std::string const& action) { out += (out.empty() ? "" : ",") + action; };
  if (program->load) add(loadText(*program->load));
  if (program->dscp) add("set_field:" + std::to_string(*program->dscp) + "->ip_dscp");
  if (program->normal) add("NORMAL");
  if (program->next) add("goto_table:" + std::to_string(*program->next));
  return out.empty() ? "drop" : out;
}

std::string text(Flow const& flow) {
  std::string const match = matchText(flow.match);
  return "table=" + std::to_string(flow.table) + ",priority=" + std::to_string(flow.priority) +
         (match.empty() ? "" : "," + match) + " actions=" + instructionsText(flow.instructions);
}

}  // namespace NaxelOvs
