#include "Readers.h"

#include "command/Verify.h"
#include "input/JsonConfigReader.h"
#include "input/JsonDocument.h"
#include "naxel/types/NaxelTrace.h"
#include "output/Summary.h"
#include "output/TablesWriter.h"
#include "session/Session.h"

#include <algorithm>
#include <sstream>
#include <string_view>

#include <nlohmann/json.hpp>

namespace Fuzz {

using namespace NaxelTool;
using Json = nlohmann::ordered_json;

namespace {

/// Takes ":<number>" from the front; 0 if there is none.
size_t takeNumber(std::string_view& text) {
  size_t digits = 1;
  size_t value = 0;
  while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9')
    value = value * 10 + static_cast<size_t>(text[digits++] - '0');
  if (digits > 1) text.remove_prefix(digits);
  return value;
}

size_t lengthOfLine(std::string const& text, size_t line) {
  size_t from = 0;
  while (--line) from = text.find('\n', from) + 1;
  return std::min(text.find('\n', from), text.size()) - from;
}

Json rangesOf(auto const& ranges) {
  std::vector<std::string> all;
  for (auto const& r : ranges)
    all.push_back(std::to_string(r.rangeStart()) + "-" + std::to_string(r.rangeEnd()));
  std::sort(all.begin(), all.end());
  return all;
}

Json listOf(Naxel::IpPrefixList const& list) {
  auto const prefixes = [](auto const& coll) {
    std::vector<std::string> all;
    for (auto const& p : coll) all.push_back(Mox::valueToStrep(p));
    std::sort(all.begin(), all.end());
    return all;
  };
  Json out = Json::object();
  if (list.addrs()) out["addr"] = prefixes(list.addr());
  if (list.exceptAddrs()) out["except"] = prefixes(list.exceptAddr());
  return out;
}

Json ruleOf(Naxel::AceIndex index, Naxel::RuleConfig const& rule) {
  Json out;
  out["index"] = index.value();
  out["name"] = rule.name();
  Naxel::RuleFilter const& filter = *rule.ruleFilter();
  if (filter.source()) out["source"] = listOf(*filter.source());
  if (filter.destination()) out["destination"] = listOf(*filter.destination());
  filter.forEachRangeColl([&](Naxel::RangeSetType type, auto const& ranges) {
    std::string const name(Naxel::rangeField(type).name);
    if (!ranges.empty()) out[name] = rangesOf(ranges);
  });
  out["matchTcpInit"] = filter.matchTcpInit();
  out["matchTcpEstablished"] = filter.matchTcpEstablished();
  out["continueRule"] = rule.continueRule();
  Naxel::NaxelActionValue const& a = rule.action();
  out["action"] = {{"dropEnabled", a.dropEnabled()},
                   {"logEnabled", a.logEnabled()},
                   {"dscp", a.dscp().value()},
                   {"setDscpEnabled", a.setDscpEnabled()},
                   {"tc", a.tc().value()},
                   {"setTcEnabled", a.setTcEnabled()},
                   {"sflowEnabled", a.sflowEnabled()}};
  return out;
}

size_t rulesIn(Naxel::AclConfigColl const& acls) {
  size_t n = 0;
  for (auto const& [name, acl] : acls.acl()) n += acl->ruleById().size();
  return n;
}

}  // namespace

void checkError(InputError const& error, std::string const& file, std::string const& text,
                Place place) {
  std::string const what = error.what();
  std::string_view rest = what;
  expect(rest.starts_with(file + ":"), "the error does not name the file: " + what);
  rest.remove_prefix(file.size());
  size_t const line = takeNumber(rest);
  size_t const column = line ? takeNumber(rest) : 0;
  expect(rest.starts_with(": error: ") && rest.size() > 9, "no error text: " + what);
  expect(std::none_of(rest.begin(), rest.end(),
                      [](char c) {
                        auto const byte = static_cast<unsigned char>(c);
                        return (byte < ' ' && c != '\t') || byte == 0x7f;
                      }),
         "control characters in the error: " + what);

  expect(line || place == Place::none, "the error names no line: " + what);
  expect(column || place != Place::column, "the error names no column: " + what);
  auto const lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  expect(line <= lines, "no such line: " + what);
  // The end of a line is a place as well.
  expect(!column || column <= lengthOfLine(text, line) + 1, "no such column: " + what);
}

std::string jsonOf(RuleSet const& rules) {
  Json acls = Json::array();
  for (auto const& [name, acl] : rules.acls()->acl()) {
    Json list = Json::array();
    for (auto const& [index, rule] : acl->ruleById()) list.push_back(ruleOf(index, *rule));
    acls.push_back({{"name", name}, {"af", Mox::stringValue(*acl->af())}, {"rules", list}});
  }
  return Json{{"schema", "naxel-rules"}, {"version", 1}, {"acls", acls}}.dump(1);
}

std::string jsonOf(ChipSetup const& chip) {
  Naxel::ChipHwCapability const& c = *chip.capability;
  Json out = {{"schema", "naxel-chip"}, {"version", 1}, {"chipId", c.chipId().value()}};
  for (auto const& key : Naxel::PrefixXformKey::all())
    out["prefixXformWidth"][prefixKeyName(key)] = c.prefixXformWidth(key);
  for (auto type : Naxel::allRangeSetTypes())
    out["rangeXformWidth"][Mox::stringValue(type)] = c.rangeXformWidth(type);
  for (auto type : Naxel::allComboLabelSetTypes())
    out["comboXformWidth"][Mox::stringValue(type)] = c.comboXformWidth(type);
  out["tcpFlagsXformSupported"] = c.tcpFlagsXformSupported();
  out["tcpFlagsXformWidth"] = c.tcpFlagsXformWidth();
  out["permitDuringUpdate"] = chip.permitDuringUpdate;

  SoftChip::Options const& o = chip.softChip;
  Json& soft = out["softChip"];
  for (size_t t = 0; t < Naxel::pdTableCount; ++t) {
    auto const table = static_cast<SoftChip::Table>(t);
    soft["capacity"][Mox::stringValue(table)] = o.capacity[table];
  }
  auto const choice = [](auto value, std::initializer_list<char const*> names) {
    return names.begin()[static_cast<size_t>(value)];
  };
  soft["answerAfterTicks"] = o.answerAfterTicks;
  soft["pace"] = choice(o.pace, {"together", "oneByOne"});
  soft["order"] = choice(o.order, {"standard", "reversed", "prefixTablesLast"});
  soft["tcpFlags"] = choice(o.tcpFlags, {"inTurn", "last", "never"});
  soft["staleAnswers"] = o.staleAnswers;
  soft["confirmPolicyAfterTicks"] = o.confirmPolicyAfterTicks;
  soft["forceHitful"] = o.forceHitful;
  soft["refuseTable"] = Mox::stringValue(o.refuseTable);
  soft["refuseAcquires"] = o.refuseAcquires;
  soft["missYields"] = choice(o.missYields, {"nothing", "highest"});
  return out.dump(1);
}

void checkRules(RuleSet const& rules) {
  std::string const written = jsonOf(rules);
  RuleSet again(Obel::ChipId(0));
  readJsonConfig("written", written, again);
  expectSame(written, jsonOf(again), "a rule file that was written");

  size_t const n = rulesIn(*rules.acls());
  if (n == 0 || n > 8) return;
  expect(compiles(defaultChip(), rules), "the reader takes what the kick refuses");
}

bool compiles(ChipSetup const& chip, RuleSet const& rules) {
  Naxel::naxelTrace().levelIs(-1);
  Session session(chip, rules.acls());
  if (!session.kick()) {
    expect(!session.failureTexts().empty(), "a kick failed without a reason");
    return false;
  }
  std::ostringstream out;
  expect(verify(session, 40, rulesIn(*rules.acls()), out), out.str());
  printSummary(out, session);
  std::ostringstream tables;
  writeTables(tables, session.rootStatus(), session.data(), *rules.acls());
  parseJson("tables", tables.str());
  return true;
}

}  // namespace Fuzz
