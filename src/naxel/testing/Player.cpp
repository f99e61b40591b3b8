#include "naxel/testing/Player.h"

#include <algorithm>
#include <stdexcept>

namespace Naxel::Testing {

Player::Player(DriverMaker const& make, Options const& options, Report::Figures& figures)
    : wheel_(Mox::makePtr<Obel::TimerWheel>(activity_)),
      options_(options),
      figures_(figures),
      relay_(Obel::ChipId(0)),
      entities_(Obel::ChipId(0)),
      widths_(entities_.capability),
      driver_(make()),
      judge_(relay_, *driver_, *entities_.acls, options, figures) {
  judge_.beforeRequestIs([this] { fall(); });
  entities_.pdConfig = relay_.libraryConfig;
  entities_.pdStatus = relay_.libraryStatus;
  if (driver_->widths(*entities_.capability))
    widths_ = Mox::makePtr<ChipHwCapability>(entities_.chipId);
  judge_.starting();
  driver_->start(relay_.driverConfig, relay_.driverStatus, wheel_);
  up();
  settle();
}

Player::~Player() {
  pipeline_.reset();
  driver_->stop();
}

void Player::up() {
  if (!pipeline_) pipeline_ = std::make_unique<Pipeline>(entities_, wheel_);
}

void Player::fall() {
  if (downAt_ != relay_.libraryConfig->pdResourceConfig().requestState()) return;
  downAt_.reset();
  down();
}

void Player::request() {
  if (!pipeline_) return;
  ++figures_.kicks;
  clock_.nowInc(1);  // requests have round ids
  pipeline_->kick();
}

void Player::cancel() const {
  if (pipeline_) pipeline_->cancel();
}

void Player::restart(bool chipKept) {
  driver_->stop();
  judge_.restarting();
  if (!chipKept) driver_->reset();
  driver_->start(relay_.driverConfig, relay_.driverStatus, wheel_);
}

void Player::room(size_t entries) {
  if (driver_->roomIs(entries)) judge_.roomChanged();
}

bool Player::step() {
  bool const busy = activity_.runPass();
  judge_.step();
  return busy;
}

void Player::until(RequestState state) {
  constexpr int most = 10000;
  auto const asked = [&] {
    return judge_.isOutstanding() &&
           relay_.libraryConfig->pdResourceConfig().requestState() == state;
  };
  for (int i = 0; i < most && !asked() && step(); ++i) {
  }
}

void Player::settle() {
  Mox::Seconds silent = 0;
  uint64_t writes = judge_.writes();
  for (size_t passes = 0; passes < options_.passes && !breach(); ++passes) {
    if (writes != judge_.writes()) silent = 0, passes = 0;
    writes = judge_.writes();
    if (step()) continue;
    bool const waiting = judge_.isOutstanding() || (pipeline_ && pipeline_->isRunning());
    if (!waiting) break;
    // Nothing is due now: the next timer, or what the driver waits for outside.
    Mox::Seconds const due = wheel_->untilDue();
    if (due >= 0 && silent <= options_.patience) {
      clock_.nowInc(due);
      silent += due;
    } else if (!driver_->wait()) {
      break;
    }
  }
  judge_.atRest();
}

void Player::play(std::string const& line) {
  Verb<Event> const* const verb = verbOf(verbs(), line);
  Verb<Edit> const* const edit = verbOf(allEdits(), line);
  if (!verb && !edit) throw std::invalid_argument("unknown event: " + line);
  std::string const pattern = edit ? edit->pattern : verb->pattern;
  size_t const name = nameOfPattern(pattern).size();
  Event event{{{std::istringstream(line.substr(name)), std::istringstream(pattern.substr(name))},
               *entities_.acls,
               *widths_,
               *entities_.params},
              *this};
  try {
    edit ? edit->apply(event) : verb->apply(event);
  } catch (Edit::Nothing const&) {
  } catch (Mox::RangeError const&) {  // some types refuse wrong values themselves
  }
}

std::span<Verb<Player::Event> const> Player::verbs() {
  static constexpr Verb<Event> all[] = {
      {"", 0, "kick", [](Event& e) { e.player.request(), e.player.settle(); }},
      {"", 0, "request", [](Event& e) { e.player.request(); }},
      {"", 0, "cancel", [](Event& e) { e.player.cancel(); }},
      {"event", 1, "pass 0..29",
       [](Event& e) {
         for (unsigned i = e.number(); i > 0; --i) e.player.step();
       }},
      {"event", 1, "run", [](Event& e) { e.player.settle(); }},
      {"", 0, "until acquire|load|revert",
       [](Event& e) { e.player.until(static_cast<RequestState>(e.number())); }},
      {"", 0, "down", [](Event& e) { e.player.down(); }},
      {"", 0, "up", [](Event& e) { e.player.up(); }},
      {"", 0, "down-at acquire|load|revert",
       [](Event& e) { e.player.downAt(static_cast<RequestState>(e.number())); }},
      {"", 0, "restart kept|lost", [](Event& e) { e.player.restart(e.number() == 0); }},
      {"event", 1, "room 4..60|1000000", [](Event& e) { e.player.room(e.number()); }},
      {"event", 1, "permit off|on", [](Event& e) { e.params.permitDuringUpdateIs(e.number()); }},
  };
  return all;
}

std::optional<Breach> played(DriverMaker const& make, Script const& script, Options const& options,
                             Report::Figures& figures) {
  Player player(make, options, figures);
  for (std::string const& line : script) {
    if (player.breach()) break;
    player.play(line);
  }
  if (!player.breach()) player.settle();
  return player.breach();
}

}  // namespace Naxel::Testing
