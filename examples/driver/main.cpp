// Shows the driver at work: what each change of one ACL makes the chip do, and what it does to three packets.

#include "TwoBankDriver.h"
#include "naxel/agent/Agent.h"

#include <iostream>

using namespace Naxel;

namespace {

TwoBank::Packet tcp(std::string const& source, uint16_t port) {
  TwoBank::Packet p;
  p.source = Mox::valueFromText<Lumox::IpGenPrefix>(source + "/32");
  p.destination = Mox::valueFromText<Lumox::IpGenPrefix>("192.0.2.1/32");
  p.field[static_cast<size_t>(RangeSetType::proto)] = 6;
  p.field[static_cast<size_t>(RangeSetType::dstPort)] = port;
  return p;
}

std::string outcome(TwoBank::Chip const& chip, TwoBank::Packet const& packet) {
  auto const action = chip.decide("edge", packet);
  return !action ? "no rule" : action->dropEnabled() ? "drop" : "permit";
}

void permit(Pipeline& pipeline, std::string const& source, uint16_t first, uint16_t last) {
  auto acl = pipeline.acls()->aclIs("edge");
  auto rule = acl->ruleByNameIs(source + " to " + std::to_string(first));
  rule->ruleFilterIs()->sourceIs()->addrIs(Mox::valueFromText<Lumox::IpGenPrefix>(source));
  rule->ruleFilterIs()->protoIs(ProtoRange(6, 6));
  rule->ruleFilterIs()->dportRangeIs(L4PortRange(first, last));
  acl->ruleByIdIs(AceIndex(first), rule);
}

void permitServers(Pipeline& pipeline, uint16_t first, uint16_t count) {
  for (uint16_t port = first; port < first + count; ++port)
    permit(pipeline, "10.9.0.0/16", port, port);
}

}  // namespace

int main() {
  Mox::WallClock clock;
  Mox::Activity activity(clock);
  auto wheel = Mox::makePtr<Obel::TimerWheel>(activity);
  TwoBank::Chip chip;
  Pipeline pipeline(Obel::ChipId(0), wheel);
  TwoBank::Driver driver(chip, pipeline.pdConfig(), pipeline.pdStatus(), wheel,
                         {.tcamRows = 6, .tableRows = 32, .rowsPerWrite = 4, .transferTime = 1e-3});
  pipeline.capability()->rangeXformWidthIs(RangeSetType::dstPort, 12);

  auto const kick = [&](char const* what) {
    uint64_t const before = driver.rowsWritten();
    KickResult outcomeOfKick;
    pipeline.kick([&](KickResult const& r) { outcomeOfKick = r; });
    activity.runUntil([&] { return !pipeline.isRunning(); });
    std::cout << what << ": " << outcomeOfKick << "; " << driver.rowsWritten() - before
              << " rows written, "
              << (chip.joined ? "both banks" : "bank " + std::to_string(chip.active)) << "; web "
              << outcome(chip, tcp("10.1.2.3", 80)) << ", ssh "
              << outcome(chip, tcp("10.9.2.3", 22)) << ", stranger "
              << outcome(chip, tcp("203.0.113.7", 80)) << '\n';
  };
  permit(pipeline, "10.0.0.0/8", 80, 89);
  permit(pipeline, "10.9.0.0/16", 22, 22);
  kick("two rules");
  kick("nothing changed");
  pipeline.acls()->aclIs("edge")->ruleByNameIs("10.9.0.0/16 to 22")->actionIs([] {
    NaxelActionValue drop;
    drop.dropEnabledIs(true);
    return drop;
  }());
  kick("one action");
  permitServers(pipeline, 1000, 6);
  kick("eight rules");
  permitServers(pipeline, 2000, 6);
  kick("fourteen rules");
  auto acl = pipeline.acls()->aclIs("edge");
  for (auto const& [index, rule] : acl->ruleById())
    if (index.value() >= 1000) acl->ruleByIdDel(index);
  kick("two rules again");
}
