#include "support/World.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace Test {

using namespace Naxel;

namespace {

[[noreturn]] void bad(std::string const& what) {
  std::fprintf(stderr, "rule text: %s\n", what.c_str());
  std::abort();
}

std::vector<std::string> split(std::string const& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, separator);) parts.push_back(part);
  return parts;
}

void addPrefixes(IpPrefixList& list, std::string const& text) {
  for (std::string const& p : split(text, ',')) {
    if (p.starts_with('!'))
      list.exceptAddrIs(Mox::valueFromText<Lumox::IpGenPrefix>(p.substr(1)));
    else
      list.addrIs(Mox::valueFromText<Lumox::IpGenPrefix>(p));
  }
}

void addRanges(RuleFilter& filter, RangeSetType type, std::string const& text) {
  for (std::string const& part : split(text, ',')) {
    auto const ends = split(part, '-');
    auto const first = static_cast<uint32_t>(std::stoul(ends[0]));
    filter.rangeIs(type, first,
                   ends.size() > 1 ? static_cast<uint32_t>(std::stoul(ends[1])) : first);
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

namespace {

Mox::Ptr<IpPrefixList> copied(Mox::Ptr<IpPrefixList> const& list) {
  if (!list) return nullptr;
  auto const copy = Mox::makePtr<IpPrefixList>();
  for (auto const& p : list->addr()) copy->addrIs(p);
  for (auto const& p : list->exceptAddr()) copy->exceptAddrIs(p);
  return copy;
}

void copyRule(RuleConfig const& from, RuleConfig& to) {
  to.actionIs(from.action());
  if (from.ruleFilter()) copyFilter(*from.ruleFilter(), *to.ruleFilterIs());
}

}  // namespace

void copyFilter(RuleFilter const& from, RuleFilter& to) {
  to.sourceIs(copied(from.source()));
  to.destinationIs(copied(from.destination()));
  from.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    for (auto const& r : ranges) to.rangeIs(type, r.rangeStart(), r.rangeEnd());
  });
  to.matchTcpInitIs(from.matchTcpInit());
  to.matchTcpEstablishedIs(from.matchTcpEstablished());
}

void copyAcls(AclConfigColl const& from, AclConfigColl& to) {
  for (auto const& [name, acl] : from.acl()) {
    auto const copy = to.aclIs(name);
    if (acl->af()) copy->afIs(*acl->af());
    for (auto const& [ruleName, rule] : acl->ruleByName())
      copyRule(*rule, *copy->ruleByNameIs(ruleName));
    for (auto const& [index, rule] : acl->ruleById()) {
      if (!rule) {
        copy->ruleByIdIs(index, nullptr);
        continue;
      }
      if (acl->ruleByName(rule->name()) == rule) {
        copy->ruleByIdIs(index, copy->ruleByName(rule->name()));
        continue;
      }
      auto const stray = Mox::makePtr<RuleConfig>(rule->name());
      copyRule(*rule, *stray);
      copy->ruleByIdIs(index, stray);
    }
  }
}

namespace {

/// What a filter says besides its lists.
std::string said(RuleFilter const& filter) {
  std::string out;
  for (Mox::Attribute const& a : filter.attributeTable()) out += a.text(filter) + ";";
  return out;
}

bool sayTheSame(Mox::Ptr<RuleFilter> const& a, Mox::Ptr<RuleFilter> const& b) {
  if (!a || !b) return a == b;
  auto const lists = [](Mox::Ptr<IpPrefixList> const& x, Mox::Ptr<IpPrefixList> const& y) {
    return x && y ? x->isEqual(*y) : x == y;
  };
  return lists(a->source(), b->source()) && lists(a->destination(), b->destination()) &&
         said(*a) == said(*b);
}

void restoreAcl(AclConfig const& from, AclConfig& to) {
  from.af() ? to.afIs(*from.af()) : to.afDel();
  for (auto const& [name, rule] : to.ruleByName())
    if (!from.ruleByName(name)) to.ruleByNameDel(name);
  for (auto const& [name, rule] : from.ruleByName()) {
    auto const other = to.ruleByNameIs(name);
    if (!sayTheSame(rule->ruleFilter(), other->ruleFilter())) other->ruleFilterDel();
    if (rule->ruleFilter() && !other->ruleFilter())
      copyFilter(*rule->ruleFilter(), *other->ruleFilterIs());
    other->actionIs(rule->action());
  }
  for (auto const& [index, rule] : to.ruleById())
    if (!from.ruleByIdHas(index)) to.ruleByIdDel(index);
  for (auto const& [index, rule] : from.ruleById()) {
    if (from.ruleByName(rule->name()) == rule) {
      to.ruleByIdIs(index, to.ruleByName(rule->name()));
      continue;
    }
    auto const stray = Mox::makePtr<RuleConfig>(rule->name());
    copyRule(*rule, *stray);
    to.ruleByIdIs(index, stray);
  }
}

}  // namespace

void restoreAcls(AclConfigColl const& from, AclConfigColl& to) {
  for (auto const& [name, acl] : to.acl())
    if (!from.acl(name)) to.aclDel(name);
  for (auto const& [name, acl] : from.acl()) restoreAcl(*acl, *to.aclIs(name));
}

void copyWidths(ChipHwCapability const& from, ChipHwCapability& to) {
  for (auto const& [key, w] : from.prefixXformWidth()) to.prefixXformWidthIs(key, w);
  for (auto const& [type, w] : from.rangeXformWidth()) to.rangeXformWidthIs(type, w);
  for (auto const& [type, w] : from.comboXformWidth()) to.comboXformWidthIs(type, w);
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

void ScriptDriver::answerAll(ResourceStatus const& status, bool prefixLast) {
  for (bool prefixes : {!prefixLast, prefixLast})
    for (PDTable table : allPDTables())
      if (table != PDTable::tcpFlags && isPrefixTable(table) == prefixes)
        tableStatusIs(status_, table, status);
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

void World::runUntilStage(NaxelActiveStage stage) {
  while (root->stageControllerSm()->activeStage() != stage && activity.runPass()) {
  }
}

std::string dump(PDData const& data) {
  std::ostringstream out;
  auto const table = [&](std::string const& title, auto const& coll, auto write) {
    if (coll.empty()) return;
    out << title << ":";
    for (auto const& e : coll) {
      out << " ";
      write(e);
      out << "=" << e.value();
    }
    out << "\n";
  };
  for (auto const& [key, coll] : data.pdPrefixXformEntryColl())
    table(Mox::stringValue(key.af()) + (key.src() ? " src" : " dst"), coll->entry(),
          [&](auto const& e) { out << e.key(); });
  for (RangeSetType type : allRangeSetTypes())
    table(Mox::stringValue(type), data.rangeColl(type)->entry(),
          [&](auto const& e) { out << e.key().first() << "-" << e.key().last(); });
  for (ComboLabelSetType type : allComboLabelSetTypes())
    table(Mox::stringValue(type), data.comboColl(type)->entry(),
          [&](auto const& e) { out << e.key().srcLabel() << "," << e.key().dstLabel(); });
  for (auto const& [key, acl] : data.pdAclColl()->pdAcl()) {
    if (acl->rule().empty()) out << "acl " << key.aclName() << " " << key.af() << "\n";
    for (auto const& [index, rule] : acl->rule()) {
      if (rule->filter().empty())
        out << "acl " << key.aclName() << " " << key.af() << " " << index << ": none\n";
      for (PDAclFilter const& f : rule->filter()) {
        out << "acl " << key.aclName() << " " << key.af() << " " << index << ":";
        for (TcamFieldType type : allLabelFields())
          if (auto const& e = f.labelField(type); e.mask().value())
            out << " " << labelFieldName(type) << "=" << e.label() << "/" << e.mask();
        if (f.matchTcpInit()) out << " init";
        if (f.matchTcpEstablished()) out << " est";
        if (rule->action().dropEnabled()) out << " drop";
        out << "\n";
      }
    }
  }
  return out.str();
}

std::string full(PDData const& data) {
  std::string out = dump(data);
  for (auto const& [key, acl] : data.pdAclColl()->pdAcl())
    for (auto const& [index, rule] : acl->rule())
      out += key.aclName() + " " + valueToStrep(index) + " " + valueToStrep(rule->action()) + "\n";
  return out;
}

}  // namespace Test
