// That an explanation says what rules and tables do, for whatever packet, and finds the rules that are named.

#include "answers/Explanation.h"
#include "input/RuleFiles.h"
#include "verify/PacketSource.h"
#include "verify/RuleOracle.h"

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

RuleSet exampleRules() {
  RuleSet rules(Obel::ChipId(0));
  std::ostringstream said;
  Diagnostics diagnostics(said);
  readRuleFiles({NAXEL_EXAMPLES_DIR "/edge.json", NAXEL_EXAMPLES_DIR "/branch.rules"}, {}, rules,
                diagnostics);
  return rules;
}

/// The label of the entry that a step names; none where it names none.
std::optional<uint16_t> labelNamed(Naxel::PDData const& data, Lumox::AddressFamily af,
                                   LookupStep const& step) {
  using Verify::Field;
  if (step.matched.empty()) return std::nullopt;
  bool const isSource = step.field == Verify::Fields::source;
  if (isSource || step.field == Verify::Fields::destination) {
    auto const table = data.pdPrefixXformEntryColl(Naxel::PrefixXformKey(af, isSource));
    auto const* const entry = table->entry(prefixFromText(step.matched));
    return entry ? std::optional(entry->value().value()) : std::nullopt;
  }
  auto const type = Naxel::rangeTypeOf(step.field);
  if (type == Naxel::RangeSetType::rangeSetMax) return step.label;  // a pair is named by its labels
  for (auto const& e : data.rangeColl(type)->entry()) {
    std::string const first = std::to_string(e.key().first());
    if (step.matched == first || step.matched == first + "-" + std::to_string(e.key().last()))
      return e.value().value();
  }
  return std::nullopt;
}

TEST(Explain, SaysWhatRulesAndTablesDo) {
  RuleSet const rules = exampleRules();
  for (char const* chip : {"", NAXEL_EXAMPLES_DIR "/combo-chip.json"}) {
    SCOPED_TRACE(chip);
    std::ifstream in(chip);
    std::string const text = (std::ostringstream() << in.rdbuf()).str();
    Session session(*chip ? readChip(chip, text) : defaultChip(), rules.acls());
    ASSERT_TRUE(session.kick());
    std::vector<RuleTarget> everyRule;
    for (auto const& [name, acl] : rules.acls()->acl())
      for (auto const& [index, rule] : acl->ruleById()) everyRule.push_back({name, index});
    Verify::PacketSource source(*rules.acls(), 5);
    for (int i = 0; i < 2000; ++i) {
      Verify::Packet const packet = source.next();
      auto const e = explainPacket(session, rules, packet, "", everyRule);
      ASSERT_EQ(e.differences(), 0u) << packet;
      for (LookupStep const& step : e.lookups)
        // A miss may yield a label as well.
        if (!step.raw && (!*chip || !step.matched.empty())) {
          ASSERT_EQ(labelNamed(session.data(), packet.af, step), step.label)
              << packet << ' ' << Naxel::labelFieldName(step.field);
        }
      for (AclExplanation const& acl : e.acls)
        for (WhyNot const& why : acl.whyNot) {
          auto const& filter = acl.acl->ruleById(why.rule)->ruleFilter();
          bool const matches = !filter || Verify::matches(*filter, packet);
          ASSERT_EQ(why.decides, acl.rule == why.rule) << packet;
          ASSERT_EQ(why.unmet.empty(), matches) << packet;
          ASSERT_EQ(why.earlier.has_value(), matches && !why.decides) << packet;
          if (why.earlier) {
            ASSERT_LT(*why.earlier, why.rule) << packet;
          }
        }
    }
  }
}

TEST(Explain, RulesAreFoundByIndexNameAndPlace) {
  RuleSet const rules = exampleRules();
  struct Case {
    char const* text;
    char const* only;
    char const* found;
  };
  for (Case const& c : {
           Case{"20", "edge-in", "edge-in:20 "},
           {"20", "", "edge-in:20 edge-in6:20 edge-out:20 "},
           {"edge-out:20", "", "edge-out:20 "},
           {"spoofed", "edge-in", "edge-in:20 "},
           {"edge.json:24", "", "edge-in:20 "},
           {NAXEL_EXAMPLES_DIR "/edge.json:24", "", "edge-in:20 "},
           {"edge-in:edge.json:24", "", "edge-in:20 "},
           {"edge-in:20", "edge-out", "there is no rule 'edge-in:20' in ACL 'edge-out'; "},
           {"ge.json:24", "", "there is no rule 'ge.json:24'; "},
           {"edge-in:spooofed", "", "there is no rule 'edge-in:spooofed'; "},
           {"spooofed", "", "there is no rule 'spooofed'; did you mean 'spoofed'?"},
           {"99999999999999999999", "", "there is no rule '99999999999999999999'; "},
           {":", "", "there is no rule ':'; "},
       }) {
    std::string found;
    try {
      for (RuleTarget const& target : rulesNamed(c.text, rules, c.only))
        found += target.acl + ":" + std::to_string(target.rule.value()) + " ";
    } catch (NoSuchRule const& e) {
      found = std::string(e.what()) + "; " + e.help();
    }
    EXPECT_EQ(found, c.found) << c.text;
  }
}

}  // namespace
}  // namespace NaxelTool
