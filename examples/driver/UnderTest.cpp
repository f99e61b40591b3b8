// The chip and its driver as the conformance kit tries them: naxel-conformance loads the shared object that this
// file is built into.

#include "TwoBankDriver.h"
#include "naxel/testing/DriverConformance.h"

namespace {

using namespace Naxel;
using Testing::Met;

Lumox::IpGenPrefix host(Lumox::AddressFamily af, Verify::Address const& a) {
  return af == Lumox::ipv4() ? Lumox::IpGenPrefix::v4(static_cast<uint32_t>(a.hi >> 32), 32)
                             : Lumox::IpGenPrefix::v6(a.hi, a.lo, 128);
}

class UnderTest : public Testing::DriverUnderTest {
 public:
  void start(Mox::Ptr<PDConfig> config, Mox::Ptr<PDStatus> status,
             Mox::Ptr<Obel::TimerWheel> wheel) override {
    driver_ = std::make_unique<TwoBank::Driver>(chip_, config, status, wheel, traits_);
  }
  void stop() override { driver_.reset(); }
  bool reset() override {
    chip_ = TwoBank::Chip();
    return true;
  }
  bool roomIs(size_t entries) override {
    traits_.tcamRows = entries / 2;  // of each bank
    if (driver_) driver_->tcamRowsIs(traits_.tcamRows);
    return true;
  }
  Met lookup(PDAclKey const& acl, Verify::Packet const& packet) override {
    if (chip_.policy == GlobalAclControl::denyAll) return {Met::Kind::denyAll};
    if (chip_.policy == GlobalAclControl::permitAll) return {Met::Kind::permitAll};
    TwoBank::Packet p{host(packet.af, packet.src),
                      host(packet.af, packet.dst),
                      {},
                      packet.syn,
                      packet.ack,
                      packet.rst};
    for (RangeSetType const type : allRangeSetTypes())
      p.field[static_cast<size_t>(type)] = packet.value(type);
    auto const action = chip_.decide(acl.aclName(), p);
    return action ? Met{Met::Kind::rule, {}, *action} : Met{Met::Kind::noRule};
  }

 private:
  TwoBank::Traits traits_{
      .tcamRows = 1024, .tableRows = 4096, .rowsPerWrite = 4, .transferTime = 1e-3};
  TwoBank::Chip chip_;
  std::unique_ptr<TwoBank::Driver> driver_;
};

}  // namespace

Testing::DriverUnderTest* naxelDriverUnderTest() { return new UnderTest; }
