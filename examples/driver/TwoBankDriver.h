#pragma once

/// The driver of the two-bank chip. It writes only what differs, some rows at a time and never at once: a
/// configuration that fits into one bank is written beside the one in force, and then the chip changes over
/// (hitless). A larger one takes the room of both banks and is written in place, under a policy (hitful).

#include "Chip.h"

#include <functional>

namespace TwoBank {

/// How much a bank holds, and how slow the chip is.
struct Traits {
  size_t tcamRows = 1024;            ///< of each bank
  size_t tableRows = 4096;           ///< of each transform table, of each bank
  size_t rowsPerWrite = 64;          ///< rows that one transfer carries
  Mox::Seconds transferTime = 1e-3;  ///< of each transfer, and of each answer
};

/// Calls a function later on the activity thread, unless another one is set before.
class Later : private Obel::TimerNotifiee {
 public:
  explicit Later(Mox::Ptr<Obel::TimerWheel> wheel) : TimerNotifiee(std::move(wheel)) {}
  void after(Mox::Seconds delay, std::function<void()> call) {
    call_ = std::move(call);
    earliestExpiryIs(timerWheel()->now() + delay);
  }

 private:
  void handleExpiry() override { std::exchange(call_, nullptr)(); }
  std::function<void()> call_;
};

class Driver : public Naxel::Driver {
 public:
  /// `chip` must outlive the driver; what stands in it is told by `config` and `status` alone.
  Driver(Chip& chip, Mox::Ptr<Naxel::PDConfig> config, Mox::Ptr<Naxel::PDStatus> status,
         Mox::Ptr<Obel::TimerWheel> wheel, Traits const& traits);

  uint64_t rowsWritten() const { return rowsWritten_; }
  /// For the loads that come.
  void tcamRowsIs(size_t rows) { traits_.tcamRows = rows; }

 private:
  using Output = Mox::Ptr<Naxel::PDData const>;
  using Write = std::function<void(Bank&)>;

  void acquire(Offer const& offer) override;
  void load(Offer const& offer) override;
  void revert(Offer const& offer) override;
  void policy(Naxel::GlobalAclControl wanted) override;
  void restore(Output const& inForce) override;

  size_t room(Naxel::PDTable table) const;
  bool fitsOneBank(Naxel::PDData const& output) const;
  bool isInForce(Naxel::PDData const& output) const;
  bool fitsBeside(Naxel::PDData const& output) const {
    return !chip_.joined && fitsOneBank(output);
  }
  void begin(Output const& next);
  bool writeSome();
  void proceed(Mox::Seconds id, Naxel::ResponseState done);

  Chip& chip_;
  Traits traits_;
  std::array<Output, 2> held_;  // by bank; null where a bank has been written in part
  Output next_;                 // what is being written, to target_
  Output before_;               // what writes_ refers to besides
  size_t target_ = 0;
  std::vector<Write> writes_;  // the last one comes first
  uint64_t rowsWritten_ = 0;
  Later work_;
  Later policyWork_;
};

}  // namespace TwoBank
