// A driver with its chip as a shared object: it keeps the output in force as it is, and has room for so many
// entries.

#include "naxel/driver/Driver.h"

#include "naxel/testing/ModelLookup.h"

namespace {

using namespace Naxel;
using Testing::Met;

struct Chip {
  Mox::Ptr<PDData const> tables;
  GlobalAclControl policy = GlobalAclControl::doNotApply;
  size_t room = 1000;
};

class ChipDriver : public Driver {
 public:
  ChipDriver(Mox::Ptr<PDConfig> config, Mox::Ptr<PDStatus> status, Chip& chip)
      : Driver(config, status), chip_(chip) {
    // What PDStatus reports is in the chip before anything else.
    chip_.policy = this->status().globalAclControl();
    start();
  }

 private:
  void acquire(Offer const& offer) override {
    size_t const next = offer.next->pdAclColl()->numFilters();
    size_t const held = chip_.tables ? chip_.tables->pdAclColl()->numFilters() : 0;
    answerAll(next > chip_.room          ? ResponseState::failed
              : next + held > chip_.room ? ResponseState::hitful
                                         : ResponseState::hitless);
  }
  void load(Offer const& offer) override {
    chip_.tables = offer.next;
    answerAll(ResponseState::loaded);
  }
  void revert(Offer const& offer) override {
    chip_.tables = offer.next;
    answerAll(ResponseState::reverted);
  }
  void policy(GlobalAclControl wanted) override {
    chip_.policy = wanted;
    confirmPolicy();
  }
  void restore(Mox::Ptr<PDData const> const& inForce) override { chip_.tables = inForce; }

  Chip& chip_;
};

class ChipUnderTest : public Testing::DriverUnderTest {
 public:
  void start(Mox::Ptr<PDConfig> config, Mox::Ptr<PDStatus> status,
             Mox::Ptr<Obel::TimerWheel>) override {
    driver_ = std::make_unique<ChipDriver>(config, status, chip_);
  }
  void stop() override { driver_.reset(); }
  bool reset() override {
    chip_ = {nullptr, GlobalAclControl::doNotApply, chip_.room};
    return true;
  }
  bool roomIs(size_t entries) override { return chip_.room = entries, true; }
  Met lookup(PDAclKey const& acl, Verify::Packet const& packet) override {
    if (chip_.policy == GlobalAclControl::denyAll) return {Met::Kind::denyAll};
    if (chip_.policy == GlobalAclControl::permitAll) return {Met::Kind::permitAll};
    return chip_.tables ? Testing::lookup(*chip_.tables, acl, packet) : Met{Met::Kind::noRule};
  }

 private:
  Chip chip_;
  std::unique_ptr<ChipDriver> driver_;
};

}  // namespace

Testing::DriverUnderTest* naxelDriverUnderTest() { return new ChipUnderTest; }
