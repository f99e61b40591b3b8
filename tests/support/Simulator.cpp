#include "support/Simulator.h"

#include "mox/Trace.h"
#include "naxel/types/NaxelTrace.h"
#include "support/AllocationFaults.h"
#include "verify/RuleOracle.h"

#include <algorithm>
#include <stdexcept>

namespace Test {

using namespace Naxel;

namespace {

[[noreturn]] void unknown(std::string const& what) {
  throw std::invalid_argument("unknown event: " + what);
}

template <class T>
T read(std::istringstream& in) {
  T v;
  if (!(in >> v)) unknown(in.str());
  return v;
}
std::string word(std::istringstream& in) { return read<std::string>(in); }

template <class T, size_t N>
T choice(std::istringstream& in, std::array<std::pair<char const*, T>, N> const& known) {
  std::string const w = word(in);
  for (auto const& [name, value] : known)
    if (w == name) return value;
  unknown(in.str());
}
bool onOff(std::istringstream& in) { return choice<bool, 2>(in, {{{"on", true}, {"off", false}}}); }
template <class E>
E named(std::istringstream& in) {
  auto const e = Mox::instanceFromText<E>(word(in));
  if (!e) unknown(in.str());
  return *e;
}

Mox::Ptr<RuleConfig> ruleOf(SimChip& chip, std::string const& acl, std::string const& rule) {
  auto const config = chip.acls().acl(acl);
  return config ? config->ruleByName(rule) : nullptr;
}

void editPrefix(RuleConfig& rule, bool source, std::string const& change) {
  if (!rule.ruleFilter()) return;
  auto const list = source ? rule.ruleFilter()->source() : rule.ruleFilter()->destination();
  if (!list || change.size() < 2) return;
  if (change.starts_with("-#")) {
    // The member of that number, if there is another one besides.
    size_t const members = list->addrs() + list->exceptAddrs();
    if (members < 2) return;
    size_t at = std::stoul(change.substr(2)) % members;
    bool const carvedOut = at >= list->addrs();
    if (carvedOut) at -= list->addrs();
    auto const& from = carvedOut ? list->exceptAddr() : list->addr();
    auto const member = *std::next(from.begin(), static_cast<std::ptrdiff_t>(at));
    return carvedOut ? list->exceptAddrDel(member) : list->addrDel(member);
  }
  bool const add = change[0] == '+';
  bool const except = change[1] == '!';
  auto const prefix = Mox::valueFromText<Lumox::IpGenPrefix>(change.substr(except ? 2 : 1));
  if (add) return except ? list->exceptAddrIs(prefix) : list->addrIs(prefix);
  // An agent must not leave a list without any member.
  bool const member = except ? list->exceptAddrHas(prefix) : list->addrHas(prefix);
  if (!member || list->addrs() + list->exceptAddrs() == 1) return;
  except ? list->exceptAddrDel(prefix) : list->addrDel(prefix);
}

void toggle(RuleConfig& rule, std::string const& what) {
  NaxelActionValue action = rule.action();
  if (what == "drop")
    action.dropEnabledIs(!action.dropEnabled());
  else if (what == "log")
    action.logEnabledIs(!action.logEnabled());
  else if (what == "tc") {
    action.setTcEnabledIs(!action.setTcEnabled());
    action.tcIs(NaxelTrafficClass(3));
  } else if (what == "init" || what == "est") {
    auto const filter = rule.ruleFilterIs();
    what == "init" ? filter->matchTcpInitIs(!filter->matchTcpInit())
                   : filter->matchTcpEstablishedIs(!filter->matchTcpEstablished());
    return;
  } else
    unknown(what);
  rule.actionIs(action);
}

/// Everything that `from` says, under another name and at the same indexes.
void renameRule(AclConfig& acl, Mox::Ptr<RuleConfig> const& from, std::string const& to) {
  std::vector<AceIndex> indexes;
  for (auto const& [index, rule] : acl.ruleById())
    if (rule == from) indexes.push_back(index);
  auto const filter = from->ruleFilter();
  NaxelActionValue const action = from->action();
  acl.ruleByNameDel(from->name());
  acl.ruleByNameDel(to);
  auto const rule = acl.ruleByNameIs(to);
  if (filter) Verify::copyFilter(*filter, *rule->ruleFilterIs());
  rule->actionIs(action);
  for (AceIndex index : indexes) acl.ruleByIdIs(index, rule);
}

void swapFilters(RuleConfig& a, RuleConfig& b) {
  auto const ofA = a.ruleFilter();
  auto const ofB = b.ruleFilter();
  a.ruleFilterDel();
  b.ruleFilterDel();
  if (ofB) Verify::copyFilter(*ofB, *a.ruleFilterIs());
  if (ofA) Verify::copyFilter(*ofA, *b.ruleFilterIs());
}

void widthIs(SimChip& chip, std::string const& table, unsigned bits) {
  auto const w = static_cast<uint8_t>(std::min(bits, 16u));
  auto& c = chip.capability();
  for (PrefixXformKey const& key : PrefixXformKey::all())
    if (table ==
        (key.af() == Lumox::ipv4() ? std::string("v4") : "v6") + (key.src() ? "src" : "dst"))
      return c.prefixXformWidthIs(key, std::max<uint8_t>(w, 1));
  for (RangeSetType type : allRangeSetTypes())
    if (table == Mox::stringValue(type)) return c.rangeXformWidthIs(type, w);
  for (ComboLabelSetType type : allComboLabelSetTypes())
    if (table == Mox::stringValue(type)) return c.comboXformWidthIs(type, w);
  unknown(table);
}

void driverIs(SoftChip::Options& o, std::string const& key, std::istringstream& in) {
  using namespace SoftChip;
  if (key == "delay")
    o.answerAfterTicks = read<uint32_t>(in) % 8;
  else if (key == "policy-delay")
    o.confirmPolicyAfterTicks = read<uint32_t>(in) % 32;
  else if (key == "pace")
    o.pace = choice<Pace, 2>(in, {{{"together", Pace::together}, {"one-by-one", Pace::oneByOne}}});
  else if (key == "order")
    o.order = choice<AnswerOrder, 3>(in, {{{"standard", AnswerOrder::standard},
                                           {"reversed", AnswerOrder::reversed},
                                           {"prefixes-last", AnswerOrder::prefixTablesLast}}});
  else if (key == "tcp-flags")
    o.tcpFlags = choice<TcpFlagsAnswer, 3>(in, {{{"in-turn", TcpFlagsAnswer::inTurn},
                                                 {"last", TcpFlagsAnswer::last},
                                                 {"never", TcpFlagsAnswer::never}}});
  else if (key == "stale")
    o.staleAnswers = onOff(in);
  else if (key == "superseded")
    o.finishesSuperseded = choice<bool, 2>(in, {{{"dropped", false}, {"finished", true}}});
  else if (key == "hitful")
    o.forceHitful = onOff(in);
  else if (key == "miss")
    o.missYields = choice<MissYields, 2>(
        in, {{{"nothing", MissYields::nothing}, {"highest", MissYields::highest}}});
  else if (key == "refuse") {
    o.refuseTable = named<Table>(in);
    o.refuseAcquires = 1;
  } else if (key == "capacity") {
    Table const table = named<Table>(in);
    o.capacity[table] = read<size_t>(in);
  } else
    unknown(key);
  // A table that is not answered for in turn is not refused either.
  if (o.refuseTable == Table::tcpFlags && o.tcpFlags != TcpFlagsAnswer::inTurn)
    o.refuseAcquires = 0;
}

}  // namespace

Simulator::Simulator()
    : sinkBefore_(Mox::traceSinkIs({})), wheel_(Mox::makePtr<Obel::TimerWheel>(activity_)) {
  AllocationFaults::failAt(0);
  strikesBefore_ = AllocationFaults::strikes();
  for (uint8_t i = 0; i < 2; ++i)
    chips_[i] = std::make_unique<SimChip>(i, wheel_, figures_, differences_);
}

Simulator::~Simulator() {
  naxelTrace().levelIs(0);
  Mox::traceSinkIs(sinkBefore_);
}

bool Simulator::step() {
  bool busy = false;
  {
    AllocationFaults::Scope const counted(true);
    busy = activity_.runPass();
  }
  for (auto const& chip : chips_) busy = chip->tick() || busy;
  return busy;
}

void Simulator::settle() {
  // A kick takes tens of steps, a slow driver some hundreds.
  for (int i = 0; i < 20000; ++i)
    if (!step()) {
      for (auto const& chip : chips_) chip->checkAtRest();
      return;
    }
  if (differences_.empty()) differences_.push_back("nothing comes to rest");
}

void Simulator::throwingIs(bool on) {
  Mox::traceSinkIs(on ? Mox::TraceSink([](auto const&, int, std::string const&) {
    throw std::runtime_error("a sink's own trouble");
  })
                      : Mox::TraceSink());
  for (auto const& chip : chips_) chip->throwingIs(on);
}

void Simulator::execute(std::string const& line) {
  std::istringstream in(line);
  std::string const verb = word(in);
  if (verb == "0" || verb == "1") {
    executeOn(*chips_[static_cast<size_t>(verb[0] - '0')], word(in), in);
  } else if (verb == "pass") {
    for (unsigned i = read<unsigned>(in) % 1000; i > 0; --i) step();
    for (auto const& chip : chips_) chip->checkRunning();
  } else if (verb == "run") {
    settle();
  } else if (verb == "clock") {
    clock_.nowInc(read<double>(in));
  } else if (verb == "throwing") {
    throwingIs(onOff(in));
  } else if (verb == "trace") {
    naxelTrace().levelIs(read<int>(in) % 10);
  } else if (verb == "alloc") {
    AllocationFaults::failAt(read<uint64_t>(in));
  } else {
    unknown(line);
  }
}

void Simulator::executeOn(SimChip& chip, std::string const& verb, std::istringstream& in) {
  if (verb == "kick") {
    chip.request(NaxelKickRequest::naxelStart);
    settle();
  } else if (verb == "request") {
    chip.request(NaxelKickRequest::naxelStart);
  } else if (verb == "cancel") {
    chip.request(NaxelKickRequest::naxelCancel);
  } else if (verb == "cancel-at") {
    auto const stage = named<NaxelActiveStage>(in);
    chip.request(NaxelKickRequest::naxelStart);
    while (chip.activeStage() != stage && step()) {
    }
    chip.request(NaxelKickRequest::naxelCancel);
  } else if (verb == "rekick-at") {
    chip.rekickAt(named<NaxelProgress>(in));
  } else if (verb == "down-at") {
    chip.downAt(named<NaxelProgress>(in));
  } else if (verb == "down-at-output") {
    chip.downAtOutput();
  } else if (verb == "down-at-request") {
    chip.downAtRequest(named<RequestState>(in));
  } else if (verb == "down") {
    chip.rootDown();
  } else if (verb == "up") {
    if (!chip.isUp()) chip.rootUp(false);
  } else if (verb == "up-fresh") {
    chip.rootUp(true);
  } else if (verb == "restart") {
    bool const kept = choice<bool, 2>(in, {{{"kept", true}, {"lost", false}}});
    std::string policy;
    in >> policy;
    chip.driverRestart(kept, Mox::instanceFromText<GlobalAclControl>(policy));
  } else if (verb == "replace") {
    choice<bool, 2>(in, {{{"capability", true}, {"status", false}}}) ? chip.capabilityReplace()
                                                                     : chip.pdStatusReplace();
  } else if (verb == "undo") {
    chip.undo(read<size_t>(in));
  } else if (verb == "driver") {
    std::string const key = word(in);
    driverIs(chip.driver().options(), key, in);
  } else if (verb == "permit") {
    chip.params().permitDuringUpdateIs(onOff(in));
  } else if (verb == "width") {
    std::string const table = word(in);
    auto const bits = read<unsigned>(in);
    widthIs(chip, table, bits);
  } else {
    if (!edit(chip, verb, in)) unknown(in.str());
    ++figures_.edits;
  }
}

bool Simulator::edit(SimChip& chip, std::string const& verb, std::istringstream& in) {
  AclConfigColl& acls = chip.acls();
  if (verb == "set") {
    std::string rest;
    std::getline(in, rest);
    addRules(acls, rest);
    return true;
  }
  if (verb == "empty") return acls.aclDelAll(), true;
  std::string const aclName = word(in);
  auto const acl = acls.acl(aclName);
  if (verb == "acl") return acls.aclIs(aclName), true;
  if (verb == "del-acl") return acls.aclDel(aclName), true;
  if (verb == "rename-acl") {
    std::string const to = word(in);
    if (!acl || to == aclName) return true;
    acls.aclDel(to);
    AclConfigColl one(Obel::ChipId(0));
    copyAcls(acls, one);
    for (auto const& [name, other] : acls.acl())
      if (name != aclName) one.aclDel(name);
    acls.aclDel(aclName);
    // The same rules under the other name.
    auto const from = one.acl(aclName);
    auto const copy = acls.aclIs(to);
    if (from->af()) copy->afIs(*from->af());
    for (auto const& [index, rule] : from->ruleById()) {
      auto const r = copy->ruleByNameIs(rule->name());
      if (rule->ruleFilter() && !r->ruleFilter())
        Verify::copyFilter(*rule->ruleFilter(), *r->ruleFilterIs());
      r->actionIs(rule->action());
      copy->ruleByIdIs(index, r);
    }
    return true;
  }
  if (verb == "af") {
    std::string const af = word(in);
    if (!acl) return true;
    if (af == "none")
      acl->afDel();
    else if (auto const family = Mox::instanceFromText<Lumox::AddressFamily>(af))
      acl->afIs(*family);
    else
      return false;
    return true;
  }
  if (verb == "oversize") {
    auto const n = read<uint32_t>(in) % 300;
    for (uint32_t i = 0; i < n; ++i) {
      std::string const k = std::to_string(i);
      addRules(acls, aclName + " " + std::to_string(1000 + i) + " big" + k + " sport " + k +
                         " dport " + k + " proto " + k);
    }
    return true;
  }
  if (verb == "shrink") {
    for (int i = 0; acl && i < 300; ++i) acl->ruleByNameDel("big" + std::to_string(i));
    return true;
  }
  if (verb == "del-index") {
    auto const index = AceIndex(read<uint32_t>(in));
    if (acl) acl->ruleByIdDel(index);
    return true;
  }
  if (verb == "swap-index") {
    auto const one = AceIndex(read<uint32_t>(in));
    auto const two = AceIndex(read<uint32_t>(in));
    if (!acl) return true;
    auto const ofOne = acl->ruleById(one);
    auto const ofTwo = acl->ruleById(two);
    acl->ruleByIdDel(one);
    acl->ruleByIdDel(two);
    if (ofTwo) acl->ruleByIdIs(one, ofTwo);
    if (ofOne) acl->ruleByIdIs(two, ofOne);
    return true;
  }
  if (verb == "stray") {
    auto const index = AceIndex(read<uint32_t>(in));
    std::string const name = word(in);
    if (acl) acl->ruleByIdIs(index, Mox::makePtr<RuleConfig>(name));
    return true;
  }
  if (verb == "index") {
    auto const index = AceIndex(read<uint32_t>(in));
    if (auto const rule = ruleOf(chip, aclName, word(in))) acl->ruleByIdIs(index, rule);
    return true;
  }
  std::string const ruleName = word(in);
  auto const rule = ruleOf(chip, aclName, ruleName);
  if (verb == "del-rule") {
    if (acl) acl->ruleByNameDel(ruleName);
    if (rule && std::any_of(acl->ruleById().begin(), acl->ruleById().end(),
                            [&](auto const& item) { return item.second == rule; }))
      differences_.push_back("an index outlives its rule");
  } else if (verb == "recreate") {
    if (rule) renameRule(*acl, rule, ruleName);
  } else if (verb == "rename-rule") {
    std::string const to = word(in);
    if (rule) renameRule(*acl, rule, to);
  } else if (verb == "swap") {
    auto const other = ruleOf(chip, aclName, word(in));
    if (rule && other && rule != other) swapFilters(*rule, *other);
  } else if (verb == "toggle") {
    std::string const what = word(in);
    if (rule) toggle(*rule, what);
  } else if (verb == "prefix") {
    bool const source = word(in) == "src";
    std::string const change = word(in);
    if (rule) editPrefix(*rule, source, change);
  } else if (verb == "share") {
    bool const from = word(in) == "src";
    std::string const otherAcl = word(in);
    auto const other = ruleOf(chip, otherAcl, word(in));
    bool const to = word(in) == "src";
    if (!rule || !rule->ruleFilter() || !other) return true;
    auto const list = from ? rule->ruleFilter()->source() : rule->ruleFilter()->destination();
    if (list)
      to ? other->ruleFilterIs()->sourceIs(list) : other->ruleFilterIs()->destinationIs(list);
  } else if (verb == "range") {
    RangeField const* const field = rangeFieldOf(word(in));
    std::string const change = word(in);
    if (!field) unknown(in.str());
    if (!rule || change.size() < 2) return true;
    std::istringstream numbers(change.substr(1));
    uint32_t first = 0;
    uint32_t last = 0;
    char dash = 0;
    if (!(numbers >> first >> dash >> last)) unknown(change);
    auto const filter = rule->ruleFilterIs();
    try {
      change[0] == '+' ? filter->rangeIs(field->type, first, last)
                       : filter->rangeDel(field->type, first, last);
    } catch (Mox::RangeError const&) {
      // Some types refuse such values themselves.
    }
  } else {
    return false;
  }
  return true;
}

void Simulator::finish() {
  AllocationFaults::failAt(0);
  figures_.faults = AllocationFaults::strikes() - strikesBefore_;
  throwingIs(false);
  for (auto const& chip : chips_) {
    chip->driver().options() = SoftChip::Options();
    if (!chip->isUp() || chip->isStale()) chip->rootUp(false);
    chip->request(NaxelKickRequest::naxelStart);
    settle();
  }
}

}  // namespace Test
