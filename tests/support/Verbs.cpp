#include "support/Verbs.h"

#include "naxel/types/NaxelTrace.h"
#include "support/AllocationFaults.h"
#include "support/Simulator.h"

#include <algorithm>
#include <stdexcept>

namespace Test {

using namespace Naxel;

void Event::unknown() const { throw std::invalid_argument("unknown event: " + in.str()); }

std::string Event::word() {
  std::string w;
  if (!(in >> w)) unknown();
  return w;
}

uint32_t Event::number() {
  uint32_t n = 0;
  if (!(in >> n)) unknown();
  return n;
}

bool Event::is(std::string const& yes, std::string const& no) {
  std::string const w = word();
  if (w != yes && w != no) unknown();
  return w == yes;
}

Mox::Ptr<RuleConfig> Event::rule() {
  auto const config = acl();
  std::string const name = word();
  return config ? config->ruleByName(name) : nullptr;
}

namespace {

Mox::Ptr<IpPrefixList> listOf(RuleConfig const* rule, bool source) {
  if (!rule || !rule->ruleFilter()) return nullptr;
  return source ? rule->ruleFilter()->source() : rule->ruleFilter()->destination();
}

void editPrefix(Event& e) {
  auto const rule = e.rule();
  auto const list = listOf(rule.get(), e.is("src", "dst"));
  std::string const change = e.word();
  if (!list || change.size() < 2) return;
  size_t const members = list->addrs() + list->exceptAddrs();
  if (change.starts_with("-#")) {
    // The member of that number, if there is another one besides.
    if (members < 2) return;
    size_t at = std::stoul(change.substr(2)) % members;
    bool const carvedOut = at >= list->addrs();
    if (carvedOut) at -= list->addrs();
    auto const& from = carvedOut ? list->exceptAddr() : list->addr();
    auto const member = *std::next(from.begin(), static_cast<std::ptrdiff_t>(at));
    return carvedOut ? list->exceptAddrDel(member) : list->addrDel(member);
  }
  bool const except = change[1] == '!';
  auto const prefix = Mox::valueFromText<Lumox::IpGenPrefix>(change.substr(except ? 2 : 1));
  if (change[0] == '+') return except ? list->exceptAddrIs(prefix) : list->addrIs(prefix);
  // An agent must not leave a list without any member.
  if (members == 1 || !(except ? list->exceptAddrHas(prefix) : list->addrHas(prefix))) return;
  except ? list->exceptAddrDel(prefix) : list->addrDel(prefix);
}

void editRange(Event& e) {
  auto const rule = e.rule();
  RangeField const* const field = rangeFieldOf(e.word());
  char sign = 0;
  char dash = 0;
  uint32_t first = 0;
  uint32_t last = 0;
  if (!field || !(e.in >> sign >> first >> dash >> last)) e.unknown();
  if (!rule) return;
  try {
    sign == '+' ? rule->ruleFilterIs()->rangeIs(field->type, first, last)
                : rule->ruleFilterIs()->rangeDel(field->type, first, last);
  } catch (Mox::RangeError const&) {
    // Some types refuse such values themselves.
  }
}

void toggle(Event& e) {
  auto const rule = e.rule();
  std::string const what = e.word();
  if (!rule) return;
  NaxelActionValue action = rule->action();
  if (what == "init" || what == "est") {
    auto const filter = rule->ruleFilterIs();
    what == "init" ? filter->matchTcpInitIs(!filter->matchTcpInit())
                   : filter->matchTcpEstablishedIs(!filter->matchTcpEstablished());
  } else if (what == "drop") {
    action.dropEnabledIs(!action.dropEnabled());
  } else if (what == "log") {
    action.logEnabledIs(!action.logEnabled());
  } else if (what == "tc") {
    action.setTcEnabledIs(!action.setTcEnabled());
    action.tcIs(NaxelTrafficClass(3));
  } else {
    e.unknown();
  }
  rule->actionIs(action);
}

/// Everything that a rule says, in another one of this name and at the same indexes.
void renameRule(AclConfig& acl, RuleConfig* from, std::string const& to) {
  Mox::Ptr<RuleConfig> const kept(from);
  std::vector<AceIndex> indexes;
  for (auto const& [index, rule] : acl.ruleById())
    if (rule.get() == from) indexes.push_back(index);
  auto const filter = from->ruleFilter();
  acl.ruleByNameDel(from->name());
  acl.ruleByNameDel(to);
  auto const rule = acl.ruleByNameIs(to);
  if (filter) Verify::copyFilter(*filter, *rule->ruleFilterIs());
  rule->actionIs(from->action());
  for (AceIndex index : indexes) acl.ruleByIdIs(index, rule);
}

/// ACL RULE, and the name that the rule gets, or its own.
void rename(Event& e, bool sameName) {
  auto const acl = e.acl();
  std::string const from = e.word();
  std::string const to = sameName ? from : e.word();
  if (auto const rule = acl ? acl->ruleByName(from) : nullptr) renameRule(*acl, rule.get(), to);
}

void deleteRule(Event& e) {
  auto const acl = e.acl();
  std::string const name = e.word();
  auto const rule = acl ? acl->ruleByName(name) : nullptr;
  if (!rule) return;
  acl->ruleByNameDel(name);
  for (auto const& [index, other] : acl->ruleById())
    if (other == rule) e.simulator.differ("an index outlives its rule");
}

void swapFilters(Event& e) {
  auto const acl = e.acl();
  auto const a = acl ? acl->ruleByName(e.word()) : nullptr;
  auto const b = a ? acl->ruleByName(e.word()) : nullptr;
  if (!b || a == b) return;
  auto const ofA = a->ruleFilter();
  auto const ofB = b->ruleFilter();
  a->ruleFilterDel();
  b->ruleFilterDel();
  if (ofB) Verify::copyFilter(*ofB, *a->ruleFilterIs());
  if (ofA) Verify::copyFilter(*ofA, *b->ruleFilterIs());
}

void share(Event& e) {
  auto const rule = e.rule();
  auto const list = listOf(rule.get(), e.is("src", "dst"));
  auto const other = e.rule();
  bool const to = e.is("src", "dst");
  if (!list || !other) return;
  to ? other->ruleFilterIs()->sourceIs(list) : other->ruleFilterIs()->destinationIs(list);
}

void swapIndexes(Event& e) {
  auto const acl = e.acl();
  AceIndex const one = e.index();
  AceIndex const two = e.index();
  if (!acl) return;
  auto const ofOne = acl->ruleById(one);
  auto const ofTwo = acl->ruleById(two);
  acl->ruleByIdDel(one);
  acl->ruleByIdDel(two);
  if (ofTwo) acl->ruleByIdIs(one, ofTwo);
  if (ofOne) acl->ruleByIdIs(two, ofOne);
}

void renameAcl(Event& e) {
  std::string const from = e.word();
  std::string const to = e.word();
  auto const acl = e.chip.acls().acl(from);
  if (!acl || from == to) return;
  AclConfig copy(to);
  Verify::copyAcl(*acl, copy);
  e.chip.acls().aclDel(from);
  e.chip.acls().aclDel(to);
  Verify::copyAcl(copy, *e.chip.acls().aclIs(to));
}

void widthIs(Event& e) {
  std::string const table = e.word();
  auto const w = static_cast<uint8_t>(std::min(e.number(), 16u));
  auto& c = e.chip.capability();
  for (PrefixXformKey const& key : PrefixXformKey::all())
    if (table ==
        (key.af() == Lumox::ipv4() ? std::string("v4") : "v6") + (key.src() ? "src" : "dst"))
      return c.prefixXformWidthIs(key, std::max<uint8_t>(w, 1));
  if (auto const type = Mox::instanceFromText<RangeSetType>(table))
    c.rangeXformWidthIs(*type, w);
  else if (auto const combo = Mox::instanceFromText<ComboLabelSetType>(table))
    c.comboXformWidthIs(*combo, w);
  else
    e.unknown();
}

/// Sets the option of the driver that is named by one of several words, from 0.
template <class T>
void optionIs(Event& e, T SoftChip::Options::*option, std::vector<std::string> const& words) {
  auto const at = std::find(words.begin(), words.end(), e.word());
  if (at == words.end()) e.unknown();
  e.chip.driver().options().*option = static_cast<T>(at - words.begin());
}

/// A table that is not answered for in turn is not refused either.
void settleRefusal(Event& e) {
  SoftChip::Options& o = e.chip.driver().options();
  if (o.refuseTable == PDTable::tcpFlags && o.tcpFlags != SoftChip::TcpFlagsAnswer::inTurn)
    o.refuseAcquires = 0;
}

using O = SoftChip::Options;

constexpr Verb verbs[] = {
    {"edit", 8, "set <acl> <index> <rule> <filter>",
     [](Event& e) {
       std::string rest;
       std::getline(e.in, rest);
       addRules(e.chip.acls(), rest);
     }},
    {"", 0, "acl <acl>", [](Event& e) { e.chip.acls().aclIs(e.word()); }},
    {"edit", 4, "del-acl <acl>", [](Event& e) { e.chip.acls().aclDel(e.word()); }},
    {"edit", 4, "rename-acl <acl> <acl>", renameAcl},
    {"edit", 4, "af <acl> ipv4|ipv6|none|none",
     [](Event& e) {
       auto const acl = e.acl();
       auto const af = Mox::instanceFromText<Lumox::AddressFamily>(e.word());
       if (acl) af ? acl->afIs(*af) : acl->afDel();
     }},
    {"edit", 4, "del-rule <acl> <rule>", deleteRule},
    {"edit", 4, "rename-rule <acl> <rule> <rule>", [](Event& e) { rename(e, false); }},
    {"edit", 4, "recreate <acl> <rule>", [](Event& e) { rename(e, true); }},
    {"edit", 4, "swap <acl> <rule> <rule>", swapFilters},
    {"edit", 4, "index <acl> <index> <rule>",
     [](Event& e) {
       auto const acl = e.acl();
       AceIndex const index = e.index();
       if (auto const rule = acl ? acl->ruleByName(e.word()) : nullptr)
         acl->ruleByIdIs(index, rule);
     }},
    {"edit", 4, "swap-index <acl> <index> <index>", swapIndexes},
    {"edit", 4, "del-index <acl> <index>",
     [](Event& e) {
       if (auto const acl = e.acl()) acl->ruleByIdDel(e.index());
     }},
    {"", 0, "stray <acl> <index> <rule>",
     [](Event& e) {
       auto const acl = e.acl();
       AceIndex const index = e.index();
       if (acl) acl->ruleByIdIs(index, Mox::makePtr<RuleConfig>(e.word()));
     }},
    {"edit", 8,
     "prefix <acl> <rule> src|dst "
     "+<prefix>|+<prefix>|+<prefix>|+!<prefix>|-<prefix>|-!<prefix>|-#<index>|-#<index>",
     editPrefix},
    {"edit", 4, "share <acl> <rule> src|dst <acl> <rule> src|dst", share},
    {"edit", 8, "range <acl> <rule> <range>", editRange},
    {"edit", 8, "toggle <acl> <rule> drop|log|tc|init|est", toggle},
    {"edit", 1, "empty", [](Event& e) { e.chip.acls().aclDelAll(); }},
    {"", 0, "oversize <acl> 3..40",
     [](Event& e) {
       std::string const acl = e.word();
       for (uint32_t i = e.number() % 300; i-- > 0;) {
         std::string const k = std::to_string(i);
         addRules(e.chip.acls(), acl + " " + std::to_string(1000 + i) + " big" + k + " sport " + k +
                                     " dport " + k + " proto " + k);
       }
     }},
    {"", 0, "shrink <acl>",
     [](Event& e) {
       auto const acl = e.acl();
       for (int i = 0; acl && i < 300; ++i) acl->ruleByNameDel("big" + std::to_string(i));
     }},
    {"", 0, "width <table> <bits>", widthIs},
    {"edit", 4, "undo 0..1", [](Event& e) { e.chip.undo(e.number()); }},

    {"", 0, "kick",
     [](Event& e) {
       e.chip.request(NaxelKickRequest::naxelStart);
       e.simulator.settle();
     }},
    {"", 0, "request", [](Event& e) { e.chip.request(NaxelKickRequest::naxelStart); }},
    {"", 0, "cancel", [](Event& e) { e.chip.request(NaxelKickRequest::naxelCancel); }},
    {"", 0, "cancel-at <stage>",
     [](Event& e) {
       auto const stage = e.named<NaxelActiveStage>();
       e.chip.request(NaxelKickRequest::naxelStart);
       while (e.chip.activeStage() != stage && e.simulator.step()) {
       }
       e.chip.request(NaxelKickRequest::naxelCancel);
     }},
    {"", 0, "rekick-at <progress>", [](Event& e) { e.chip.rekickAt(e.named<NaxelProgress>()); }},
    {"", 0, "down-at <progress>", [](Event& e) { e.chip.downAt(e.named<NaxelProgress>()); }},
    {"", 0, "down-at-output", [](Event& e) { e.chip.downAtOutput(); }},
    {"", 0, "down-at-request acquire|load|revert",
     [](Event& e) { e.chip.downAtRequest(e.named<RequestState>()); }},
    {"", 0, "down", [](Event& e) { e.chip.rootDown(); }},
    {"", 0, "up",
     [](Event& e) {
       if (!e.chip.isUp()) e.chip.rootUp(false);
     }},
    {"", 0, "up-fresh", [](Event& e) { e.chip.rootUp(true); }},
    {"", 0, "restart kept|lost",  // and perhaps a policy
     [](Event& e) {
       bool const kept = e.is("kept", "lost");
       std::string policy;
       e.in >> policy;
       e.chip.driverRestart(kept, Mox::instanceFromText<GlobalAclControl>(policy));
     }},
    {"", 0, "replace capability|status",
     [](Event& e) {
       e.is("capability", "status") ? e.chip.capabilityReplace() : e.chip.pdStatusReplace();
     }},
    {"driver", 2, "permit on|off", [](Event& e) { e.chip.params().permitDuringUpdateIs(e.on()); }},

    {"driver", 1, "driver delay 0..3",
     [](Event& e) { e.chip.driver().options().answerAfterTicks = e.number() % 8; }},
    {"driver", 1, "driver policy-delay 0..2|0..2|0..29",
     [](Event& e) { e.chip.driver().options().confirmPolicyAfterTicks = e.number() % 32; }},
    {"driver", 1, "driver pace together|one-by-one",
     [](Event& e) {
       optionIs(e, &O::pace, {"together", "one-by-one"});
     }},
    {"driver", 1, "driver order standard|reversed|prefixes-last",
     [](Event& e) {
       optionIs(e, &O::order, {"standard", "reversed", "prefixes-last"});
     }},
    {"driver", 1, "driver tcp-flags in-turn|last|never",
     [](Event& e) {
       optionIs(e, &O::tcpFlags, {"in-turn", "last", "never"});
       settleRefusal(e);
     }},
    {"driver", 1, "driver stale on|off",
     [](Event& e) {
       optionIs(e, &O::staleAnswers, {"off", "on"});
     }},
    {"driver", 2, "driver hitful on|off",
     [](Event& e) {
       optionIs(e, &O::forceHitful, {"off", "on"});
     }},
    {"driver", 1, "driver miss nothing|highest",
     [](Event& e) {
       optionIs(e, &O::missYields, {"nothing", "highest"});
     }},
    {"driver", 1, "driver superseded dropped|finished",
     [](Event& e) {
       optionIs(e, &O::finishesSuperseded, {"dropped", "finished"});
     }},
    {"driver", 1, "driver refuse <pdTable>",
     [](Event& e) {
       e.chip.driver().options().refuseTable = e.named<PDTable>();
       e.chip.driver().options().refuseAcquires = 1;
       settleRefusal(e);
     }},
    {"driver", 1, "driver capacity <pdTable> 0..39|1000000|1000000",
     [](Event& e) {
       auto const table = e.named<PDTable>();
       e.chip.driver().options().capacity[table] = e.number();
     }},

    {"event", 1, "pass 0..29",
     [](Event& e) {
       for (unsigned i = e.number() % 1000; i > 0; --i) e.simulator.step();
       e.simulator.checkRunning();
     },
     true},
    {"upheaval", 15, "run", [](Event& e) { e.simulator.settle(); }, true},
    {"", 0, "clock -600|1", [](Event& e) { e.simulator.clock().nowInc(std::stod(e.word())); },
     true},
    {"fault", 3, "throwing on|off", [](Event& e) { e.simulator.throwingIs(e.on()); }, true},
    {"", 0, "trace 9", [](Event& e) { naxelTrace().levelIs(e.number() % 10); }, true},
    {"fault", 3, "alloc 1..1200|1..1200|1..30",
     [](Event& e) { AllocationFaults::failAt(e.number()); }, true},
};

}  // namespace

std::span<Verb const> allVerbs() { return verbs; }

std::string_view nameOf(Verb const& verb) {
  std::string_view const all = verb.pattern;
  return all.substr(0, all.find(' ', all.starts_with("driver ") ? 7 : 0));
}

Verb const* verbOf(std::string const& line) {
  for (Verb const& verb : verbs) {
    std::string_view const name = nameOf(verb);
    if (line.starts_with(name) && (line.size() == name.size() || line[name.size()] == ' '))
      return &verb;
  }
  return nullptr;
}

}  // namespace Test
