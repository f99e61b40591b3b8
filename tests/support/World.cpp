#include "support/World.h"

namespace Test {

using namespace Naxel;

ScriptDriver::ScriptDriver(PDConfig& config, PDStatus& status) : config_(config), status_(status) {
  notifierIs(&config);
}

void ScriptDriver::onPdResourceConfig() {
  log.push_back(Mox::stringValue(current().requestState()));
  if (automatic) answer();
}

void ScriptDriver::onGlobalAclControl() {
  log.push_back(Mox::stringValue(config_.globalAclControl()));
  if (confirms) confirmPolicy();
}

void ScriptDriver::answer() {
  ResponseState state = acquireAnswer;
  if (current().requestState() == RequestState::load) state = ResponseState::loaded;
  if (current().requestState() == RequestState::revert) state = ResponseState::reverted;
  answerAll(ResourceStatus(current().requestId(), state));
}

void ScriptDriver::answerAll(ResourceStatus const& status) {
  for (PDTable table : allPDTables())
    if (table != PDTable::tcpFlags) tableStatusIs(status_, table, status);
}

World::World(std::string_view rules, uint8_t chip)
    : ChipEntities(Obel::ChipId(chip)),
      wheel(Mox::makePtr<Obel::TimerWheel>(activity)),
      driver(*pdConfig, *pdStatus) {
  addRules(*acls, rules);
  buildRoot();
}

void World::buildRoot() {
  root = nullptr;
  root = Naxel::buildRoot(*this, wheel);
}

void World::request(NaxelKickRequest what) {
  rootConfig->naxelKickRequestIs(what);
  rootConfig->naxelKickTimeIs(rootConfig->naxelKickTime() + 1);
}

NaxelProgress World::run() {
  activity.runUntilIdle();
  return progress();
}

NaxelProgress World::kick() {
  request();
  return run();
}

}  // namespace Test
