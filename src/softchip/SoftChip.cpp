#include "softchip/SoftChip.h"

#include "verify/NaiveLookup.h"

#include <algorithm>

namespace SoftChip {

using Naxel::GlobalAclControl;
using Naxel::RequestState;
using Naxel::ResourceConfig;
using Naxel::ResourceStatus;
using Naxel::ResponseState;

std::string text(Shortfall const& s) {
  if (s.ordered) return Mox::stringValue(s.table) + ": refused by order of the chip's options";
  return Mox::stringValue(s.table) + ": " + std::to_string(s.needed) + " entries needed, " +
         std::to_string(s.available) + " available";
}

Chip::Chip(Mox::Ptr<Naxel::PDConfig> config, Mox::Ptr<Naxel::PDStatus> status,
           Mox::Ptr<Obel::TimerWheel> wheel, Options options)
    : config_(std::move(config)),
      status_(std::move(status)),
      options_(options),
      policy_(status_->globalAclControl()),
      wheel_(std::move(wheel)),
      watcher_(*this, config_.get()) {
  if (wheel_) ticker_ = std::make_unique<Ticker>(*this, wheel_);
  takeOver();
}

Chip::~Chip() = default;

void Chip::takeOver() {
  ResourceConfig const request = config_->pdResourceConfig();
  // The pair is never null, so the id alone tells one that has been in use.
  bool const inUse = request.requestId() != 0;
  bool const answered = !inUse || isAnswered(request);
  if (inUse) {
    bool const acquiring = request.requestState() == RequestState::acquire;
    auto const& data = acquiring ? config_->prevPDData() : config_->currPDData();
    bank_ = std::make_unique<LoadedTables>(data, KeyLayout::of(*data, options_.missYields));
  }
  // After the tables are there: a policy that the library lifts in answer to this write must uncover the
  // right ones.
  if (options_.bootPolicy) {
    policy_ = *options_.bootPolicy;
    status_->globalAclControlIs(policy_);
  }
  // Looked at now: a library that has taken the boot policy over has written it down within that write, and
  // one that still names another policy waits for that one.
  if (inUse && !policyPending_) handlePolicy();
  // Half an answer is taken back, because the whole one may be another. The library may have gone on
  // within these writes.
  for (Table t : Naxel::allPDTables())
    if (!answered && Naxel::tableStatus(*status_, t).responseId() == request.requestId())
      Naxel::tableStatusIs(*status_, t, {});
  if (!answered && config_->pdResourceConfig() == request) handleRequest();
}

bool Chip::isLoading() const {
  return std::any_of(steps_.begin(), steps_.end(), [](Step const& step) {
    return step.what == Step::What::beginLoad || step.what == Step::What::finishLoad;
  });
}

bool Chip::isAnswered(ResourceConfig const& request) const {
  return std::all_of(Naxel::allPDTables().begin(), Naxel::allPDTables().end(), [&](Table t) {
    ResourceStatus const status = Naxel::tableStatus(*status_, t);
    if (t == Table::tcpFlags) return true;
    if (status.responseId() != request.requestId()) return false;
    switch (request.requestState()) {
      case RequestState::acquire:
        return status.responseState() != ResponseState::loaded &&
               status.responseState() != ResponseState::reverted;
      case RequestState::load: return status.responseState() == ResponseState::loaded;
      case RequestState::revert: return status.responseState() == ResponseState::reverted;
    }
    return false;
  });
}

void Chip::handleRequest() {
  ResourceConfig const request = config_->pdResourceConfig();
  Offer const offer{config_->currPDData(),
                    KeyLayout::of(*config_->currPDData(), options_.missYields)};
  uint32_t const ticks = options_.answerAfterTicks;
  switch (request.requestState()) {
    case RequestState::acquire:
      // First: what is left of an earlier acquire or revert must not run before this one, and what it has
      // reserved is free.
      supersede();
      steps_.push_back({Step::What::decide, request, ticks, offer});
      break;
    case RequestState::load:
      // Two steps, so that packets meet the chip between clearing and rewriting for as many ticks as the
      // options say.
      steps_.push_back({Step::What::beginLoad, request, 0, offer});
      steps_.push_back({Step::What::finishLoad, request, ticks, offer});
      break;
    case RequestState::revert:
      steps_.push_back({Step::What::restore, request, ticks, offer});
      break;
  }
  pump();
}

/// Drops what is left of an acquire or revert, and what an acquire has reserved.
void Chip::supersede() {
  if (!isLoading()) acquired_.reset();
  // A load that has begun cannot be taken back, and nobody would know what the chip holds.
  std::erase_if(steps_, [&](Step const& step) {
    if (step.request.requestState() == RequestState::load) return false;
    return !(options_.staleAnswers && step.what == Step::What::answer);
  });
  if (!options_.staleAnswers) tcpFlagsAnswers_.clear();
}

void Chip::handlePolicy() {
  GlobalAclControl const wanted = config_->globalAclControl();
  if (policyPending_ && !policyTakenBack_ && wanted == policy_) {
    // Taken back before it was confirmed: a driver may drop such a change or finish it, and the options say
    // which this one does.
    if (options_.finishesSuperseded)
      policyTakenBack_ = loadsWait_ = true;
    else
      policyPending_ = false;
    return;
  }
  if (policyTakenBack_) return;  // goes by the last of them once it is through
  // The library may write down what the chip came up with.
  if (!policyPending_ && wanted == policy_) return;
  // The library may have one change outstanding at a time.
  if (policyPending_) breach("a policy was changed before it had been confirmed");
  pendPolicy(wanted);
}

void Chip::pendPolicy(GlobalAclControl wanted) {
  policyPending_ = true;
  policyWanted_ = wanted;
  policyTicks_ = options_.confirmPolicyAfterTicks;
  if (policyTicks_ == 0) confirmPolicy();
  armTimer();
}

void Chip::confirmPolicy() {
  bool const takenBack = std::exchange(policyTakenBack_, false);
  policyPending_ = false;
  // The chip before the status: the library goes on to load within the write below, and packets in flight
  // then must meet the policy.
  policy_ = policyWanted_;
  written({Write::Kind::policy});
  status_->globalAclControlIs(policy_);
  written({Write::Kind::policyStatus});
  // The library has asked for another policy within that write, and pumping goes on when that one is
  // confirmed.
  if (policyPending_) return;
  if (takenBack && config_->globalAclControl() != policy_)
    return pendPolicy(config_->globalAclControl());
  loadsWait_ = false;
  // Not from within a step, which goes on by itself.
  if (pumping_ == 0) pump();
}

void Chip::tick() {
  // Count first: what the library asks for within the writes below waits its full time.
  bool const confirm = policyPending_ && --policyTicks_ == 0;
  if (!steps_.empty() && steps_.front().ticks > 0) --steps_.front().ticks;
  if (confirm) confirmPolicy();
  pump();
}

void Chip::pump() {
  ++pumping_;
  // The queue is looked at anew each time: a step writes answers, and the library may replace what is left
  // within such a write.
  while (!steps_.empty() && steps_.front().ticks == 0) {
    bool const touches =
        steps_.front().what == Step::What::beginLoad || steps_.front().what == Step::What::restore;
    if (loadsWait_ && touches) break;
    // Taken out before it is worked off, because the queue may be another one afterwards.
    Step const step = std::move(steps_.front());
    steps_.pop_front();
    run(step);
  }
  if (pumping_ == 1) sendTcpFlagsAnswers();
  --pumping_;
  armTimer();
}

/// A request that comes with one of these writes is worked off within it, like any other.
void Chip::sendTcpFlagsAnswers() {
  while (steps_.empty() && !tcpFlagsAnswers_.empty()) {
    ResourceStatus const answer = tcpFlagsAnswers_.front();
    tcpFlagsAnswers_.pop_front();
    Naxel::tableStatusIs(*status_, Table::tcpFlags, answer);
    written({Write::Kind::answer, Table::tcpFlags});
  }
}

void Chip::armTimer() {
  bool const waits = policyPending_ || !steps_.empty();
  if (ticker_ && waits && pumping_ == 0) ticker_->earliestExpiryIs(wheel_->now());
}

void Chip::run(Step const& step) {
  switch (step.what) {
    case Step::What::decide: return decide(step);
    case Step::What::beginLoad: return beginLoad(step);
    case Step::What::finishLoad: return finishLoad(step);
    case Step::What::restore: return restore(step);
    case Step::What::answer:
      // Within this write the library may make the next request, which is worked off before it returns.
      Naxel::tableStatusIs(*status_, step.table, {step.request.requestId(), step.response});
      written({Write::Kind::answer, step.table});
  }
}

void Chip::decide(Step const& step) {
  for (std::string& found : outputBreaches(*step.offer.data, step.offer.layout))
    breach(std::move(found));
  shortfalls_.clear();
  bool const refuse = options_.refuseAcquires > 0;
  if (refuse) --options_.refuseAcquires;
  for (Table t : Naxel::allPDTables()) {
    size_t const needed = Naxel::tableEntries(*step.offer.data, t);
    if (refuse && t == options_.refuseTable)
      shortfalls_.push_back({t, needed, options_.capacity[t], true});
    else if (needed > options_.capacity[t])
      shortfalls_.push_back({t, needed, options_.capacity[t]});
  }
  bool const hitless = fitsBeside(*step.offer.data);
  // What an earlier acquire has reserved is free from here on, whatever becomes of this one.
  acquired_.reset();
  if (shortfalls_.empty())
    acquired_ = std::make_unique<Acquired>(Acquired{step.request.requestId(), step.offer, hitless});
  answerAll(step.request, [&](Table t) {
    if (hasShortfall(t)) return ResponseState::failed;
    return hitless ? ResponseState::hitless : ResponseState::hitful;
  });
}

/// True if no table needs the room of the output in force for this one.
bool Chip::fitsBeside(Naxel::PDData const& data) const {
  if (options_.forceHitful) return false;
  return std::all_of(Naxel::allPDTables().begin(), Naxel::allPDTables().end(), [&](Table t) {
    size_t const held = bank_ ? Naxel::tableEntries(*bank_->data(), t) : 0;
    size_t const capacity = options_.capacity[t];
    return held <= capacity && Naxel::tableEntries(data, t) <= capacity - held;
  });
}

void Chip::beginLoad(Step const& step) {
  if (!acquired_ || acquired_->id != step.request.requestId()) {
    // Acquired from the chip that this one took over from, or not at all. Whether that one called it
    // hitful shows in the policy.
    // One that takes over while a load stands holds that output from the start.
    bool const held = bank_ && bank_->data() == step.offer.data;
    bool const takenOver = !acquired_ && shortfalls_.empty() && bank_ &&
                           (held || bank_->data() == config_->prevPDData());
    if (!takenOver) breach("load of an output that was not acquired");
    bool const hitless = takenOver && (held || policy_ == GlobalAclControl::doNotApply);
    acquired_ = std::make_unique<Acquired>(
        Acquired{step.request.requestId(), step.offer, hitless || fitsBeside(*step.offer.data)});
  }
  if (acquired_->offer.data != step.offer.data)
    breach("load of another output than the acquired one");
  if (acquired_->hitless) return;
  if (policy_ == GlobalAclControl::doNotApply)
    breach("load that disturbs traffic without a policy");
  // From here on packets meet neither of the two outputs, until the new one is complete.
  rewriting_ = true;
  bank_.reset();
  written({Write::Kind::cleared});
}

void Chip::finishLoad(Step const& step) {
  Offer const offer = acquired_ ? acquired_->offer : step.offer;
  acquired_.reset();  // what was reserved is in use
  if (rewriting_) {
    for (Table t : Naxel::allPDTables()) written({Write::Kind::tableInPlace, t});
    bank_ = std::make_unique<LoadedTables>(step.offer.data, offer.layout);
    rewriting_ = false;
    written({Write::Kind::rewritten});
  } else {
    switchTo({step.offer.data, offer.layout});
  }
  answerAll(step.request, [](Table) { return ResponseState::loaded; });
}

void Chip::restore(Step const& step) {
  acquired_.reset();
  // Mostly the previous output is still there, since nothing has been written for one that was refused.
  if (inForce() != step.offer.data) switchTo(step.offer);
  answerAll(step.request, [](Table) { return ResponseState::reverted; });
}

void Chip::switchTo(Offer const& offer) {
  for (Table t : Naxel::allPDTables()) written({Write::Kind::standbyTable, t});
  bank_ = std::make_unique<LoadedTables>(offer.data, offer.layout);
  written({Write::Kind::switched});
}

/// Puts the answers in front of everything else that waits.
void Chip::answerAll(ResourceConfig const& request,
                     std::function<ResponseState(Table)> const& response) {
  std::vector<Step> answers;
  for (Table t : answerOrder()) {
    if (t == Table::tcpFlags && options_.tcpFlags == TcpFlagsAnswer::last) {
      tcpFlagsAnswers_.push_back({request.requestId(), response(t)});
      continue;
    }
    uint32_t const ticks = options_.pace == Pace::oneByOne && !answers.empty() ? 1 : 0;
    answers.push_back({Step::What::answer, request, ticks, {}, t, response(t)});
  }
  // In front: what stands behind belongs to later requests.
  steps_.insert(steps_.begin(), answers.begin(), answers.end());
}

std::vector<Table> Chip::answerOrder() const {
  std::vector<Table> order(Naxel::allPDTables().begin(), Naxel::allPDTables().end());
  if (options_.tcpFlags == TcpFlagsAnswer::never) std::erase(order, Table::tcpFlags);
  if (options_.order == AnswerOrder::reversed) std::reverse(order.begin(), order.end());
  if (options_.order == AnswerOrder::prefixTablesLast)
    std::stable_partition(order.begin(), order.end(),
                          [](Table t) { return t > Table::v6Destination; });
  return order;
}

bool Chip::hasShortfall(Table table) const {
  return std::any_of(shortfalls_.begin(), shortfalls_.end(),
                     [&](Shortfall const& s) { return s.table == table; });
}

void Chip::breach(std::string sentence) {
  // A fault may repeat itself with every request of a long run; the first ones tell what it is.
  static constexpr size_t most = 100;
  if (breaches_.size() < most) breaches_.push_back(std::move(sentence));
}

Verdict Chip::lookup(Naxel::PDAclKey const& acl, Packet const& packet) {
  Verdict out;
  // A policy stands in for all ACLs, also for those that are not there.
  if (policy_ != GlobalAclControl::doNotApply) {
    out.kind = Verdict::Kind::policy;
    out.policy = policy_;
    return out;
  }
  if (rewriting_) {
    out.kind = Verdict::Kind::disturbed;
    return out;
  }
  return bank_ ? bank_->lookup(acl, packet) : out;
}

}  // namespace SoftChip
