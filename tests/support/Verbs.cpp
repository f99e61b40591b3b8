#include "support/Verbs.h"

#include "naxel/types/NaxelTrace.h"
#include "support/AllocationFaults.h"
#include "support/Pieces.h"
#include "support/Simulator.h"
#include "support/World.h"

#include <algorithm>
#include <stdexcept>

namespace Test {

using namespace Naxel;

void Event::unknown() const { throw std::invalid_argument("unknown event: " + in.str()); }

std::string Event::word() {
  std::string w;
  std::string p;
  if (!(in >> w)) unknown();
  pattern >> p;
  choice.reset();
  if (p.empty() || p.find_first_of("<.") != p.npos) return w;
  auto const words = pieces(p, "|");
  auto const at = std::find(words.begin(), words.end(), w);
  if (at == words.end()) unknown();
  choice = static_cast<size_t>(at - words.begin());
  return w;
}

uint32_t Event::number() {
  std::string const w = word();
  return static_cast<uint32_t>(choice ? *choice : std::stoul(w));
}

namespace {

enum Side { src, dst };

Mox::Ptr<IpPrefixList> listOf(RuleConfig const& rule, uint32_t side) {
  auto const filter = Event::there(rule.ruleFilter());
  return Event::there(side == src ? filter->source() : filter->destination());
}

void editPrefix(Event& e) {
  auto const rule = e.rule();
  auto const list = listOf(*rule, e.number());
  std::string const change = e.word();
  size_t const members = list->addrs() + list->exceptAddrs();
  bool except = change[1] == '!';
  Lumox::IpGenPrefix prefix;
  if (change.starts_with("-#")) {
    size_t const at = std::stoul(change.substr(2)) % members;
    except = at >= list->addrs();
    auto const& from = except ? list->exceptAddr() : list->addr();
    prefix =
        *std::next(from.begin(), static_cast<std::ptrdiff_t>(except ? at - list->addrs() : at));
  } else {
    prefix = Mox::valueFromText<Lumox::IpGenPrefix>(change.substr(except ? 2 : 1));
  }
  if (change[0] == '+') return except ? list->exceptAddrIs(prefix) : list->addrIs(prefix);
  // An agent must not leave a list without any member.
  if (members > 1) except ? list->exceptAddrDel(prefix) : list->addrDel(prefix);
}

void editRange(Event& e) {
  auto const rule = e.rule();
  RangeField const* const field = rangeFieldOf(e.word());
  std::string const change = e.word();
  if (!field) e.unknown();
  auto const ends = pieces(change.substr(1), "-");
  auto const first = static_cast<uint32_t>(std::stoul(ends.front()));
  auto const last = static_cast<uint32_t>(std::stoul(ends.back()));
  auto const filter = rule->ruleFilterIs();
  change[0] == '+' ? filter->rangeIs(field->type, first, last)
                   : filter->rangeDel(field->type, first, last);
}

void toggle(Event& e) {
  auto const rule = e.rule();
  auto const what = e.number();
  NaxelActionValue action = rule->action();
  auto const filter = what < 2 ? rule->ruleFilterIs() : nullptr;
  switch (what) {
    case 0: filter->matchTcpInitIs(!filter->matchTcpInit()); break;
    case 1: filter->matchTcpEstablishedIs(!filter->matchTcpEstablished()); break;
    case 2: action.dropEnabledIs(!action.dropEnabled()); break;
    case 3: action.logEnabledIs(!action.logEnabled()); break;
    default: action.setTcEnabledIs(!action.setTcEnabled()), action.tcIs(NaxelTrafficClass(3));
  }
  rule->actionIs(action);
}

/// Everything that a rule says, in another one of the same name or another, and at the same indexes.
void rename(Event& e) {
  auto const acl = e.acl();
  auto const from = e.rule(*acl);
  std::string to = from->name();
  e.in >> to;
  auto const before = acl->ruleById();
  acl->ruleByNameDel(from->name());
  acl->ruleByNameDel(to);
  auto const rule = acl->ruleByNameIs(to);
  if (from->ruleFilter()) Verify::copyFilter(*from->ruleFilter(), *rule->ruleFilterIs());
  rule->actionIs(from->action());
  for (auto const& [index, then] : before)
    if (then == from) acl->ruleByIdIs(index, rule);
}

void deleteRule(Event& e) {
  auto const acl = e.acl();
  auto const rule = e.rule(*acl);
  acl->ruleByNameDel(rule->name());
  for (auto const& [index, other] : acl->ruleById())
    if (other == rule) e.simulator.differ("an index outlives its rule");
}

void swapFilters(Event& e) {
  auto const acl = e.acl();
  auto const a = e.rule(*acl);
  auto const b = e.rule(*acl);
  if (a == b) return;
  auto const ofA = a->ruleFilter();
  auto const ofB = b->ruleFilter();
  a->ruleFilterDel();
  b->ruleFilterDel();
  if (ofB) Verify::copyFilter(*ofB, *a->ruleFilterIs());
  if (ofA) Verify::copyFilter(*ofA, *b->ruleFilterIs());
}

void share(Event& e) {
  auto const rule = e.rule();
  auto const list = listOf(*rule, e.number());
  auto const filter = e.rule()->ruleFilterIs();
  e.number() == src ? filter->sourceIs(list) : filter->destinationIs(list);
}

void swapIndexes(Event& e) {
  auto const acl = e.acl();
  AceIndex const one = e.index();
  AceIndex const two = e.index();
  auto const ofOne = acl->ruleById(one);
  auto const ofTwo = acl->ruleById(two);
  acl->ruleByIdDel(one);
  acl->ruleByIdDel(two);
  if (ofTwo) acl->ruleByIdIs(one, ofTwo);
  if (ofOne) acl->ruleByIdIs(two, ofOne);
}

void renameAcl(Event& e) {
  auto const acl = e.acl();
  AclConfig copy(e.word());
  Verify::copyAcl(*acl, copy);
  e.chip.acls().aclDel(acl->name());
  e.chip.acls().aclDel(copy.name());
  Verify::copyAcl(copy, *e.chip.acls().aclIs(copy.name()));
}

void widthIs(Event& e) {
  auto const table = e.named<PDTable>();
  auto const behind = [&](PDTable first) {
    return static_cast<uint8_t>(static_cast<int>(table) - static_cast<int>(first));
  };
  auto const width = e.number();
  auto& c = e.chip.capability();
  if (isPrefixTable(table))
    c.prefixXformWidthIs(PrefixXformKey::all()[behind(PDTable::v4Source)], std::max(width, 1u));
  else if (isComboTable(table))
    c.comboXformWidthIs(static_cast<ComboLabelSetType>(behind(PDTable::v4PrefixCombo)), width);
  else if (isRangeTable(table))
    c.rangeXformWidthIs(static_cast<RangeSetType>(behind(PDTable::srcPort)), width);
}

/// A table that is not answered for in turn is not refused either.
void settleRefusal(SoftChip::Options& o) {
  if (o.refuseTable == PDTable::tcpFlags && o.tcpFlags != SoftChip::TcpFlagsAnswer::inTurn)
    o.refuseAcquires = 0;
}

template <auto option>
void optionIs(Event& e) {
  auto& to = e.chip.driver().options().*option;
  to = static_cast<std::remove_reference_t<decltype(to)>>(e.number());
  settleRefusal(e.chip.driver().options());
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
       af ? acl->afIs(*af) : acl->afDel();
     }},
    {"edit", 4, "del-rule <acl> <rule>", deleteRule},
    {"edit", 4, "rename-rule <acl> <rule> <rule>", rename},
    {"edit", 4, "recreate <acl> <rule>", rename},
    {"edit", 4, "swap <acl> <rule> <rule>", swapFilters},
    {"edit", 4, "index <acl> <index> <rule>",
     [](Event& e) {
       auto const acl = e.acl();
       AceIndex const index = e.index();
       acl->ruleByIdIs(index, e.rule(*acl));
     }},
    {"edit", 4, "swap-index <acl> <index> <index>", swapIndexes},
    {"edit", 4, "del-index <acl> <index>", [](Event& e) { e.acl()->ruleByIdDel(e.index()); }},
    {"", 0, "stray <acl> <index> <rule>",
     [](Event& e) {
       auto const acl = e.acl();
       AceIndex const index = e.index();
       acl->ruleByIdIs(index, Mox::makePtr<RuleConfig>(e.word()));
     }},
    {"edit", 8,
     "prefix <acl> <rule> src|dst "
     "+<prefix>|+<prefix>|+<prefix>|+!<prefix>|-<prefix>|-!<prefix>|-#<index>|-#<index>",
     editPrefix},
    {"edit", 4, "share <acl> <rule> src|dst <acl> <rule> src|dst", share},
    {"edit", 8, "range <acl> <rule> <range>", editRange},
    {"edit", 8, "toggle <acl> <rule> init|est|drop|log|tc", toggle},
    {"edit", 1, "empty", [](Event& e) { e.chip.acls().aclDelAll(); }},
    {"", 0, "oversize <acl> 3..40",
     [](Event& e) {
       std::string const acl = e.word();
       for (int i = 0; i < 40; ++i)
         e.chip.acls().aclIs(acl)->ruleByNameDel("big" + std::to_string(i));
       for (uint32_t i = e.number(); i-- > 0;) {
         std::string const k = std::to_string(i);
         addRules(e.chip.acls(), acl + " " + std::to_string(1000 + i) + " big" + k + " sport " + k +
                                     " dport " + k + " proto " + k);
       }
     }},
    {"", 0, "width <table> <bits>", widthIs},
    {"widths", 1, "widths narrow|roomy 0..65535",
     [](Event& e) {
       bool const roomy = e.number();
       Dice dice(e.number());
       drawWidths(dice, e.chip.capability(), roomy, 6);
     }},
    {"edit", 2, "code aligned|compact",
     [](Event& e) { e.chip.params().labelCodeIs(e.named<Acl::LabelCode>()); }},
    {"edit", 1, "keep 0..1", [](Event& e) { e.chip.params().keepLabelsIs(e.number()); }},
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
    {"", 0, "rekick-at <progress>", [](Event& e) { e.chip.rekickAt(e.word()); }},
    {"", 0, "down-at <moment>", [](Event& e) { e.chip.downAt(e.word()); }},
    {"", 0, "down", [](Event& e) { e.chip.rootDown(); }},
    {"", 0, "up",
     [](Event& e) {
       if (!e.chip.isUp()) e.chip.rootUp(false);
     }},
    {"", 0, "up-fresh", [](Event& e) { e.chip.rootUp(true); }},
    {"", 0, "restart kept|lost",  // and perhaps a policy
     [](Event& e) {
       bool const kept = e.number() == 0;
       std::string policy;
       e.in >> policy;
       e.chip.driverRestart(kept, Mox::instanceFromText<GlobalAclControl>(policy));
     }},
    {"", 0, "replace capability|status",
     [](Event& e) { e.number() ? e.chip.pdStatusReplace() : e.chip.capabilityReplace(); }},
    {"driver", 2, "permit off|on",
     [](Event& e) { e.chip.params().permitDuringUpdateIs(e.number()); }},

    {"driver", 1, "driver delay 0..3", optionIs<&O::answerAfterTicks>},
    {"driver", 1, "driver policy-delay 0..2|0..2|0..29", optionIs<&O::confirmPolicyAfterTicks>},
    {"driver", 1, "driver pace together|one-by-one", optionIs<&O::pace>},
    {"driver", 1, "driver order standard|reversed|prefixes-last", optionIs<&O::order>},
    {"driver", 1, "driver tcp-flags in-turn|last|never", optionIs<&O::tcpFlags>},
    {"driver", 1, "driver stale off|on", optionIs<&O::staleAnswers>},
    {"driver", 2, "driver hitful off|on", optionIs<&O::forceHitful>},
    {"driver", 1, "driver miss nothing|highest", optionIs<&O::missYields>},
    {"driver", 1, "driver superseded dropped|finished", optionIs<&O::finishesSuperseded>},
    {"driver", 1, "driver refuse <table>",
     [](Event& e) {
       e.chip.driver().options().refuseTable = e.named<PDTable>();
       e.chip.driver().options().refuseAcquires = 1;
       settleRefusal(e.chip.driver().options());
     }},
    {"driver", 1, "driver capacity <table> 0..39|1000000|1000000",
     [](Event& e) {
       auto const table = e.named<PDTable>();
       e.chip.driver().options().capacity[table] = e.number();
     }},

    {"event", 1, "pass 0..29",
     [](Event& e) {
       for (unsigned i = e.number(); i > 0; --i) e.simulator.step();
     },
     true},
    {"upheaval", 15, "run", [](Event& e) { e.simulator.settle(); }, true},
    {"", 0, "clock -600|1", [](Event& e) { e.simulator.clock().nowInc(std::stod(e.word())); },
     true},
    {"fault", 3, "throwing off|on", [](Event& e) { e.simulator.throwingIs(e.number()); }, true},
    {"", 0, "trace 9", [](Event& e) { naxelTrace().levelIs(std::stoi(e.word())); }, true},
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
