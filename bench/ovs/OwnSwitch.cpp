#include "ovs/OwnSwitch.h"

#include "command/SwitchVerify.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>

namespace Bench {

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// A packet as the datapath's own flows are written.
std::string datapathText(Verify::Packet const& p) {
  std::string out =
      "in_port(1),eth(src=50:54:00:00:00:01,dst=50:54:00:00:00:02),eth_type(0x0800),ipv4(src=" +
      Verify::addressText(p.af, p.src) + ",dst=" + Verify::addressText(p.af, p.dst) +
      ",proto=" + std::to_string(p.proto) + ",tos=0,ttl=64,frag=no)";
  std::string const ports =
      "(src=" + std::to_string(p.sport) + ",dst=" + std::to_string(p.dport) + ")";
  if (p.proto == 6) out += ",tcp" + ports + ",tcp_flags(0x2)";
  if (p.proto == 17) out += ",udp" + ports;
  if (p.proto == 132) out += ",sctp" + ports;
  if (p.isIcmp()) out += ",icmp(type=" + std::to_string(p.icmpType) + ",code=0)";
  return out;
}

}  // namespace

OwnSwitch::OwnSwitch(std::string script, std::string root)
    : script_(std::move(script)), root_(std::move(root)) {
  char name[] = "/tmp/nxovs-XXXXXX";
  if (!mkdtemp(name)) throw std::runtime_error("no folder for a switch");
  folder_ = name;
  this->script("start " + root_ + " " + folder_);
  this->script("run " + root_ + " " + folder_ + " ovs-ofctl set-frags br0 nx-match");
}

OwnSwitch::~OwnSwitch() {
  static_cast<void>(std::system((script_ + " stop " + folder_).c_str()));
  std::error_code error;
  std::filesystem::remove_all(folder_, error);
}

void OwnSwitch::script(std::string const& arguments) const {
  std::string const command = script_ + " " + arguments + " >" + folder_ + "/said 2>&1";
  if (std::system(command.c_str()) == 0) return;
  std::ifstream in(folder_ + "/said");
  std::string said(std::istreambuf_iterator<char>(in), {});
  throw std::runtime_error(arguments + ": " + said.substr(0, 300));
}

NaxelOvs::DriverOptions OwnSwitch::options() const {
  NaxelOvs::DriverOptions options;
  options.target = NaxelOvs::targetFromText(folder_ + "/br0.mgmt");
  options.layout.ignoreActions = true;
  options.patience = std::chrono::minutes(2);
  return options;
}

double OwnSwitch::change(std::vector<std::string> const& lines) {
  std::string const file = folder_ + "/flows";
  {
    std::ofstream out(file);
    for (std::string const& line : lines) out << line << '\n';
  }
  auto const start = Clock::now();
  script("run " + root_ + " " + folder_ + " ovs-ofctl --bundle add-flows br0 " + file);
  return since(start);
}

uint64_t OwnSwitch::memory() const {
  std::ifstream pidFile(folder_ + "/ovs-vswitchd.pid");
  std::string pid;
  pidFile >> pid;
  std::ifstream in("/proc/" + pid + "/status");
  for (std::string line; std::getline(in, line);)
    if (line.starts_with("VmRSS:")) return std::stoull(line.substr(6));
  return 0;
}

std::string OwnSwitch::ask(std::string const& command,
                           std::vector<std::string> const& arguments) const {
  return NaxelOvs::Control(options().target.controlPath(), std::chrono::minutes(2))
      .run(command, arguments);
}

double OwnSwitch::upcallsPerSecond(std::vector<Verify::Packet> const& packets) const {
  NaxelOvs::Control control(options().target.controlPath(), std::chrono::minutes(2));
  control.run("upcall/disable-megaflows", {});
  auto const start = Clock::now();
  // The port takes in what is sent at once up to 32 packets each time it is looked at.
  constexpr size_t batch = 30;
  for (size_t i = 0; i < packets.size(); i += batch) {
    std::vector<std::string> arguments = {"p1"};
    for (size_t k = i; k < std::min(packets.size(), i + batch); ++k)
      arguments.push_back(datapathText(packets[k]));
    control.run("netdev-dummy/receive", arguments);
  }
  double const seconds = since(start);
  control.run("upcall/enable-megaflows", {});
  return static_cast<double>(packets.size()) / seconds;
}

OwnSwitch::Megaflows OwnSwitch::megaflows(std::vector<Verify::Packet> const& packets) const {
  // Traces, and not the cache itself, which a busy machine empties early.
  NaxelOvs::Control control(options().target.controlPath(), std::chrono::minutes(2));
  static std::regex const line("\nMegaflow: ([^\n]*)");
  static std::regex const value("=[^/,]*");
  std::set<std::string> flows;
  std::set<std::string> masks;
  for (Verify::Packet const& packet : packets) {
    std::string const trace =
        control.run("ofproto/trace", {"br0", "in_port=1," + NaxelTool::traceText(packet, false)});
    std::smatch found;
    if (!std::regex_search(trace, found, line)) throw std::runtime_error("no trace: " + trace);
    flows.insert(found[1]);
    // What is left of a flow without its values is its mask: "/8" behind a value, or nothing for all bits.
    masks.insert(std::regex_replace(found[1].str(), value, "="));
  }
  return {flows.size(), masks.size()};
}

}  // namespace Bench
