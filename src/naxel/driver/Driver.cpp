#include "naxel/driver/Driver.h"

#include "mox/Assert.h"
#include "naxel/loader/Judgement.h"

#include <utility>

namespace Naxel {

/// Marks calls and writes as under way, for as long as it lives; what they bring is left to the outermost
/// one.
class Driver::Working {
 public:
  explicit Working(Driver& driver) : driver_(driver), outermost_(!driver.working_) {
    driver_.working_ = true;
  }
  ~Working() {
    if (outermost_) driver_.working_ = false;
  }
  Working(Working const&) = delete;
  Working& operator=(Working const&) = delete;
  /// Works off what has come meanwhile.
  void finish() {
    if (!outermost_ || !driver_.started_) return;
    // A loop and not a call from the notification: the library answers each write with the next one, and
    // the calls would nest without bound. The policy is looked at first, because no load begins before it
    // is in force.
    while (driver_.policyStep() || driver_.requestStep()) {
    }
  }

 private:
  Driver& driver_;
  bool outermost_;
};

class Driver::Watch : public PDConfig::Notifiee {
 public:
  Watch(Driver& driver, PDConfig& config) : driver_(driver) { notifierIs(&config); }
  void onPdResourceConfig() override { driver_.handleRequest(); }
  void onGlobalAclControl() override {
    driver_.overruled_.reset();
    driver_.handleChange();
  }

 private:
  Driver& driver_;
};

Driver::Driver(Mox::Ptr<PDConfig> config, Mox::Ptr<PDStatus> status)
    : config_(std::move(config)), status_(std::move(status)) {
  MOX_ASSERT(config_ && status_);
  watch_ = std::make_unique<Watch>(*this, *config_);
}

Driver::~Driver() = default;

void Driver::start() {
  MOX_ASSERT(!started_);
  if (config_->pdResourceConfig().requestId() != 0) takeOver();
  started_ = true;
  handleRequest();
}

void Driver::takeOver() {
  ResourceConfig const request = takenOver_ = config_->pdResourceConfig();
  bool const acquiring = request.requestState() == RequestState::acquire;
  // What restore() and the writes below bring waits for start() to go on.
  Working const working(*this);
  restore(acquiring ? config_->prevPDData() : config_->currPDData());
  // All tables have been answered for, so there is nothing left to do for this request.
  if (judge(*status_, request).complete) {
    answered_ = request;
  } else {
    // Half an answer is taken back: old answers and new ones must not be taken for one.
    for (PDTable table : allPDTables())
      if (tableStatus(*status_, table).responseId() == request.requestId())
        tableStatusIs(*status_, table, ResourceStatus());
  }
}

Driver::Offer Driver::present() const {
  ResourceConfig const request = config_->pdResourceConfig();
  // Where a load has been taken over, its output has been restored already.
  bool const restored = request == takenOver_ && request.requestState() != RequestState::acquire;
  return {request.requestId(), config_->currPDData(),
          restored ? config_->currPDData() : config_->prevPDData()};
}

void Driver::handleRequest() {
  if (!started_) return;
  ResourceConfig const request = config_->pdResourceConfig();
  // Kept, because it is not abandoned either where it has to wait and a newer request comes.
  if (request.requestState() == RequestState::load && request != answered_ && request != asked_)
    load_ = {request, present()};
  handleChange();
}

void Driver::handleChange() { Working(*this).finish(); }

bool Driver::policyStep() {
  GlobalAclControl const asked = config_->globalAclControl();
  // A change that cannot be stopped any more is finished first, also one that has been taken back.
  if (wanted_ || asked == status_->globalAclControl() || asked == overruled_) return false;
  wanted_ = asked;
  policy(asked);
  return true;
}

bool Driver::requestStep() {
  if (asked_ && asked_->requestState() == RequestState::load) return false;  // is not abandoned
  if (load_) return loadStep();
  ResourceConfig const request = config_->pdResourceConfig();
  if (request.requestId() == 0 || request == answered_ || asked_ == request) return false;
  bool const acquiring = request.requestState() == RequestState::acquire;
  // Tables are rewritten only under a policy that is in force.
  if (!acquiring && wanted_) return false;
  asked_ = request;
  acquiring ? acquire(present()) : revert(present());
  return true;
}

bool Driver::loadStep() {
  if (wanted_) return false;
  Load const next = *std::exchange(load_, std::nullopt);
  asked_ = next.request;
  load(next.offer);
  return true;
}

bool Driver::answerAll(ResponseState outcome, std::string const& reason, PDTable table) {
  if (!asked_) return false;
  ResourceConfig const request = *asked_;
  // What does not answer this request is late, and about one that it has superseded. A load that has failed
  // goes to the library, which ends the process over it in words.
  if (outcome != ResponseState::failed && !answers({request.requestId(), outcome}, request))
    return false;
  // An answer to a request that is not the present one any more says nothing to the library; it only frees
  // this driver for the next one.
  bool const present = config_->pdResourceConfig() == request;
  Working working(*this);
  // Own state first: each write below may bring the next request.
  asked_.reset();
  answered_ = request;
  bool all = present;
  if (present) {
    bool const failed = outcome == ResponseState::failed;
    // The reason comes before the answer, within whose write the library reads it. An old one is cleared,
    // because it would stand beside a new refusal.
    if (failed)
      status_->refusalReasonIs(table, reason);
    else
      status_->refusalReasonDelAll();
    for (PDTable t : allPDTables()) {
      ResponseState const said = failed && t != table ? ResponseState::hitless : outcome;
      tableStatusIs(*status_, t, ResourceStatus(request.requestId(), said));
      // The answers of the last table complete the request, so a newer one that comes with it does not
      // supersede this one.
      all = config_->pdResourceConfig() == request || t == PDTable::aclEntries;
      if (!all) break;
    }
  }
  working.finish();
  return all;
}

void Driver::confirmPolicy() {
  if (wanted_) inForceIs(*wanted_);
}

void Driver::reportPolicy(GlobalAclControl policy) {
  // Over a new pair nobody has asked for what stands there. A library over one in use may wait for it.
  if (config_->pdResourceConfig().requestId() == 0) overruled_ = config_->globalAclControl();
  inForceIs(policy);
}

void Driver::inForceIs(GlobalAclControl policy) {
  Working working(*this);
  // Before the write: the library may ask for the next policy within it.
  wanted_.reset();  // a change that is not confirmed is dropped
  status_->globalAclControlIs(policy);
  working.finish();
}

}  // namespace Naxel
