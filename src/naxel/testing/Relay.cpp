#include "naxel/testing/Relay.h"

namespace Naxel::Testing {

Relay::Relay(Obel::ChipId chip)
    : libraryConfig(pDConfigFactory(chip)),
      libraryStatus(pDStatusFactory(chip)),
      driverConfig(pDConfigFactory(chip)),
      driverStatus(pDStatusFactory(chip)) {
  PDConfig::Notifiee::notifierIs(libraryConfig.get());
  PDStatus::Notifiee::notifierIs(driverStatus.get());
  // Equal, so that a driver's write of its own shows.
  driverConfig->requestIs(libraryConfig->prevPDData(), libraryConfig->currPDData(), {});
}

bool Relay::isUntouched() const {
  return driverConfig->prevPDData() == libraryConfig->prevPDData() &&
         driverConfig->currPDData() == libraryConfig->currPDData() &&
         driverConfig->pdResourceConfig() == libraryConfig->pdResourceConfig() &&
         driverConfig->globalAclControl() == libraryConfig->globalAclControl();
}

void Relay::passRequest() {
  PDConfig const& from = *libraryConfig;
  // Told of for each attribute, passed on with the first.
  if (!listener_) return;
  if (driverConfig->pdResourceConfig() == from.pdResourceConfig() &&
      driverConfig->currPDData() == from.currPDData() &&
      driverConfig->prevPDData() == from.prevPDData())
    return;
  listener_->requested();
  driverConfig->requestIs(from.prevPDData(), from.currPDData(), from.pdResourceConfig());
}

void Relay::onGlobalAclControl() {
  if (!listener_) return;
  if (asked_ != libraryConfig->globalAclControl()) {
    asked_ = libraryConfig->globalAclControl();
    listener_->policyAsked();
    driverConfig->globalAclControlIs(asked_);
  }
  if (reported_ != driverStatus->globalAclControl()) {
    reported_ = driverStatus->globalAclControl();
    if (listener_->policyReported()) libraryStatus->globalAclControlIs(reported_);
  }
}

void Relay::onTableStatus() {
  for (PDTable table : allPDTables()) {
    ResourceStatus const status = tableStatus(*driverStatus, table);
    ResourceStatus& seen = seen_[static_cast<size_t>(table)];
    if (seen == status || !listener_) continue;
    seen = status;
    // A newer answer may come within this write, and is passed on there.
    if (listener_->answered(table)) tableStatusIs(*libraryStatus, table, status);
  }
}

void Relay::onRefusalReason(PDTable const& table) {
  libraryStatus->refusalReasonIs(table, driverStatus->refusalReason(table));
}

}  // namespace Naxel::Testing
