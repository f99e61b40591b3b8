#include "Readers.h"

#include "command/Verify.h"
#include "input/JsonDocument.h"
#include "naxel/types/NaxelTrace.h"
#include "output/Summary.h"
#include "output/TablesWriter.h"
#include "session/Session.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace Fuzz {

using namespace NaxelTool;

namespace {

/// Takes ":<number>" from the front; 0 if there is none.
size_t takeNumber(std::string& text) {
  if (!text.starts_with(':')) return 0;
  size_t const digits = std::min(text.find_first_not_of("0123456789", 1), text.size()) - 1;
  size_t const value = digits ? std::stoul(text.substr(1, digits)) : 0;
  if (digits) text.erase(0, digits + 1);
  return value;
}

size_t rulesIn(Naxel::AclConfigColl const& acls) {
  size_t n = 0;
  for (auto const& [name, acl] : acls.acl()) n += acl->ruleById().size();
  return n;
}

}  // namespace

bool takes(std::string const& text, Place place, std::function<void()> const& read,
           std::string const& file) try {
  read();
  return true;
} catch (InputError const& error) {
  std::string const what = error.what();
  expect(what.starts_with(file + ":"), "the error does not name the file: " + what);
  std::string rest = what.substr(file.size());
  size_t const line = takeNumber(rest);
  size_t const column = line ? takeNumber(rest) : 0;
  expect(rest.starts_with(": error: ") && rest.size() > 9, "no error text: " + what);
  expect(std::none_of(rest.begin(), rest.end(),
                      [](unsigned char c) { return std::iscntrl(c) && c != '\t'; }),
         "control characters in the error: " + what);
  expect((line || place == Place::none) && (column || place != Place::column),
         "the error names no place: " + what);
  std::istringstream in(text + "\n");
  std::string at;
  for (size_t i = 0; i < line; ++i) expect(!!std::getline(in, at), "no such line: " + what);
  // The end of a line is a place as well.
  expect(column <= at.size() + 1 || !line, "no such column: " + what);
  return false;
}

bool reads(RuleReader reader, std::string const& text, Place place, RuleSet& rules,
           ReadOptions const& options) {
  std::ostringstream said;
  Diagnostics diagnostics(said);
  RuleReading reading("f", text, options, rules, diagnostics);
  return takes(text, place, [&] {
    reader(reading);
    ReadCounts const& counts = reading.counts();
    expect(counts.read == counts.compiled + counts.reported, "entries are lost: " + said.str());
    settle(reading.counts(), rules, diagnostics);
    expect(counts.read == counts.compiled + counts.reported, "entries are lost: " + said.str());
    if (Diagnostic const* const error = diagnostics.firstError())
      throw InputError("f", error->place.at, error->text);
  });
}

void checkRules(RuleSet const& rules) {
  size_t const n = rulesIn(*rules.acls());
  if (n == 0 || n > 8) return;
  ChipSetup chip = defaultChip();
  // Few labels would be a reason to refuse.
  chip.capability->rangeXformWidthIs(Naxel::RangeSetType::fragment, 0);
  expect(compiles(chip, rules), "the reader takes what the kick refuses");
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
  writeTables(tables, session.rootStatus(), session.data(), *rules.acls(), {});
  parseJson("tables", tables.str());
  return true;
}

}  // namespace Fuzz
