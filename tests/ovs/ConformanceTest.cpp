/// The driver under the kit that proves drivers, over a real switch. NAXEL_OVS_SCRIPTS makes it longer.

#include "naxel/testing/DriverConformance.h"
#include "ovs/Bridge.h"
#include "ovs/Trace.h"

#include <cstdlib>
#include <iostream>
#include <thread>

#include <gtest/gtest.h>

namespace Test {
namespace {

using Naxel::Testing::Met;
using NaxelOvs::Exit;

/// The ACLs of the kit, each behind a port of its own.
constexpr unsigned ports = 8;

class BridgeUnderTest : public Naxel::Testing::DriverUnderTest {
 public:
  explicit BridgeUnderTest(Bridge& bridge) : bridge_(bridge), options_(bridge.options()) {
    options_.layout.absentAcls = true;
    options_.awaitCaches = false;  // traces ask the tables
    options_.layout.next = {Exit::Kind::table, 60};
    options_.layout.noVerdict = {Exit::Kind::table, 61};
    options_.layout.noAcl = {Exit::Kind::table, 61};
    for (unsigned i = 0; i < ports; ++i)
      options_.layout.bindings.push_back(
          {"a" + std::to_string(i), NaxelOvs::Binding::By::inPort, 0, i + 1});
    reset();
  }

  void start(Mox::Ptr<Naxel::PDConfig> config, Mox::Ptr<Naxel::PDStatus> status,
             Mox::Ptr<Obel::TimerWheel> wheel) override {
    driver_ = std::make_unique<NaxelOvs::SwitchDriver>(config, status, wheel, options_);
    driver_->start();
  }
  void stop() override { driver_.reset(); }
  bool reset() override {
    bridge_.tool("ovs-ofctl del-flows br0");
    return true;
  }
  bool widths(Naxel::ChipHwCapability& to) const override {
    NaxelOvs::setWidths(to);
    for (auto type : Naxel::allComboLabelSetTypes()) to.comboXformWidthIs(type, 16);
    return true;
  }
  Met lookup(Naxel::PDAclKey const& acl, Verify::Packet const& packet) override {
    unsigned const number = static_cast<unsigned>(acl.aclName().back() - '0');
    if (acl.aclName().size() != 2 || number >= ports || !packet.isPossible() || packet.length)
      return {};
    NaxelOvs::Control control(options_.target.controlPath(), options_.patience);
    auto const traced = NaxelOvs::readTrace(
        control.run("ofproto/trace", {"br0", NaxelTool::traceText(packet, false) +
                                                 ",in_port=" + std::to_string(number + 1)}),
        options_.layout);
    if (!traced || !traced->exit || *traced->exit == options_.layout.noVerdict)
      return {Met::Kind::noRule};
    return {*traced->exit == options_.layout.next ? Met::Kind::passed : Met::Kind::dropped};
  }

 private:
  Bridge& bridge_;
  NaxelOvs::DriverOptions options_;
  std::unique_ptr<NaxelOvs::SwitchDriver> driver_;
};

TEST(OvsConformance, TheDriverKeepsTheContract) {
  if (!Bridge::possible()) GTEST_SKIP() << "the packages of Open vSwitch are not unpacked";
  Bridge bridge;
  char const* const scripts = std::getenv("NAXEL_OVS_SCRIPTS");
  Naxel::Testing::Options options;
  options.scripts = scripts ? std::strtoul(scripts, nullptr, 10) : 10;
  options.attempts = 20;
  auto const report = Naxel::Testing::proveDriver(
      [&] { return std::make_unique<BridgeUnderTest>(bridge); }, options);
  EXPECT_TRUE(report.passed()) << text(report);
  RecordProperty("report", text(report));
  if (scripts) std::cout << text(report);
}

}  // namespace
}  // namespace Test
