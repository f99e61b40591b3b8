#include "ovs/Bridge.h"

#include "input/RuleFiles.h"
#include "support/World.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <unistd.h>

#include <gtest/gtest.h>

namespace Test {

std::string Bridge::root() {
  char const* const given = std::getenv("NAXEL_OVS_ROOT");
  return given ? given : NAXEL_OVS_ROOT;
}

bool Bridge::possible() {
  return std::filesystem::exists(root() + "/usr/lib/openvswitch-switch/ovs-vswitchd");
}

Bridge::Bridge() {
  // Short, because names of sockets are.
  char name[] = "/tmp/nxovs-XXXXXX";
  if (!mkdtemp(name)) throw std::runtime_error("no folder for a bridge");
  folder_ = name;
  script("start " + root() + " " + folder_);
}

Bridge::~Bridge() {
  script("stop " + folder_);
  std::filesystem::remove_all(folder_);
}

void Bridge::script(std::string const& arguments) {
  std::string const command = NAXEL_SOURCE_DIR "/scripts/ovs.sh " + arguments;
  EXPECT_EQ(std::system((command + " >/dev/null 2>&1").c_str()), 0) << command;
}

NaxelOvs::DriverOptions Bridge::options() const {
  NaxelOvs::DriverOptions options;
  options.target = NaxelOvs::targetFromText(folder_ + "/br0.mgmt");
  options.setFragments = true;
  options.layout.ignoreActions = true;
  options.patience = std::chrono::seconds(10);
  options.firstRetry = 0.02;
  options.lastRetry = 0.1;
  return options;
}

NaxelOvs::FlowSet Bridge::flows() const {
  return NaxelOvs::Switch(options().target.management, options().patience)
      .ownFlows(options().layout);
}

Mox::Ptr<Naxel::AclConfigColl> aclsOf(std::string const& text) {
  char name[] = "/tmp/nxovs-rules-XXXXXX";
  close(mkstemp(name));
  std::ofstream(name) << text;
  NaxelTool::RuleSet rules(Obel::ChipId(0));
  NaxelTool::MessageStyle quiet;
  quiet.quiet = true;
  NaxelTool::Diagnostics diagnostics(std::cerr, quiet);
  NaxelTool::readRuleFiles({name}, {}, rules, diagnostics);
  std::filesystem::remove(name);
  return rules.acls();
}

Mox::Ptr<Naxel::AclConfigColl> small(std::string const& rules) {
  auto acls = Mox::makePtr<Naxel::AclConfigColl>(Obel::ChipId(0));
  addRules(*acls, rules);
  return acls;
}

std::string kick(NaxelTool::SwitchSession& session, std::string const& refusal) {
  auto const result = session.kick(20);
  if (!result) {
    ADD_FAILURE() << "waiting: " << session.driver().waitingFor();
    return {};
  }
  EXPECT_EQ(bool(*result), refusal.empty()) << result->reason;
  EXPECT_NE(result->reason.find(refusal), std::string::npos) << result->reason;
  return result->reason;
}

std::unique_ptr<NaxelTool::SwitchSession> agent(Mox::Ptr<Naxel::AclConfigColl> acls,
                                                NaxelOvs::DriverOptions options) {
  NaxelTool::ChipSetup chip = NaxelTool::defaultChip();
  NaxelOvs::setWidths(*chip.capability);
  return std::make_unique<NaxelTool::SwitchSession>(chip, std::move(acls), std::move(options));
}

void expectInForce(Mox::Ptr<Naxel::AclConfigColl> const& acls,
                   NaxelOvs::DriverOptions const& options, uint64_t packets, uint64_t seed) {
  auto const report = NaxelTool::verifySwitch(acls, options, packets, seed);
  EXPECT_EQ(report.packets, packets);
  if (report.difference)
    ADD_FAILURE() << report.difference->text << "\n  packet " << report.difference->packet
                  << "\n  rules " << report.difference->rules << "\n  switch "
                  << report.difference->tables << ", " << report.difference->labels;
}

}  // namespace Test
