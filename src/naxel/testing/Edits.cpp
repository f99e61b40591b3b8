#include "naxel/testing/Edits.h"

#include "mox/Assert.h"
#include "naxel/loader/PDTable.h"
#include "naxel/testing/Pieces.h"
#include "naxel/testing/RuleText.h"
#include "naxel/testing/Vocabulary.h"
#include "verify/ConfigCopy.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace Naxel::Testing {

void Words::unknown() const { throw std::invalid_argument("unknown event: " + in.str()); }

std::string Words::word() {
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

uint32_t Words::number() {
  std::string const w = word();
  return static_cast<uint32_t>(choice ? *choice : std::stoul(w));
}

namespace {

enum Side { src, dst };

Mox::Ptr<IpPrefixList> listOf(RuleConfig const& rule, uint32_t side) {
  auto const filter = Edit::there(rule.ruleFilter());
  return Edit::there(side == src ? filter->source() : filter->destination());
}

void editPrefix(Edit& e) {
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

void editRange(Edit& e) {
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

void toggle(Edit& e) {
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
void rename(Edit& e) {
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

void deleteRule(Edit& e) {
  auto const acl = e.acl();
  auto const rule = e.rule(*acl);
  acl->ruleByNameDel(rule->name());
  for (auto const& [index, other] : acl->ruleById()) MOX_ASSERT(other != rule);
}

void swapFilters(Edit& e) {
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

void share(Edit& e) {
  auto const rule = e.rule();
  auto const list = listOf(*rule, e.number());
  auto const filter = e.rule()->ruleFilterIs();
  e.number() == src ? filter->sourceIs(list) : filter->destinationIs(list);
}

void swapIndexes(Edit& e) {
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

void renameAcl(Edit& e) {
  auto const acl = e.acl();
  AclConfig copy(e.word());
  Verify::copyAcl(*acl, copy);
  e.acls.aclDel(acl->name());
  e.acls.aclDel(copy.name());
  Verify::copyAcl(copy, *e.acls.aclIs(copy.name()));
}

void widthIs(Edit& e) {
  auto const table = e.named<PDTable>();
  auto const behind = [&](PDTable first) {
    return static_cast<uint8_t>(static_cast<int>(table) - static_cast<int>(first));
  };
  auto const width = e.number();
  auto& c = e.capability;
  if (isPrefixTable(table))
    c.prefixXformWidthIs(PrefixXformKey::all()[behind(PDTable::v4Source)], std::max(width, 1u));
  else if (isComboTable(table))
    c.comboXformWidthIs(static_cast<ComboLabelSetType>(behind(PDTable::v4PrefixCombo)), width);
  else if (isRangeTable(table))
    c.rangeXformWidthIs(static_cast<RangeSetType>(behind(PDTable::srcPort)), width);
}

constexpr Verb<Edit> edits[] = {
    {"edit", 8, "set <acl> <index> <rule> <filter>",
     [](Edit& e) {
       std::string rest;
       std::getline(e.in, rest);
       addRules(e.acls, rest);
     }},
    {"", 0, "acl <acl>", [](Edit& e) { e.acls.aclIs(e.word()); }},
    {"edit", 4, "del-acl <acl>", [](Edit& e) { e.acls.aclDel(e.word()); }},
    {"edit", 4, "rename-acl <acl> <acl>", renameAcl},
    {"edit", 4, "af <acl> ipv4|ipv6|none|none",
     [](Edit& e) {
       auto const acl = e.acl();
       auto const af = Mox::instanceFromText<Lumox::AddressFamily>(e.word());
       af ? acl->afIs(*af) : acl->afDel();
     }},
    {"edit", 4, "del-rule <acl> <rule>", deleteRule},
    {"edit", 4, "rename-rule <acl> <rule> <rule>", rename},
    {"edit", 4, "recreate <acl> <rule>", rename},
    {"edit", 4, "swap <acl> <rule> <rule>", swapFilters},
    {"edit", 4, "index <acl> <index> <rule>",
     [](Edit& e) {
       auto const acl = e.acl();
       AceIndex const index = e.index();
       acl->ruleByIdIs(index, e.rule(*acl));
     }},
    {"edit", 4, "swap-index <acl> <index> <index>", swapIndexes},
    {"edit", 4, "del-index <acl> <index>", [](Edit& e) { e.acl()->ruleByIdDel(e.index()); }},
    {"", 0, "stray <acl> <index> <rule>",
     [](Edit& e) {
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
    {"edit", 1, "empty", [](Edit& e) { e.acls.aclDelAll(); }},
    {"", 0, "oversize <acl> 3..40",
     [](Edit& e) {
       std::string const acl = e.word();
       for (int i = 0; i < 40; ++i) e.acls.aclIs(acl)->ruleByNameDel("big" + std::to_string(i));
       for (uint32_t i = e.number(); i-- > 0;) {
         std::ostringstream rule;
         rule << acl << ' ' << 1000 + i << " big" << i << " sport " << i << " dport " << i
              << " proto " << i;
         addRules(e.acls, rule.str());
       }
     }},
    {"", 0, "width <table> <bits>", widthIs},
    {"widths", 1, "widths narrow|roomy 0..65535",
     [](Edit& e) {
       bool const roomy = e.number();
       Dice dice(e.number());
       drawWidths(dice, e.capability, roomy, 6);
     }},
    {"edit", 2, "code aligned|compact",
     [](Edit& e) { e.params.labelCodeIs(e.named<Acl::LabelCode>()); }},
    {"edit", 1, "keep 0..1", [](Edit& e) { e.params.keepLabelsIs(e.number()); }},
};

}  // namespace

std::span<Verb<Edit> const> allEdits() { return edits; }

std::string_view nameOfPattern(std::string_view pattern) {
  return pattern.substr(0, pattern.find(' ', pattern.starts_with("driver ") ? 7 : 0));
}

bool beginsWith(std::string_view line, std::string_view name) {
  return line.starts_with(name) && (line.size() == name.size() || line[name.size()] == ' ');
}

}  // namespace Naxel::Testing
