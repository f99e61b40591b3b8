#pragma once

/// Two pairs of PDConfig and PDStatus, one for the library and one for the driver, and everything that is written
/// into one passed on to the other, within the same write. Whoever listens is told before, and may hold it back:
/// what the library would end the process over never reaches it.

#include "naxel/loader/PDConfig.h"

#include <array>

namespace Naxel::Testing {

class Relay : private PDConfig::Notifiee, private PDStatus::Notifiee {
 public:
  class Listener {
   public:
    virtual ~Listener() = default;
    /// The library has written outputs or a request, or a policy.
    virtual void requested() = 0;
    virtual void policyAsked() = 0;
    /// The driver has answered for a table, or reported a policy. False holds it back.
    virtual bool answered(PDTable table) = 0;
    virtual bool policyReported() = 0;
  };

  explicit Relay(Obel::ChipId chip);

  /// One that gets to know of everything. Without one nothing is passed on.
  void listenerIs(Listener* listener) { listener_ = listener; }

  Mox::Ptr<PDConfig> const libraryConfig;
  Mox::Ptr<PDStatus> const libraryStatus;
  Mox::Ptr<PDConfig> const driverConfig;
  Mox::Ptr<PDStatus> const driverStatus;

  /// The driver's PDConfig is as the library has written it.
  bool isUntouched() const;

 private:
  void onPrevPDData() override { passRequest(); }
  void onCurrPDData() override { passRequest(); }
  void onPdResourceConfig() override { passRequest(); }
  // Both entities tell of a policy, and that says nothing of which: whichever differs has been written.
  void onGlobalAclControl() override;
  void onTableStatus() override;
  void onRefusalReason(PDTable const& table) override;
  void passRequest();

  Listener* listener_ = nullptr;
  std::array<ResourceStatus, pdTableCount> seen_;
  GlobalAclControl asked_ = GlobalAclControl::doNotApply;
  GlobalAclControl reported_ = GlobalAclControl::doNotApply;
};

}  // namespace Naxel::Testing
