/// What a pipeline holds as lines: every entity is there, equal histories give equal bytes, and a change of one rule
/// changes the lines about it.

#include "naxel/agent/Dump.h"
#include "support/Handshake.h"

#include <filesystem>
#include <fstream>
#include <regex>

namespace Test {
namespace {

using namespace Naxel;

/// A pipeline whose chip makes labels and combinations, and the ways of its kicks.
struct Inside : World {
  explicit Inside(char const* rules) : World(rules) {
    root = nullptr;
    for (RangeSetType const type : {RangeSetType::srcPort, RangeSetType::dstPort})
      capability->rangeXformWidthIs(type, 12);
    for (ComboLabelSetType const type : allComboLabelSetTypes())
      capability->comboXformWidthIs(type, 10);
    params->labelCodeIs(Acl::LabelCode::compact);
    params->keepLabelsIs(true);
    pipeline = std::make_unique<Pipeline>(*this, wheel);
  }
  KickEnd kick() {
    KickEnd end = KickEnd::superseded;
    pipeline->kick([&](KickResult const& result) { end = result.end; });
    run();
    return end;
  }
  std::string text() const {
    std::ostringstream out;
    pipeline->dump(out);
    return out.str();
  }
  std::multiset<std::string> lines() const {
    std::multiset<std::string> all;
    std::istringstream in(text());
    for (std::string line; std::getline(in, line);) all.insert(line);
    return all;
  }

  std::unique_ptr<Pipeline> pipeline;
};

constexpr char manyFields[] =
    "edge 10 web src 10.0.0.0/8,!10.1.0.0/16 dst 1.0.0.0/8 sport 1024-65535 dport 80 proto 6\n"
    "edge 20 dns src 10.0.0.0/8 dst 1.1.0.0/16 sport 1-1023 dport 53,80 tc=3 log\n"
    "edge 30 rest drop\n"
    "six 10 all src 2001:db8::/32 dst 2001:db8:1::/48 est\n"
    "acl none";

TEST(DumpTest, LinesSayWhatStandsThere) {
  Inside chip(manyFields);
  ASSERT_EQ(chip.kick(), KickEnd::success);
  auto const all = chip.lines();
  for (char const* const line : {
           "capability.rangeXformWidth[dstPort] = 12",
           "acls.acl['edge'].ruleByName['web'].ruleFilter.source.addr[10.0.0.0/8]",
           "acls.acl['edge'].ruleByName['web'].ruleFilter.source.exceptAddr[10.1.0.0/16]",
           "acls.acl['edge'].ruleByName['web'].ruleFilter.dportRange[rangeStart=80 rangeEnd=80]",
           "acls.acl['edge'].ruleByName['dns'].action = logEnabled=true tc=3 setTcEnabled=true",
           "acls.acl['edge'].ruleByName['rest'].action = dropEnabled=true",
           "acls.acl['edge'].ruleById[20] = see acls.acl['edge'].ruleByName['dns']",
           "acls.acl['none']",
           "params.silenceLimit = 10",
           "rootConfig.naxelKickTime = kick#1",
           "rootStatus.kickTime = kick#1",
           "rootStatus.kickProgress = naxelFinishedSuccess",
           "controller: config.kickTime = kick#1",
           "aggregator: config.aclConfigColl = see acls",
           "aggregator: status.aclGenSetIpRuleList['edge'].genSetIpRule['web'].action = default",
           "rangeSplit dstPort: status.rangeToPlainLabelMap[first=80 last=80] = 2",
           "rangeEncoder dstPort: config.xformStatus = see rangeSplit dstPort: status",
           "loader: status.kickTime = kick#1",
           "output.pdAclColl.pdAcl[af=ipv4 aclName='edge'] = see "
           "ruleExpander: status.ruleExpanderLoaderInfo.pdAcl[af=ipv4 aclName='edge']",
           "pdConfig.currPDData = see output",
           "pdConfig.prevPDData = see previousOutput",
           "pdConfig.pdResourceConfig = requestId=kick#1 requestState=load",
           "pdStatus.pdAclRuleEntryStatus = responseId=kick#1 responseState=loaded",
       })
    EXPECT_EQ(all.count(line), 1u) << line;
  // One fact a line: none is empty, none stands twice.
  EXPECT_EQ(all.count(""), 0u);
  EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), all.size());
}

/// All that may happen between two dumps, in a fixed order.
void live(Inside& chip) {
  chip.kick();
  chip.rules("edge 15 more src 10.2.0.0/16 dport 443,8000-8100\nedge 10 web dport 81");
  chip.kick();
  chip.acls->acl("edge")->ruleByNameDel("dns");
  chip.driver.acquireAnswer = ResponseState::failed;
  chip.kick();
  chip.driver.acquireAnswer = ResponseState::hitless;
  chip.rules("edge 40 dns src 10.0.0.0/8 sport 7");
  chip.kick();
}

TEST(DumpTest, EqualHistoriesGiveEqualBytesWhateverTheClockSays) {
  Inside first(manyFields), second(manyFields);
  second.clock.nowInc(12345.5);
  live(first);
  live(second);
  EXPECT_EQ(first.text(), first.text());
  EXPECT_EQ(first.text(), second.text());
}

TEST(DumpTest, OrderOfWritingTheRulesChangesNothing) {
  // Rules of their own without sets: set keys are given in the order of the rules.
  Inside first("edge 10 a drop\nedge 20 b log\nup 10 c"),
      second("up 10 c\nedge 20 b log\nedge 10 a drop");
  first.kick();
  second.kick();
  EXPECT_EQ(first.text(), second.text());
}

TEST(DumpTest, ChangeOfOneRuleChangesTheLinesAboutIt) {
  struct Case {
    char const* before;
    char const* after;
    char const* about;  // every line that differs
  };
  // What every kick tells: its counts, which stages had something to do, and the output before.
  std::string const ofKicks =
      R"(^root(Config|Status)\.|^genSetKeyGen|status\.(rows|progress|status)|^previousOutput\.)";
  Case const cases[] = {
      {"edge 20 dns dport 53 log", "edge 20 dns dport 53 drop", R"('dns'\]|rule\[20\])"},
      // A set that comes and one that goes, with the pieces and labels of the one field.
      {"edge 20 dns dport 50000", "edge 20 dns dport 60000",
       R"('dns'\]|rule\[20\]|^range(Split|Encoder) dstPort|dstPort\]|pdDstPort|refCount)"},
      {"edge 20 dns src 192.0.2.0/24", "edge 20 dns src 198.51.100.0/24",
       R"('dns'\]|rule\[20\]|ipv4 src: |af=ipv4 src=true|refCount)"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.after);
    Inside chip(
        "edge 10 web src 10.0.0.0/8,!10.1.0.0/16 dport 80 proto 6\n"
        "edge 20 dns\n"
        "edge 30 mail src 10.0.0.0/8 dport 25 drop");
    ASSERT_EQ(chip.kick(), KickEnd::success);
    chip.rules(c.before);
    ASSERT_EQ(chip.kick(), KickEnd::success);
    auto const before = chip.lines();
    chip.rules(c.after);
    ASSERT_EQ(chip.kick(), KickEnd::success);
    auto const after = chip.lines();
    std::vector<std::string> differ;
    std::ranges::set_symmetric_difference(before, after, std::back_inserter(differ));
    std::regex const about(ofKicks + "|" + c.about);
    for (std::string const& line : differ) EXPECT_TRUE(std::regex_search(line, about)) << line;
    EXPECT_FALSE(differ.empty());
    EXPECT_LT(differ.size(), after.size() / 5);
  }
}

TEST(DumpTest, FailedKickShowsHowFarItHasComeAndWhatWasRefused) {
  Inside refused("edge 10 r src 10.0.0.0/8 dport 80");
  refused.driver.acquireAnswer = ResponseState::failed;
  ASSERT_EQ(refused.kick(), KickEnd::failure);
  std::string const text = refused.text();
  for (char const* const part :
       {"\nrootStatus.kickProgress = naxelFinishedFail\n",
        "\nloader: status.status = finishedFailed\n",
        "\nloader: status.lastFailedState.responseId = kick#1\n",
        "\nloader: status.lastFailedState.pdData.hwCapability.rangeXformWidth[dstPort] = 12\n"})
    EXPECT_NE(text.find(part), std::string::npos) << part;

  Inside tooMany("edge 10 r dport 1,3,5,7,9\nedge 20 s dport 3\nedge 30 t dport 5");
  tooMany.capability->rangeXformWidthIs(RangeSetType::dstPort, 1);
  ASSERT_EQ(tooMany.kick(), KickEnd::failure);
  auto const all = tooMany.lines();
  EXPECT_EQ(all.count("rangeSplit dstPort: status.status = finishedFailed"), 1u);
  EXPECT_EQ(all.count("rangeSplit dstPort: status.outputUnusable = true"), 1u);
  // Stages that the kick did not come to answer none.
  EXPECT_EQ(all.count("loader: status.kickTime = none"), 1u);
  EXPECT_EQ(all.count("loader: status.status = init"), 1u);
}

/// All that the headers declare as entity types.
std::set<std::string> declaredTypes() {
  std::regex const type(R"re(fwkType\(\) const override \{ return "([A-Za-z:]+)"; \})re");
  std::set<std::string> out;
  for (char const* const folder : {"/src/naxel", "/src/acl"})
    for (auto const& entry :
         std::filesystem::recursive_directory_iterator(NAXEL_SOURCE_DIR + std::string(folder))) {
      if (entry.path().extension() != ".h") continue;
      std::ifstream in(entry.path());
      std::string const text = (std::ostringstream() << in.rdbuf()).str();
      for (std::sregex_iterator at(text.begin(), text.end(), type), end; at != end; ++at)
        out.insert((*at)[1]);
    }
  return out;
}

TEST(DumpTest, EveryEntityTypeOfAPipelineOccurs) {
  std::set<std::string> const others = {
      // Bases.
      "Naxel::Dedupable", "Naxel::EncoderStatus", "Naxel::GenSet", "Naxel::StageConfig",
      "Naxel::StageStatus", "Naxel::XformStatus",
      // What stages work with and do not publish.
      "Naxel::ComboLabelDedupMarkAndSweeper", "Naxel::DedupMarkAndSweeper", "Naxel::DedupableList",
      "Naxel::Deduper", "Naxel::EncodedLabelAllocStatus", "Naxel::EncodedLabelAllocator",
      "Naxel::EncodedLabelRangeList", "Naxel::GenSetCostModel", "Naxel::GenSetKeyGroup",
      "Naxel::GenSetKeyGroupDeduper", "Naxel::LabelMerger", "Naxel::PrefixDedupMarkAndSweeper",
      "Naxel::PrefixListDedup", "Naxel::RangeDedupMarkAndSweeper", "Naxel::RangeMerger",
      "Naxel::RangeSetKeyGroup", "Naxel::RefCntCostModel",
      // The dump goes through the stages itself, in their order.
      "Naxel::StageSmConfig", "Naxel::StageSmStatus",
      // All chips of an agent.
      "Naxel::GlobalAclConfig", "Naxel::GlobalPDConfig", "Naxel::GlobalPDStatus",
      "Naxel::HwCapabilityColl"};
  Inside chip(manyFields);
  ASSERT_EQ(chip.kick(), KickEnd::success);
  std::ostringstream out;
  Mox::FactWriter writer(out);
  writeFacts(writer, chip.pipeline->entities(), &chip.pipeline->root());
  std::set<std::string> found(others);
  for (std::string_view const type : writer.types())
    EXPECT_TRUE(found.emplace(type).second) << type;
  EXPECT_EQ(found, declaredTypes());
}

}  // namespace
}  // namespace Test
