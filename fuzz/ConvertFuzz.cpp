/// Rules written in another format and read again: they do the same, and do not grow.

#include "Readers.h"
#include "input/RuleFiles.h"
#include "output/RuleWriters.h"

#if NAXEL_EXACT_PROOF
#include "verify/ExactComparison.h"
#endif

#include <sstream>
#include <stdexcept>

using namespace NaxelTool;

namespace {

using Write = void (*)(std::ostream&, RuleSet const&, WriteOptions const&, Diagnostics&);

size_t rulesOf(RuleSet const& rules) {
  size_t n = 0;
  for (auto const& [name, acl] : rules.acls()->acl()) n += acl->ruleById().size();
  return n;
}

RuleSet readAgain(std::string const& format, std::string const& text, ReadOptions const& options) {
  RuleSet rules(Obel::ChipId(0));
  for (RuleFormatInfo const& f : ruleFormats())
    if (f.name == format)
      Fuzz::expect(Fuzz::reads(f.read, text, Fuzz::Place::none, rules, options),
                   "what was written cannot be read:\n" + text);
  return rules;
}

void checkSame(RuleSet const& a, RuleSet const& b, std::string const& text) {
#if NAXEL_EXACT_PROOF
  try {
    auto const difference = Verify::compareRules(*a.acls(), *b.acls(), 2'000'000);
    Fuzz::expect(!difference,
                 (difference ? difference->acl + " " + difference->text : "") + "\n" + text);
  } catch (std::runtime_error const&) {
    // It took too many nodes.
  }
#else
  Fuzz::expectSame(std::to_string(rulesOf(a)), std::to_string(rulesOf(b)), text);
#endif
}

void roundTrip(RuleSet const& rules, std::string const& format, Write write,
               ReadOptions const& options) {
  std::ostringstream said;
  Diagnostics diagnostics(said);
  WriteOptions const wanted{options.strict, options.implicitEnd, options.plainFragments};
  std::ostringstream first;
  write(first, rules, wanted, diagnostics);
  if (diagnostics.count(Severity::error)) return;
  RuleSet const again = readAgain(format, first.str(), options);
  checkSame(rules, again, first.str());
  std::ostringstream second;
  write(second, again, wanted, diagnostics);
  RuleSet const third = readAgain(format, second.str(), options);
  Fuzz::expectSame(std::to_string(rulesOf(again)), std::to_string(rulesOf(third)),
                   "the number of rules of\n" + second.str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  if (size < 2) return 0;
  // The first byte is for options.
  std::string const text(data + 1, data + size);
  ReadOptions options;
  options.implicitEnd = !(data[0] & 1);
  options.plainFragments = data[0] & 2;
  options.skipUnsupported = data[0] & 4;
  RuleFormatInfo const* const format = formatOf(text);
  RuleSet rules(Obel::ChipId(0));
  if (!format || !Fuzz::reads(format->read, text, Fuzz::Place::none, rules, options)) return 0;
  if (rulesOf(rules) > 12) return 0;
  roundTrip(
      rules, "json",
      [](std::ostream& out, RuleSet const& r, WriteOptions const&, Diagnostics&) {
        writeRulesAsJson(out, r);
      },
      options);
  roundTrip(rules, "openconfig", writeRulesAsOpenConfig, options);
  for (RuleFormatInfo const& f : ruleFormats())
    if (f.name == "ios") roundTrip(rules, "ios", writeRulesAsIos, options);
  return 0;
}
