#pragma once

/// The chip in software as the kit for drivers sees it: to show that the kit lets a right driver pass, and as
/// what faults of drivers are tried on.

#include "naxel/testing/DriverConformance.h"
#include "softchip/SoftChip.h"

namespace SoftChip {

class UnderTest : public Naxel::Testing::DriverUnderTest {
 public:
  explicit UnderTest(Options options = {}) : options_(options) {}

  void start(Mox::Ptr<Naxel::PDConfig> config, Mox::Ptr<Naxel::PDStatus> status,
             Mox::Ptr<Obel::TimerWheel> wheel) override;
  /// The tables go with the driver, and the next one has them anew when it starts.
  void stop() override { chip_.reset(); }
  bool reset() override { return true; }
  Naxel::Testing::Met lookup(Naxel::PDAclKey const& acl, Packet const& packet) override;
  bool roomIs(size_t entries) override;

 protected:
  Chip& chip() { return *chip_; }
  Options const& options() const { return options_; }

 private:
  Options options_;
  std::unique_ptr<Chip> chip_;
};

/// "roomy", "hitful", "small", "slow", "closed": options that differ in what they make a driver do. Throws std::invalid_argument
/// for another word.
Options optionsNamed(std::string const& name);

}  // namespace SoftChip
