#include "naxel/testing/Judge.h"

#include "verify/NaiveLookup.h"
#include "verify/OutputText.h"
#include "verify/PacketSource.h"

#include <algorithm>

namespace Naxel::Testing {

using Verify::full;

Judge::Judge(Relay& relay, DriverUnderTest& driver, AclConfigColl const& acls,
             Options const& options, Report::Figures& figures)
    : relay_(relay),
      driver_(driver),
      acls_(acls),
      options_(options),
      figures_(figures),
      may_{relay.libraryConfig->currPDData()} {
  relay_.listenerIs(this);
}

Judge::~Judge() { relay_.listenerIs(nullptr); }

void Judge::fault(Rule rule, std::string what, std::optional<PDTable> table) {
  if (!breach_) breach_ = Breach{rule, std::move(what), table, request()};
}

bool Judge::answers(PDTable table) const {
  ResourceStatus const now = status(table);
  if (now.responseId() != request().requestId()) return false;
  switch (request().requestState()) {
    case RequestState::acquire:
      return now.responseState() != ResponseState::loaded &&
             now.responseState() != ResponseState::reverted;
    case RequestState::load: return now.responseState() == ResponseState::loaded;
    case RequestState::revert: return now.responseState() == ResponseState::reverted;
  }
  return false;
}

bool Judge::isComplete() const {
  return std::ranges::all_of(allPDTables(),
                             [&](PDTable t) { return t == PDTable::tcpFlags || answers(t); });
}

/// Over a pair that has never been in use, a policy that the driver has brought along waits for a library.
bool Judge::isPolicyOpen() const {
  return request().requestId() != 0 &&
         relay_.libraryConfig->globalAclControl() != relay_.driverStatus->globalAclControl();
}

bool Judge::isOutstanding() const {
  return !breach_ && ((request().requestId() != 0 && !isComplete()) || isPolicyOpen());
}

void Judge::keep(Output const& output) {
  for (auto const& [known, said] : published_)
    if (known == output) return;
  published_.emplace_back(output, full(*output));
}

void Judge::checkOutputs() {
  for (auto const& [output, said] : published_)
    if (full(*output) != said)
      fault(Rule::outputUnchanged, "an output is not as the library has published it");
}

void Judge::requested() {
  if (breach_) return;
  ++figures_.requests;
  checkOutputs();
  if (before_) before_();
  PDConfig const& config = *relay_.libraryConfig;
  keep(config.currPDData());
  complete_ = false;
  switch (request().requestState()) {
    case RequestState::acquire:
      // One without a load behind it is what the driver has to forget.
      abandoned_ += acquired_;
      acquired_ = true;
      said_.clear();
      late_.clear();
      asked_.insert(request().requestId());
      offered_ = config.currPDData();
      drawProbes();
      return;
    case RequestState::load:
      acquired_ = false;
      loading_ = config.currPDData();
      if (may_.back() != loading_) may_.push_back(loading_);
      return;
    case RequestState::revert: acquired_ = false; return;
  }
}

void Judge::policyAsked() {
  if (breach_) return;
  GlobalAclControl const wanted = relay_.libraryConfig->globalAclControl();
  if (wanted == relay_.driverStatus->globalAclControl()) {
    // Written down, or taken back before it was confirmed.
    for (GlobalAclControl policy : mayPolicy_)
      if (policy != wanted) takenBack_ = policy;
  }
  mayPolicy_.insert(wanted);
}

bool Judge::policyReported() {
  ++writes_;
  if (breach_) return false;
  GlobalAclControl const now = relay_.driverStatus->globalAclControl();
  GlobalAclControl const wanted = relay_.libraryConfig->globalAclControl();
  bool const asked = now == wanted || now == takenBack_;
  takenBack_.reset();
  if (!asked && !restarted_ && !options_.ownPolicies) {
    fault(Rule::policyAsAsked, Mox::stringValue(now) + " is reported, and " +
                                   Mox::stringValue(wanted) + " was asked for");
    return false;
  }
  mayPolicy_ = {now};
  ++figures_.policies;
  look(Moment::policy);
  // What the library goes on to ask for comes after this write.
  if (asked && now != wanted) mayPolicy_.insert(wanted);
  return !breach_;
}

bool Judge::answered(PDTable table) {
  ++writes_;
  if (breach_) return false;
  ResourceStatus const now = status(table);
  // Taken back, or of the table that does not matter.
  if (now.responseId() == 0 || table == PDTable::tcpFlags) return true;
  ResourceConfig const& asked = request();
  ResponseState const state = now.responseState();
  if (now.responseId() != asked.requestId()) {
    if (!asked_.contains(now.responseId()))
      fault(Rule::answerId,
            Mox::stringValue(state) + " answers a request of id " +
                Mox::valueToStrep(now.responseId()) + ", which there never was",
            table);
    late_.insert(table);
    return !breach_;
  }
  bool const loads = asked.requestState() == RequestState::load;
  bool const reverts = asked.requestState() == RequestState::revert;
  if (loads && state == ResponseState::failed)
    fault(Rule::loadSucceeds, "failed answers a load of what was acquired", table);
  else if (((state == ResponseState::loaded && !loads) ||
            (state == ResponseState::reverted && !reverts)) &&
           !said_[table].contains(state))
    fault(Rule::answerState,
          Mox::stringValue(state) + " answers " +
              (asked.requestState() == RequestState::acquire ? "an " : "a ") +
              Mox::stringValue(asked.requestState()),
          table);
  if (breach_) return false;
  said_[table].insert(state);
  if (asked.requestState() == RequestState::acquire && loading_) {
    inForceIs(loading_);
    look(Moment::superseding);
  }
  if (!complete_ && isComplete()) requestComplete();
  return !breach_;
}

void Judge::requestComplete() {
  complete_ = true;
  switch (request().requestState()) {
    case RequestState::acquire: return checkAcquired();
    case RequestState::load: inForceIs(loading_); return look(Moment::loaded);
    case RequestState::revert:
      inForceIs(relay_.libraryConfig->currPDData());
      return look(Moment::reverted);
  }
}

void Judge::inForceIs(Output const& output) {
  if (!may_.empty() && may_.front() != output) earlier_.push_back(may_.front());
  constexpr size_t most = 8;
  if (earlier_.size() > most) earlier_.erase(earlier_.begin());
  may_ = {output};
  loading_ = nullptr;
}

void Judge::checkAcquired() {
  std::optional<PDTable> one[2];
  bool failed = false;
  for (PDTable t : allPDTables()) {
    if (t == PDTable::tcpFlags) continue;
    ResponseState const state = status(t).responseState();
    if (state == ResponseState::failed)
      failed = true;
    else
      one[state == ResponseState::hitful] = t;
  }
  if (one[0] && one[1])
    return fault(Rule::answerAlike,
                 tableTitle(*one[0]) + " hitless, " + tableTitle(*one[1]) + " hitful", one[1]);
  ResponseState const state = failed   ? ResponseState::failed
                              : one[1] ? ResponseState::hitful
                                       : ResponseState::hitless;
  figures_.hitful += state == ResponseState::hitful;
  figures_.refusals += failed;
  look(Moment::acquired);
  auto const rank = [](ResponseState s) {
    return s == ResponseState::hitless ? 0 : s == ResponseState::hitful ? 1 : 2;
  };
  auto const [at, isNew] =
      answers_.try_emplace({full(*may_.back()), full(*offered_)}, Answer{state, abandoned_});
  if (isNew || state == at->second.state) return;
  size_t const since = abandoned_ - at->second.abandoned;
  std::string const was = Mox::stringValue(state) + ", and the same output over the same one was " +
                          Mox::stringValue(at->second.state) + " before";
  if (since == 0)
    fault(Rule::acquireConsistent, was);
  else if (rank(state) > rank(at->second.state))
    fault(Rule::acquireReleases,
          was + ", with " + std::to_string(since) + " acquires without a load in between");
}

void Judge::restarting() {
  ++figures_.restarts;
  restarted_ = true;
  restartOpen_ = request().requestId() != 0 && !isComplete();
  bool const acquiring = request().requestState() == RequestState::acquire;
  auto const& config = *relay_.libraryConfig;
  if (request().requestId() != 0) inForceIs(acquiring ? config.prevPDData() : config.currPDData());
  if (request().requestState() == RequestState::load && !complete_) loading_ = config.currPDData();
  answers_.clear();
}

void Judge::checkMissing() {
  std::optional<PDTable> first;
  size_t answered = 0;
  for (PDTable t : allPDTables()) {
    if (t == PDTable::tcpFlags) continue;
    if (answers(t))
      ++answered;
    else if (!first)
      first = t;
  }
  ResourceStatus const now = status(*first);
  std::string const stands = now.responseId() == 0
                                 ? "nothing"
                                 : Mox::stringValue(now.responseState()) + " to request " +
                                       Mox::valueToStrep(now.responseId());
  if (restartOpen_) return fault(Rule::restartRequest, "it says " + stands, first);
  if (late_.contains(*first)) return fault(Rule::answerId, "it says " + stands, first);
  if (answered > 0)
    return fault(
        Rule::answerEvery,
        "it says " + stands + ", and " + std::to_string(answered) + " others have answered", first);
  fault(Rule::answerAll, "no table answers, and the first one says " + stands);
}

void Judge::atRest() {
  if (breach_) return;
  if (!relay_.isUntouched())
    return fault(Rule::configUntouched, "PDConfig is not as the library has written it");
  checkOutputs();
  if (request().requestId() != 0 && !isComplete()) checkMissing();
  GlobalAclControl const wanted = relay_.libraryConfig->globalAclControl();
  GlobalAclControl const reported = relay_.driverStatus->globalAclControl();
  if (isPolicyOpen())
    return fault(Rule::policyConfirmed, Mox::stringValue(wanted) + " was asked for, and " +
                                            Mox::stringValue(reported) + " still stands");
  mayPolicy_ = {reported};
  takenBack_.reset();
  look(Moment::rest);
  restarted_ = restartOpen_ = false;
}

}  // namespace Naxel::Testing
