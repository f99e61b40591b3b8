/// The same rules in Open vSwitch as plain flows, as conjunctive matches per rule, and as labels: how many flows, how
/// long they take to load and to change, what they take of memory, and how packets fare that the cache does not know.
///
///     naxel_bench_ovs SCRIPT ROOT FILE...

#include "RuleSource.h"
#include "command/SwitchSession.h"
#include "command/SwitchVerify.h"
#include "ovs/OwnSwitch.h"
#include "ovs/RuleForms.h"
#include "verify/PacketSource.h"
#include "verify/RuleOracle.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <optional>

namespace Bench {

namespace {

using Acls = Mox::Ptr<Naxel::AclConfigColl>;

/// More of them are counted and not loaded: ovs-ofctl takes minutes and gigabytes for a million.
constexpr uint64_t mostLoaded = 400000;
constexpr size_t packetsSent = 6000;

struct Figures {
  uint64_t flows = 0;
  std::optional<double> load;
  std::optional<double> change;
  uint64_t changed = 0;  // flows that the change writes
  uint64_t memory = 0;   // MiB
  double upcalls = 0;    // in a second
  OwnSwitch::Megaflows megaflows;
};

void print(char const* form, Figures const& f) {
  if (!f.load) {
    std::printf("  %-12s %10llu  too many to be loaded here\n", form,
                static_cast<unsigned long long>(f.flows));
    return;
  }
  std::printf("  %-12s %10llu %8.2f %9.3f %9llu %8llu %10.0f %10zu %6zu\n", form,
              static_cast<unsigned long long>(f.flows), *f.load, *f.change,
              static_cast<unsigned long long>(f.changed), static_cast<unsigned long long>(f.memory),
              f.upcalls, f.megaflows.flows, f.megaflows.masks);
  std::fflush(stdout);
}

/// One prefix more in the source list of the rule in the middle, in a list of its own.
void changeOne(Naxel::AclConfig& acl) {
  auto const rules = acl.ruleById();
  size_t at = rules.size() / 2;
  for (auto const& [index, rule] : rules) {
    if (at-- > 0) continue;
    auto const list = Mox::makePtr<Naxel::IpPrefixList>();
    auto const filter = rule->ruleFilterIs();
    if (filter->source())
      for (auto const& p : filter->source()->addr()) list->addrIs(p);
    list->addrIs(Lumox::IpGenPrefix::v4(0xc6336440, 27));
    return filter->sourceIs(list);
  }
}

std::vector<Verify::Packet> packetsFor(Naxel::AclConfigColl const& acls) {
  Verify::PacketSource source(acls, 1);
  std::vector<Verify::Packet> out;
  for (size_t drawn = 0; out.size() < packetsSent && drawn < packetsSent * 50; ++drawn) {
    Verify::Packet const p = source.next();
    if (p.af == Lumox::ipv4() && p.isPossible() && !p.isLaterFragment()) out.push_back(p);
  }
  return out;
}

/// Flows of ovs-ofctl's: those of before that are gone, and those that are new.
std::vector<std::string> difference(std::vector<std::string> before,
                                    std::vector<std::string> after) {
  std::sort(before.begin(), before.end());
  std::sort(after.begin(), after.end());
  std::vector<std::string> gone;
  std::vector<std::string> out;
  std::set_difference(before.begin(), before.end(), after.begin(), after.end(),
                      std::back_inserter(gone));
  for (std::string const& line : gone)
    out.push_back("delete_strict " + line.substr(0, line.find(" actions=")));
  std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                      std::back_inserter(out));
  return out;
}

/// Throws where flows of ovs-ofctl's do something else with packets than the rules say.
void check(OwnSwitch const& bridge, Naxel::AclConfig const& acl,
           std::vector<Verify::Packet> const& packets) {
  Verify::RuleOracle const oracle(acl);
  for (size_t i = 0; i < packets.size(); i += 20) {
    auto const rule = oracle.firstMatch(packets[i]);
    bool const drops = !rule || acl.ruleById(*rule)->action().dropEnabled();
    std::string const flow = NaxelTool::traceText(packets[i], false);
    bool const does =
        bridge.ask("ofproto/trace", {"br0", "in_port=1," + flow}).find("Datapath actions: drop") !=
        std::string::npos;
    if (drops != does) throw std::runtime_error("another verdict than that of the rules: " + flow);
  }
}

Figures withoutLabels(RuleSource const& source, RuleForm form, std::string const& script,
                      std::string const& root) {
  Acls const acls = build(source);
  auto const acl = acls->acl().begin()->second;
  Figures out;
  out.flows = countFlows(*acl, form);
  if (out.flows > mostLoaded) return out;
  auto const packets = packetsFor(*acls);
  auto const flows = flowsOf(*acl, form);
  OwnSwitch bridge(script, root);
  uint64_t const empty = bridge.memory();
  out.load = bridge.change(flows);
  out.memory = (bridge.memory() - empty) / 1024;
  check(bridge, *acl, packets);
  out.megaflows = bridge.megaflows(packets);
  out.upcalls = bridge.upcallsPerSecond(packets);
  changeOne(*acl);
  auto const changes = difference(flows, flowsOf(*acl, form));
  out.changed = changes.size();
  out.change = bridge.change(changes);
  return out;
}

Figures withLabels(RuleSource const& source, std::string const& script, std::string const& root) {
  Acls const acls = build(source);
  auto const packets = packetsFor(*acls);
  OwnSwitch bridge(script, root);
  NaxelTool::ChipSetup chip = NaxelTool::defaultChip();
  NaxelOvs::setWidths(*chip.capability);
  NaxelTool::SwitchSession session(chip, acls, bridge.options());
  uint64_t const empty = bridge.memory();
  auto const kick = [&] {
    auto const result = session.kick(300);
    if (!result || !*result)
      throw std::runtime_error(result ? result->reason : "it takes too long");
    return session.driver().lastLoad();
  };
  auto const first = kick();
  Figures out;
  out.flows = first.flows;
  out.load = first.seconds;
  out.memory = (bridge.memory() - empty) / 1024;
  out.megaflows = bridge.megaflows(packets);
  out.upcalls = bridge.upcallsPerSecond(packets);
  changeOne(*acls->acl().begin()->second);
  auto const second = kick();
  out.change = second.seconds;
  out.changed = second.added + second.deleted + second.changed;
  return out;
}

void run(RuleSource const& source, std::string const& script, std::string const& root) {
  Acls const acls = build(source);
  std::printf("%s: %zu rules\n", source.name.c_str(),
              acls->acl().begin()->second->ruleById().size());
  for (auto const& [form, name] :
       {std::pair(RuleForm::plain, "plain"), std::pair(RuleForm::conjunctive, "conjunctive")}) {
    try {
      print(name, withoutLabels(source, form, script, root));
    } catch (std::runtime_error const& e) {
      std::printf("  %-12s %s\n", name, e.what());
    }
  }
  try {
    print("labels", withLabels(source, script, root));
  } catch (std::runtime_error const& e) {
    std::printf("  labels       %s\n", e.what());
  }
}

}  // namespace

}  // namespace Bench

int main(int argc, char** argv) {
  if (argc < 4) {
    std::cerr << "naxel_bench_ovs SCRIPT ROOT FILE...\n";
    return 2;
  }
  Naxel::naxelTrace().levelIs(-1);
  std::printf("  %-12s %10s %8s %9s %9s %8s %10s %10s %6s\n", "", "flows", "load s", "change s",
              "written", "MiB", "upcalls/s", "megaflows", "masks");
  for (int i = 3; i < argc; ++i) Bench::run(Bench::fileSource(argv[i]), argv[1], argv[2]);
}
