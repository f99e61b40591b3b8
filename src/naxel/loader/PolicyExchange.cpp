#include "naxel/loader/PolicyExchange.h"

namespace Naxel {

PolicyExchange::PolicyExchange(Mox::Ptr<PDConfig> config, Mox::Ptr<PDStatus const> status)
    : config_(std::move(config)), status_(std::move(status)) {
  ResourceConfig const& request = config_->pdResourceConfig();
  bool const stands = status_->globalAclControl() != GlobalAclControl::doNotApply;
  if (config_->globalAclControl() != status_->globalAclControl()) {
    // Without a request nobody has asked for anything yet, and what the driver reports is its own.
    if (request.requestId() != 0) superseded_ = config_->globalAclControl();
    untilLoaded_ = stands;
  } else {
    untilLoaded_ = stands && !isOfInterruptedLoad();
  }
}

bool PolicyExchange::isOfInterruptedLoad() const {
  ResourceConfig const& request = config_->pdResourceConfig();
  ResourceStatus const hitful(request.requestId(), ResponseState::hitful);
  switch (request.requestState()) {
    // A finished load lifts every policy, so one that stands is taken for that of a load that has not come
    // to its end.
    case RequestState::load: return true;
    case RequestState::acquire:
      // The tables of before take its place where the load is not made; there must be some.
      return tableStatus(*status_, PDTable::aclEntries) == hitful &&
             !config_->prevPDData()->pdAclColl()->pdAcl().empty();
    case RequestState::revert: break;
  }
  return false;
}

void PolicyExchange::adopt() {
  if (!down_) config_->globalAclControlIs(status_->globalAclControl());
}

void PolicyExchange::kickBegins(bool permit) {
  permit_ = permit;
  ownPolicies_ = 0;
  bool const stands = status_->globalAclControl() != GlobalAclControl::doNotApply;
  // What PDConfig names and PDStatus does not counts as an outstanding change. One that nobody waits for is
  // taken back here, and a policy that the driver has started with is written down.
  if (!outstanding_ && !(superseded_ && stands)) adopt();
}

PolicyExchange::News PolicyExchange::handleReport() {
  GlobalAclControl const asked = config_->globalAclControl();
  GlobalAclControl const inForce = status_->globalAclControl();
  if (inForce == asked) {
    outstanding_ = false;
    superseded_.reset();
    // Nothing stands that would have to stay.
    if (inForce == GlobalAclControl::doNotApply) untilLoaded_ = false;
    return News::confirmed;
  }
  if (superseded_ == inForce) {
    // And now the driver goes by what took its place.
    superseded_.reset();
    outstanding_ = true;
    return News::late;
  }
  // It does not know of a change of ours any more.
  outstanding_ = false;
  superseded_.reset();
  untilLoaded_ = inForce != GlobalAclControl::doNotApply;
  ++ownPolicies_;
  adopt();
  return News::ownPolicy;
}

bool PolicyExchange::policyIs(GlobalAclControl wanted) {
  GlobalAclControl const inForce = status_->globalAclControl();
  GlobalAclControl const asked = config_->globalAclControl();
  if (inForce == wanted && asked == wanted) return true;
  // With two changes outstanding the confirmation of the first could be taken for that of the second, and
  // tables would be rewritten without a policy.
  if ((outstanding_ && inForce != asked) || isContested()) return false;
  // What was asked for and is not in force is taken back first; and where it is what is wanted, only a
  // change is heard.
  config_->globalAclControlIs(inForce);
  if (down_) return false;
  // Before the write, because the driver may confirm within it; set afterwards this would wait for a
  // confirmation that has come.
  outstanding_ = inForce != wanted;
  config_->globalAclControlIs(wanted);
  return !down_ && !outstanding_ && status_->globalAclControl() == wanted;
}

GlobalAclControl PolicyExchange::temporary() const {
  // A driver that has closed by itself may have empty tables: to permit all would open them.
  bool const closed = untilLoaded_ && status_->globalAclControl() == GlobalAclControl::denyAll;
  return permit_ && !closed ? GlobalAclControl::permitAll : GlobalAclControl::denyAll;
}

std::string PolicyExchange::caution() const {
  GlobalAclControl const inForce = status_->globalAclControl();
  GlobalAclControl const asked = config_->globalAclControl();
  bool const stands = inForce != GlobalAclControl::doNotApply;
  if (!stands && asked == GlobalAclControl::doNotApply) return {};
  std::string const policy = "policy " + Mox::stringValue(stands ? inForce : asked);
  if (stands && untilLoaded_)
    return policy +
           " that the driver brought along is in force; the first load that succeeds lifts it";
  return policy + " of an interrupted load is " + (stands ? "still" : "about to be") +
         " in force; the end of that load lifts it, or the next kick that reaches the driver";
}

}  // namespace Naxel
