#include "command/SwitchOptions.h"

#include <stdexcept>

namespace NaxelTool {

namespace {

void addExit(CLI::App& app, OptionName const& name, NaxelOvs::Exit& to, std::string const& text) {
  app.add_option_function<std::string>(
         name,
         [name, &to](std::string const& value) {
           try {
             to = exitFromText(value);
           } catch (std::invalid_argument const& e) {
             throw CLI::ValidationError(name, e.what());
           }
         },
         text)
      ->type_name("normal|drop|TABLE")
      ->default_str(NaxelOvs::text(to));
}

}  // namespace

void SwitchOptions::declare(CLI::App& app) {
  auto& layout = options_.layout;
  addText(app, "--ovs", target_, "BRIDGE",
          "A bridge of Open vSwitch\n"
          "Its name, or the path of its management socket. A name is looked for in OVS_RUNDIR, "
          "which is /var/run/openvswitch by default.");
  addFile(app, "--control", control_,
          "Control socket of ovs-vswitchd\nBy default the one beside the management socket.");
  addNumber(app, "--table", layout.firstTable, 0, 254 - NaxelOvs::stageCount,
            "First of the tables that the rules take\nThey take this one and 11 behind it.");
  addNumber(app, "--register", layout.firstRegister, 0,
            NaxelOvs::registerCount - NaxelOvs::registersUsed,
            "First of the registers that the rules take\nThey take six of the sixteen.");
  app.add_option("--bind", bindings_,
                 "Which packets an ACL is for, once for each\n"
                 "ACL for all packets of its family, ACL:in_port=N for those of a port, "
                 "ACL:regN=VALUE for those that an earlier table has marked. The first that "
                 "applies decides. Without any there may be one ACL of each family.")
      ->type_name("ACL[:WHAT]");
  addExit(app, "--next", layout.next, "Where permitted packets go");
  addExit(app, "--no-verdict", layout.noVerdict, "Where packets go that no rule matches");
  addExit(app, "--no-acl", layout.noAcl, "Where IP packets go that no ACL is for");
  addExit(app, "--not-ip", layout.notIp, "Where packets go that are not IP, such as ARP");
  addFlag(app, "--set-frags", options_.setFragments,
          "Set the bridge's fragment mode to nx-match\n"
          "Rules on ports need it, and it is the whole bridge's. Without this option another mode "
          "is refused.");
  addFlag(app, "--ignore-actions", layout.ignoreActions,
          "Leave out log and sFlow, which flows cannot do");
}

NaxelOvs::DriverOptions SwitchOptions::driver() const {
  if (!given()) throw std::invalid_argument("no bridge is given; --ovs names it");
  NaxelOvs::DriverOptions out = options_;
  out.target = NaxelOvs::targetFromText(target_);
  out.target.control = control_;
  for (std::string const& text : bindings_) out.layout.bindings.push_back(bindingFromText(text));
  if (std::string const fault = NaxelOvs::layoutFault(out.layout); !fault.empty())
    throw std::invalid_argument(fault);
  return out;
}

NaxelOvs::Binding bindingFromText(std::string const& text) {
  NaxelOvs::Binding out;
  size_t const colon = text.rfind(':');
  out.acl = text.substr(0, colon);
  if (out.acl.empty()) throw std::invalid_argument("--bind: '" + text + "' names no ACL");
  if (colon == text.npos) return out;
  std::string const what = text.substr(colon + 1);
  size_t const equals = what.find('=');
  std::string const field = what.substr(0, equals);
  bool const isRegister = field.starts_with("reg");
  if (equals == what.npos || (field != "in_port" && !isRegister))
    throw std::invalid_argument("--bind: '" + what + "' is neither in_port=N nor regN=VALUE");
  out.by = isRegister ? NaxelOvs::Binding::By::reg : NaxelOvs::Binding::By::inPort;
  if (isRegister)
    out.reg = static_cast<uint8_t>(numberFromText(field.substr(3), 0, NaxelOvs::registerCount - 1));
  out.value = static_cast<uint32_t>(numberFromText(what.substr(equals + 1), 0, 0xffffffff));
  return out;
}

NaxelOvs::Exit exitFromText(std::string const& text) {
  using Kind = NaxelOvs::Exit::Kind;
  if (text == "drop") return {Kind::drop, 0};
  if (text == "normal") return {Kind::normal, 0};
  return {Kind::table, static_cast<uint8_t>(numberFromText(text, 0, 254))};
}

}  // namespace NaxelTool
