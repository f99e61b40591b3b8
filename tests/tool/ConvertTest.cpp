// Rules written in another format and read again do the same with every packet.

#include "input/InputFile.h"
#include "input/JsonConfigReader.h"
#include "input/RuleFiles.h"
#include "output/RuleWriters.h"
#include "support/Pieces.h"
#include "verify/ExactComparison.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

using Write = void (*)(std::ostream&, RuleSet const&, WriteOptions const&, Diagnostics&);

struct Target {
  char const* format;
  Write write;
};
constexpr Target targets[] = {
    {"json", [](std::ostream& out, RuleSet const& rules, WriteOptions const&,
                Diagnostics&) { writeRulesAsJson(out, rules); }},
    {"openconfig", writeRulesAsOpenConfig},
    {"ios", writeRulesAsIos},
};

RuleFormatInfo const* formatNamed(std::string_view name) {
  for (RuleFormatInfo const& f : ruleFormats())
    if (f.name == name) return &f;
  return nullptr;
}

size_t rulesOf(RuleSet const& rules) {
  size_t n = 0;
  for (auto const& [name, acl] : rules.acls()->acl()) n += acl->ruleById().size();
  return n;
}

/// What the target cannot say, or nothing if it says it all and the text, read again, is proved to do the
/// same.
std::string roundTrip(RuleSet const& rules, Target const& target, ReadOptions const& options,
                      std::string* text = nullptr) {
  std::ostringstream out;
  std::ostringstream said;
  Diagnostics diagnostics(said);
  target.write(out, rules, {options.strict, options.implicitEnd, options.plainFragments},
               diagnostics);
  if (text) *text = out.str();
  if (diagnostics.count(Severity::error)) return said.str();
  RuleFormatInfo const* const format = formatNamed(target.format);
  if (!format) return {};
  RuleSet again(Obel::ChipId(0));
  try {
    readRules(format->read, "again", out.str(), again, options);
  } catch (InputError const& e) {
    ADD_FAILURE() << target.format << ": " << e.what() << "\n" << out.str().substr(0, 4000);
    return {};
  }
  auto const difference = Verify::compareRules(*rules.acls(), *again.acls());
  EXPECT_FALSE(difference) << target.format << ": " << difference->acl << " " << difference->text
                           << "\n"
                           << out.str().substr(0, 4000);
  // A second time around nothing grows.
  std::ostringstream second;
  target.write(second, again, {options.strict, options.implicitEnd, options.plainFragments},
               diagnostics);
  RuleSet third(Obel::ChipId(0));
  readRules(format->read, "third", second.str(), third, options);
  EXPECT_EQ(rulesOf(again), rulesOf(third)) << target.format;
  return {};
}

std::string const listsAndOneRule =
    R"({"schema":"naxel-rules","version":1,)"
    R"("prefixLists":{"n":{"addr":["10.0.0.0/8","12.0.0.0/8"],"except":["10.1.0.0/16"]}},)"
    R"("acls":[{"name":"a","af":"ipv4","rules":[{"index":10,"name":"x",)";

TEST(Convert, KeepsWhatTheTargetCanSayAndNamesWhatNot) {
  struct Row {
    std::string rule;
    std::string openConfig;  ///< what strict OpenConfig cannot say
    std::string ios;         ///< what the text cannot say, read plainly
  };
  for (Row const& row : {
           Row{R"("source":"n","destination":["1.2.3.4/32"],"proto":[6,17],"dport":[53,"80-90"])",
               "protocol [6,17]", ""},
           {R"("proto":6,"dport":"0-1023","fragment":0,"description":"first\nsecond")", "", ""},
           {R"("proto":6,"dport":"0-1023")", "fragment \"0-8191\"", "fragment offsets"},
           {R"("proto":6,"dport":80,"fragment":0)", "", "fragment offsets"},
           {R"("dport":80)", "protocol \"0-255\"", "ports of other protocols"},
           {R"("dport":[80,443],"matchTcpInit":true)", "", ""},
           {R"("matchTcpInit":true,"matchTcpEstablished":true)", "both tests", "both tests"},
           {R"("proto":1,"icmpType":[0,8],"fragment":0)", "ICMP type [0,8]", "fragment offsets"},
           {R"("proto":1,"icmpType":8)", "", ""},
           {R"("icmpType":8)", "protocol \"0-255\"", "ICMP types of other"},
           {R"("fragment":"1-8191","dscp":["0-7",46])", "", ""},
           {R"("fragment":"3-4000")", "fragment", "fragment offsets"},
           {R"("length":"64-1500")", "length", ""},
           {R"("source":{"except":["1.0.0.0/8"]},"action":{"logEnabled":true})", "", ""},
           {R"("action":{"tc":3,"setTcEnabled":true})", "an action", "an action"},
           {R"("continueRule":true)", "'continueRule'", "'continueRule'"},
       }) {
    SCOPED_TRACE(row.rule);
    RuleSet rules(Obel::ChipId(0));
    readRules(readJsonConfig, "f",
              listsAndOneRule + row.rule +
                  R"(},{"index":20,"name":"end","action":{"dropEnabled":true}}]}]})",
              rules);
    ReadOptions options;
    options.plainFragments = true;
    EXPECT_EQ(roundTrip(rules, targets[0], options), "");
    EXPECT_EQ(roundTrip(rules, targets[1], options), "");
    std::string const ios = roundTrip(rules, targets[2], options);
    EXPECT_TRUE(row.ios.empty() ? ios.empty() : ios.find(row.ios) != std::string::npos) << ios;
    options.strict = true;
    std::string const strict = roundTrip(rules, targets[1], options);
    EXPECT_TRUE(row.openConfig.empty() ? strict.empty()
                                       : strict.find(row.openConfig) != std::string::npos)
        << strict;
  }
}

TEST(Convert, EndsAndFragmentsAreWrittenOnce) {
  std::string text;
  RuleSet rules(Obel::ChipId(0));
  readRules(readJsonConfig, "f",
            listsAndOneRule +
                R"("proto":6,"dport":80},{"index":20,"name":"part","proto":6,"fragment":"1-8191"},
{"index":30,"name":"deny","proto":6,"dport":81,"fragment":0,"action":{"dropEnabled":true}}]}]})",
            rules);
  EXPECT_NE(roundTrip(rules, targets[2], {})
                .find("ACL 'a': the text of IOS cannot say what becomes of packets"),
            std::string::npos);
  EXPECT_EQ(roundTrip(rules, targets[2], {.implicitEnd = false}, &text), "");
  EXPECT_EQ(text,
            "! to be read with --no-implicit\n!\nip access-list extended a\n remark x\n"
            " 10 permit tcp any any eq 80\n remark deny\n 30 deny tcp any any eq 81\n");
}

// Folders of files to convert, from the environment; what a target cannot say is counted.
TEST(Convert, FilesOfAFolder) {
  char const* const folder = std::getenv("NAXEL_CONVERT_FILES");
  if (!folder) GTEST_SKIP() << "NAXEL_CONVERT_FILES names no folder";
  for (auto const& entry : std::filesystem::directory_iterator(folder)) {
    SCOPED_TRACE(entry.path().string());
    for (bool const plain : {false, true}) {
      ReadOptions options;
      options.skipUnsupported = options.skipErrors = true;
      options.plainFragments = plain;
      options.implicitEnd = !plain;
      RuleSet rules(Obel::ChipId(0));
      std::ostringstream said;
      Diagnostics diagnostics(said);
      ReadCounts counts;
      try {
        counts = readRuleFiles({entry.path().string()}, options, rules, diagnostics);
      } catch (RejectedInput const&) {
        std::cout << entry.path().filename() << ": " << said.str().substr(0, said.str().find('\n'))
                  << '\n';
        continue;
      }
      std::cout << entry.path().filename() << (plain ? " plain" : "") << "  ACLs "
                << rules.acls()->acl().size() << "  entries " << counts.read << " = "
                << counts.compiled << " + " << counts.reported;
      for (Target const& target : targets) {
        if (!formatNamed(target.format)) continue;
        std::string const cannot = roundTrip(rules, target, options);
        std::cout << "  " << target.format << ": "
                  << (cannot.empty() ? "equal" : cannot.substr(0, cannot.find('\n')));
      }
      std::cout << std::endl;
    }
  }
}

}  // namespace
}  // namespace NaxelTool
