#include "support/World.h"

#include "support/Pieces.h"

#include <sstream>
#include <stdexcept>

namespace Test {

using namespace Naxel;

namespace {

[[noreturn]] void bad(std::string const& what) {
  throw std::invalid_argument("rule text: " + what);
}

void addPrefixes(IpPrefixList& list, std::string const& text) {
  for (std::string const& p : pieces(text, ",")) {
    bool const except = p.starts_with('!');
    auto const prefix = Mox::valueFromText<Lumox::IpGenPrefix>(p.substr(except));
    except ? list.exceptAddrIs(prefix) : list.addrIs(prefix);
  }
}

void addRanges(RuleFilter& filter, RangeSetType type, std::string const& text) {
  for (std::string const& part : pieces(text, ",")) {
    auto const ends = pieces(part, "-");
    auto const number = [](std::string const& n) { return static_cast<uint32_t>(std::stoul(n)); };
    filter.rangeIs(type, number(ends.front()), number(ends.back()));
  }
}

}  // namespace

RangeField const* rangeFieldOf(std::string_view word) {
  for (RangeField const& field : rangeFields)
    if (word.size() > 2 && field.name.starts_with(word)) return &field;
  return nullptr;
}

void fillFilter(RuleConfig& rule, std::string_view text) {
  std::istringstream in{std::string(text)};
  NaxelActionValue action;
  rule.ruleFilterDel();
  auto const value = [&] {
    std::string v;
    if (!(in >> v)) bad("value missing in " + std::string(text));
    return v;
  };
  for (std::string key; in >> key;) {
    auto const filter = rule.ruleFilterIs();
    if (key == "src")
      addPrefixes(*filter->sourceIs(), value());
    else if (key == "dst")
      addPrefixes(*filter->destinationIs(), value());
    else if (RangeField const* const field = rangeFieldOf(key))
      addRanges(*filter, field->type, value());
    else if (key == "init")
      filter->matchTcpInitIs(true);
    else if (key == "est")
      filter->matchTcpEstablishedIs(true);
    else if (key == "drop")
      action.dropEnabledIs(true);
    else if (key == "log")
      action.logEnabledIs(true);
    else if (key.starts_with("tc=")) {
      action.setTcEnabledIs(true);
      action.tcIs(NaxelTrafficClass(static_cast<uint8_t>(std::stoul(key.substr(3)))));
    } else
      bad("unknown key " + key);
  }
  rule.actionIs(action);
}

void addRules(AclConfigColl& coll, std::string_view text) {
  std::istringstream lines{std::string(text)};
  for (std::string line; std::getline(lines, line);) {
    std::istringstream in(line);
    std::string acl, index, name;
    if (!(in >> acl)) continue;
    if (acl == "af" || acl == "acl") {
      in >> name >> index;
      auto const config = coll.aclIs(name);
      if (acl == "af") config->afIs(*Mox::instanceFromText<Lumox::AddressFamily>(index));
      continue;
    }
    if (!(in >> index >> name)) bad(line);
    std::string rest;
    std::getline(in, rest);
    auto const config = coll.aclIs(acl);
    auto const rule = config->ruleByNameIs(name);
    config->ruleByIdIs(AceIndex(static_cast<uint32_t>(std::stoul(index))), rule);
    fillFilter(*rule, rest);
  }
}

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
