#include "naxel/loader/PolicyExchange.h"

namespace Naxel {

PolicyExchange::PolicyExchange(Mox::Ptr<PDConfig> config, Mox::Ptr<PDStatus const> status)
    : config_(std::move(config)), status_(std::move(status)) {
  GlobalAclControl const inForce = status_->globalAclControl();
  if (config_->globalAclControl() == inForce) return;
  superseded_ = config_->globalAclControl();
  untilLoaded_ = inForce != GlobalAclControl::doNotApply;
}

void PolicyExchange::kickBegins(bool permit) {
  begun_ = true;
  permit_ = permit;
  ownPolicies_ = 0;
}

PolicyExchange::News PolicyExchange::handleReport() {
  GlobalAclControl const asked = config_->globalAclControl();
  GlobalAclControl const inForce = status_->globalAclControl();
  if (inForce == asked) {
    outstanding_ = false;
    superseded_.reset();
    if (inForce == GlobalAclControl::doNotApply) untilLoaded_ = false;
    return News::confirmed;
  }
  if (begun_ && superseded_ == inForce) {
    superseded_.reset();
    return News::late;
  }
  // It does not know of a change of ours any more.
  outstanding_ = false;
  untilLoaded_ = inForce != GlobalAclControl::doNotApply;
  ++ownPolicies_;
  return News::ownPolicy;
}

bool PolicyExchange::policyIs(GlobalAclControl wanted) {
  GlobalAclControl const inForce = status_->globalAclControl();
  GlobalAclControl const asked = config_->globalAclControl();
  if (inForce == wanted && asked == wanted) return true;
  if ((outstanding_ && inForce != asked) || isContested()) return false;
  // What was asked for and is not in force is taken back first; and where it is what is wanted, only a
  // change is heard.
  config_->globalAclControlIs(inForce);
  if (down_) return false;
  outstanding_ = inForce != wanted;
  config_->globalAclControlIs(wanted);
  return !down_ && !outstanding_ && status_->globalAclControl() == wanted;
}

GlobalAclControl PolicyExchange::temporary() const {
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
  return policy +
         " of an interrupted load is still in force; the end of that load lifts it, or the next "
         "kick "
         "that reaches the driver";
}

}  // namespace Naxel
