#include "ovs/SwitchDriver.h"

#include "ovs/Revalidation.h"
#include "ovs/Switch.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

namespace NaxelOvs {

using Naxel::GlobalAclControl;
using Naxel::RequestState;
using Naxel::ResponseState;

namespace {

using SteadyClock = std::chrono::steady_clock;
/// Seconds between two looks how far cached flows are.
constexpr Mox::Seconds settlingLook = 0.01;

double secondsSince(SteadyClock::time_point start) {
  return std::chrono::duration<double>(SteadyClock::now() - start).count();
}

/// The flows of a policy in place of another one.
FlowSet withPolicy(FlowSet flows, GlobalAclControl policy, Layout const& layout) {
  // Whatever it did, it has the key of a policy.
  auto const closed = policyFlows(GlobalAclControl::denyAll, layout);
  std::erase_if(flows, [&](Flow const& f) { return f.sameKey(closed.front()); });
  for (Flow& flow : policyFlows(policy, layout)) flows.push_back(std::move(flow));
  std::sort(flows.begin(), flows.end());
  return flows;
}

/// What does not fit into the tables; "" if all does.
std::string roomFault(FlowSet const& flows, Layout const& layout,
                      std::array<uint32_t, 256> const& room) {
  std::array<size_t, 256> needed{};
  needed[layout.table(Stage::entry)] = 1;  // the stamp
  for (Flow const& flow : flows) ++needed[flow.table];
  for (size_t table = 0; table < needed.size(); ++table)
    if (needed[table] > room[table])
      return "table " + std::to_string(table) + " holds " + std::to_string(room[table]) +
             " flows at most, and " + std::to_string(needed[table]) + " are needed";
  return {};
}

/// How long a switch that may be silent has for its first word.
std::chrono::milliseconds shortPatience(DriverOptions const& options) {
  return options.patience / 5;
}

std::string fragmentFault(FragmentMode mode, std::string const& bridge) {
  return "bridge " + bridge + " is in the fragment mode " + text(mode) +
         ", which hides ports of fragments, and would let them past rules on ports; 'ovs-ofctl "
         "set-frags " +
         bridge + " nx-match' changes it, and so does --set-frags";
}

}  // namespace

/// What a bundle has put in force, until cached flows follow it. The connection stays, to tell whether the switch does.
struct SwitchDriver::Settling {
  Settling(DriverOptions const& options, std::chrono::milliseconds greeting)
      : bridge(options.target.management, options.patience, greeting) {}

  /// The bundle is in force, and cached flows are to follow.
  void begin(DriverOptions const& options) {
    since = SteadyClock::now();
    std::string const path = options.target.controlPath();
    if (path.empty() || !options.awaitCaches) return;
    try {
      caches.emplace(path, options.patience);
    } catch (SwitchError const&) {
      // One that was found, and not given, may be closed to us.
      if (!options.target.control.empty()) throw;
    }
  }

  Switch bridge;
  LoadReport report;
  SteadyClock::time_point since;
  std::optional<Revalidation> caches;
};

std::string Target::bridge() const {
  std::string name = management.substr(management.rfind('/') + 1);
  if (name.ends_with(".mgmt")) name.resize(name.size() - 5);
  return name;
}

std::string Target::controlPath() const {
  return control.empty() ? controlPathBeside(management) : control;
}

Target targetFromText(std::string const& text) {
  std::string path = text;
  if (path.starts_with("unix:")) path.erase(0, 5);
  if (path.find('/') != path.npos) return {path, {}};
  char const* const folder = std::getenv("OVS_RUNDIR");
  return {std::string(folder ? folder : "/var/run/openvswitch") + "/" + path + ".mgmt", {}};
}

SwitchDriver::SwitchDriver(Mox::Ptr<Naxel::PDConfig> config, Mox::Ptr<Naxel::PDStatus> status,
                           Mox::Ptr<Obel::TimerWheel> wheel, DriverOptions options)
    : Driver(std::move(config), std::move(status)),
      TimerNotifiee(std::move(wheel)),
      options_(std::move(options)) {}

SwitchDriver::~SwitchDriver() = default;

void SwitchDriver::acquire(Offer const& offer) {
  // Nothing was reserved, so nothing is to be given back for an earlier one.
  offer_ = offer;
  tries_ = 0;
  earliestExpiryIs(timerWheel()->now());
}

void SwitchDriver::load(Offer const& offer) {
  wantedIs(offer.next);
  acquire(offer);
}

void SwitchDriver::revert(Offer const& offer) {
  // Only a load changes anything. Before the first one the bridge holds what another process has left in force, and
  // that stays.
  if (wanted_) wantedIs(offer.next);
  acquire(offer);
}

void SwitchDriver::policy(GlobalAclControl wanted) {
  policyAsked_ = wanted;
  policy_ = wanted;
  stale_ = true;
  tries_ = 0;
  earliestExpiryIs(timerWheel()->now());
}

void SwitchDriver::restore(Mox::Ptr<Naxel::PDData const> const& inForce) {
  policy_ = status().globalAclControl();
  // Without ACLs nothing has been loaded yet, and the bridge holds what another process has left in force.
  if (inForce->pdAclColl()->pdAcl().empty()) return;
  wantedIs(inForce);
  // What was in force under other options and cannot be said under these: what the bridge holds of it stays.
  if (!wanted_->refusal.empty()) {
    if (auto line = Naxel::trace(0))
      line << "Open vSwitch: what was in force is not restored: " << wanted_->refusal;
    wanted_.reset();
  }
  earliestExpiryIs(timerWheel()->now());
}

void SwitchDriver::wantedIs(Mox::Ptr<Naxel::PDData const> const& data) {
  wanted_ = std::make_unique<Translation>(translate(*data, options_.layout));
  stale_ = true;
}

void SwitchDriver::handleExpiry() {
  try {
    work();
  } catch (SwitchError const& error) {
    retry(error.text);
  } catch (std::exception const& error) {
    retry(error.what());
  }
}

void SwitchDriver::work() {
  bool const acquiring = offer_ && request() && request()->requestState() == RequestState::acquire;
  if (!stale_ && !settling_ && !offer_ && options_.watch > 0 && wanted_ && !holds()) {
    ++restored_;
    stale_ = true;
  }
  if (stale_) converge();
  stale_ = false;
  if (settling_ && !settled()) return earliestExpiryIs(timerWheel()->now() + settlingLook);
  tries_ = 0;
  waitingFor_.clear();
  // Own state first: each of the answers may bring the next request.
  if (policyAsked_) {
    policyAsked_.reset();
    earliestExpiryIs(timerWheel()->now());  // for what else there is
    return confirmPolicy();
  }
  auto const offer = std::exchange(offer_, std::nullopt);
  armWatch();
  if (!offer || !request()) return;
  if (acquiring) {
    std::string const fault = faultOf(*offer->next);
    answerAll(offer->id, fault.empty() ? ResponseState::hitless : ResponseState::failed, fault);
  } else {
    bool const loading = request()->requestState() == RequestState::load;
    answerAll(offer->id, loading ? ResponseState::loaded : ResponseState::reverted);
  }
}

std::string SwitchDriver::faultOf(Naxel::PDData const& data) {
  Translation const flows = translate(data, options_.layout);
  if (!flows.refusal.empty()) return flows.refusal;
  try {
    Switch bridge(options_.target.management, options_.patience);
    FragmentMode const mode = bridge.fragmentMode();
    if (mode != FragmentMode::nxMatch && !options_.setFragments)
      return fragmentFault(mode, options_.target.bridge());
    std::string refusal;
    FlowSet const wanted =
        ranked(flows, options_.layout, bridge.ownFlows(options_.layout), refusal);
    if (!refusal.empty()) return refusal;
    // One that is given is waited for at the load.
    if (std::string const& control = options_.target.control;
        options_.awaitCaches && !control.empty())
      Control(control, options_.patience);
    return roomFault(wanted, options_.layout, bridge.room());
  } catch (SwitchError const& error) {
    return error.text;
  }
}

void SwitchDriver::converge() {
  auto const start = SteadyClock::now();
  Layout const& layout = options_.layout;
  auto next = std::make_unique<Settling>(options_,
                                         tries_ > 0 ? shortPatience(options_) : options_.patience);
  Switch& bridge = next->bridge;
  if (FragmentMode const mode = bridge.fragmentMode(); mode != FragmentMode::nxMatch) {
    if (!options_.setFragments) throw SwitchError{fragmentFault(mode, options_.target.bridge())};
    bridge.fragmentModeIs(FragmentMode::nxMatch);
  }
  FlowSet const present = bridge.ownFlows(layout);
  std::string refusal = wanted_ ? wanted_->refusal : std::string();
  FlowSet const flows =
      withPolicy(wanted_ ? ranked(*wanted_, layout, present, refusal) : present, policy_, layout);
  if (!refusal.empty()) throw SwitchError{refusal};
  FlowChanges const difference = changes(present, flows);
  bridge.apply(difference, layout);
  next->report = {flows.size(),
                  difference.add.size(),
                  difference.del.size(),
                  difference.change.size(),
                  secondsSince(start),
                  0,
                  false};
  next->begin(options_);
  settling_ = std::move(next);
}

bool SwitchDriver::settled() {
  if (settling_->caches) {
    auto const state = settling_->caches->look();
    if (state == Revalidation::State::running) return false;
    settling_->report.cachesFollowed = state == Revalidation::State::done;
    settling_->report.cacheSeconds = secondsSince(settling_->since);
  }
  // Over the connection of the bundle, so that a switch that has begun anew meanwhile is not taken for that one.
  size_t const held = settling_->bridge.countOwn(options_.layout);
  size_t const wanted = settling_->report.flows;
  if (held != wanted)
    throw SwitchError{"the bridge holds " + std::to_string(held) + " flows of the " +
                      std::to_string(wanted) + " that were put in force"};
  report_ = settling_->report;
  settling_.reset();
  return true;
}

bool SwitchDriver::holds() {
  Switch bridge(options_.target.management, options_.patience, shortPatience(options_));
  return bridge.fragmentMode() == FragmentMode::nxMatch &&
         bridge.countOwn(options_.layout) == report_.flows;
}

void SwitchDriver::retry(std::string const& why) {
  // Whether what was put in force still stands is to be looked at anew.
  if (std::exchange(settling_, nullptr)) stale_ = true;
  waitingFor_ = why;
  // A word at first, and then with each doubling.
  if ((tries_ & (tries_ + 1)) == 0)
    if (auto line = Naxel::trace(0))
      line << "Open vSwitch: waiting after " << tries_ + 1 << (tries_ ? " tries: " : " try: ")
           << why;
  Mox::Seconds delay = options_.firstRetry;
  for (unsigned i = 0; i < tries_ && delay < options_.lastRetry; ++i) delay *= 2;
  ++tries_;
  earliestExpiryIs(timerWheel()->now() + std::min(delay, options_.lastRetry));
}

void SwitchDriver::armWatch() {
  if (options_.watch > 0 && wanted_ && earliestExpiry() < 0)
    earliestExpiryIs(timerWheel()->now() + options_.watch);
}

}  // namespace NaxelOvs
