// The program as its users run it: output, exit codes, files.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <zlib.h>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

std::string const examples = NAXEL_EXAMPLES_DIR;

struct Outcome {
  int code;
  std::string out;
  std::string err;
};

std::string readFile(fs::path const& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

/// A directory of its own for each test, in which the program runs.
class Command : public testing::Test {
 protected:
  Command() {
    std::string pattern = (fs::temp_directory_path() / "naxel-XXXXXX").string();
    directory_ = mkdtemp(pattern.data());
  }
  ~Command() override { fs::remove_all(directory_); }

  std::string write(std::string const& name, std::string const& content) {
    std::ofstream(directory_ / name, std::ios::binary) << content;
    return name;
  }
  std::string read(std::string const& name) { return readFile(directory_ / name); }
  bool exists(std::string const& name) { return fs::exists(directory_ / name); }

  Outcome run(std::string const& arguments) {
    std::string const line = "cd '" + directory_.string() + "' && '" NAXEL_TOOL_PATH "' " +
                             arguments + " >.out 2>.err </dev/null";
    int const status = std::system(line.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read(".out"), read(".err")};
  }
  Json tables(std::string const& arguments) {
    Outcome const o = run("compile --json " + arguments);
    EXPECT_EQ(o.code, 0) << o.err;
    return Json::parse(o.out, nullptr, false);
  }

  fs::path directory_;
};

std::string rules(std::string const& acls) {
  return R"({"schema":"naxel-rules","version":1,"acls":)" + acls + "}";
}
std::string chip(std::string const& fields) {
  return R"({"schema":"naxel-chip","version":1,)" + fields + "}";
}

// One rule per kind of field, small enough that every label is known.
TEST_F(Command, TablesHaveTheDocumentedShape) {
  write("r.json", rules(R"([{"name":"a","af":"ipv4","rules":[
    {"index":20,"name":"second","action":{"dropEnabled":true,"tc":3,"setTcEnabled":true}},
    {"index":10,"name":"first","source":["10.0.0.0/8"],"destination":["1.2.3.4/32"],"dport":80,"proto":6,
     "matchTcpInit":true},
    {"index":30,"name":"never","source":{"except":["10.0.0.0/8"]}}]}])"));
  write("c.json", chip(R"("chipId":7,"rangeXformWidth":{"dstPort":4,"srcPort":0},
                          "comboXformWidth":{"ipv6SrcDstPrefix":5})"));
  Outcome const o = run("compile --json --chip c.json r.json");
  ASSERT_EQ(o.code, 0) << o.err;
  EXPECT_EQ(o.out,
            R"({"schema":"naxel-tables","version":1,"chip":7,
 "kick":{"progress":"naxelFinishedSuccess","message":"","count":1},
 "widths":{"prefix":{"ipv4Src":16,"ipv4Dst":16,"ipv6Src":16,"ipv6Dst":16},"range":{"dstPort":4},"combo":{"ipv6SrcDstPrefix":5}},
 "tables":{
  "prefix":{
   "ipv4Src":[
    {"prefix":"10.0.0.0/8","label":0}],
   "ipv4Dst":[
    {"prefix":"1.2.3.4/32","label":0}],
   "ipv6Src":[],
   "ipv6Dst":[]},
  "range":{
   "srcPort":[],
   "dstPort":[
    {"first":80,"last":80,"label":0}],
   "icmp":[],
   "proto":[],
   "length":[],
   "fragment":[],
   "dscp":[]},
  "combo":{
   "ipv4SrcDstPrefix":[],
   "ipv6SrcDstPrefix":[],
   "srcDstL4Port":[]},
  "acl":[
   {"name":"a","af":"ipv4","rules":[
    {"index":10,"name":"first","action":{"dropEnabled":false,"logEnabled":false,"dscp":0,"setDscpEnabled":false,"tc":8,"setTcEnabled":false,"sflowEnabled":false},"entries":[
     {"source":{"label":0,"mask":65535},"destination":{"label":0,"mask":65535},"dport":{"label":0,"mask":15},"proto":{"label":6,"mask":255},"matchTcpInit":true}]},
    {"index":20,"name":"second","action":{"dropEnabled":true,"logEnabled":false,"dscp":0,"setDscpEnabled":false,"tc":3,"setTcEnabled":true,"sflowEnabled":false},"entries":[
     {}]},
    {"index":30,"name":"never","action":{"dropEnabled":false,"logEnabled":false,"dscp":0,"setDscpEnabled":false,"tc":8,"setTcEnabled":false,"sflowEnabled":false},"entries":[]}]}]}}
)");
}

TEST_F(Command, EqualInputGivesEqualBytes) {
  std::string const inputs = examples + "/edge.json " + examples + "/branch.rules";
  Outcome const first = run("compile --json --chip " + examples + "/combo-chip.json " + inputs);
  Outcome const second =
      run("compile --json -o t.json --chip " + examples + "/combo-chip.json " + inputs);
  ASSERT_EQ(first.code, 0) << first.err;
  EXPECT_GT(first.out.size(), 1000u);
  EXPECT_EQ(second.out, "");
  EXPECT_EQ(read("t.json"), first.out);
}

TEST_F(Command, ExamplesVerifyOnBothChips) {
  std::string const inputs = examples + "/edge.json " + examples + "/branch.rules";
  Outcome const plain = run("verify --packets 3000 --seed 5 " + inputs);
  EXPECT_EQ(plain.code, 0) << plain.out << plain.err;
  Outcome const o = run("verify --packets 3000 --chip " + examples + "/combo-chip.json " + inputs);
  EXPECT_EQ(o.code, 0) << o.out << o.err;
  EXPECT_NE(o.out.find("edge-in6: "), std::string::npos);
  EXPECT_NE(o.out.find("total: 3000 packets, 0 differences"), std::string::npos);
  EXPECT_EQ(
      o.out,
      run("verify --packets 3000 --seed 1 --chip " + examples + "/combo-chip.json " + inputs).out);
}

TEST_F(Command, VerifyProvesWhereTheBuildCan) {
  Outcome const o = run("verify --exact --packets 0 " + examples + "/edge.json");
#if NAXEL_EXACT_PROOF
  EXPECT_EQ(o.code, 0) << o.err;
  EXPECT_NE(o.out.find("proved for every packet: 3 ACLs, 27 rules, "), std::string::npos) << o.out;
#else
  EXPECT_EQ(o.code, 2);
  EXPECT_NE(o.err.find("this build cannot prove"), std::string::npos) << o.err;
#endif
}

TEST_F(Command, SummaryCountsEntriesBitsAndCrossProduct) {
  write("r.json", rules(R"([{"name":"a","af":"ipv4","rules":[
    {"index":1,"name":"x","source":["1.0.0.0/8","3.0.0.0/8"],"dport":"1-65534"},
    {"index":2,"name":"y","sport":"1-65534"}]}])"));
  Outcome const o = run("compile r.json");
  ASSERT_EQ(o.code, 0) << o.err;
  std::istringstream lines(o.out);
  std::vector<std::vector<std::string>> rows;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    rows.emplace_back(std::istream_iterator<std::string>(words),
                      std::istream_iterator<std::string>());
  }
  using Row = std::vector<std::string>;
  EXPECT_EQ(rows.at(1), (Row{"a", "ipv4", "2", "2", "1.000", "90"}));
  // One bit for each of the three fields that have a single label.
  EXPECT_EQ(rows.at(4), (Row{"a", "ipv4", "3", "6", "9360", "0.1"}));
  EXPECT_NE(o.out.find("handshake: hitless, loaded"), std::string::npos);
  write("c.json", chip(R"("permitDuringUpdate":true,"softChip":{"forceHitful":true})"));
  EXPECT_NE(run("compile --chip c.json r.json").out.find("policy permitAll"), std::string::npos);
}

TEST_F(Command, ReadsGzipAndNamesTheAclAfterTheFile) {
  std::string const set = readFile(examples + "/branch.rules");
  gzFile const packed = gzopen((directory_ / "branch.rules.gz").c_str(), "wb");
  gzwrite(packed, set.data(), static_cast<unsigned>(set.size()));
  gzclose(packed);
  EXPECT_EQ(tables("branch.rules.gz"), tables(examples + "/branch.rules"));
  EXPECT_EQ(tables("branch.rules.gz")["tables"]["acl"][0]["name"], "branch.rules");
  Outcome const clash = run("compile branch.rules.gz " + examples + "/branch.rules");
  EXPECT_EQ(clash.code, 2);
  EXPECT_NE(clash.err.find(examples + "/branch.rules: error: ACL 'branch.rules' stands in "
                                      "branch.rules.gz already"),
            std::string::npos)
      << clash.err;
  std::string const bytes = read("branch.rules.gz");
  write("cut.gz", bytes.substr(0, bytes.size() / 2));
  EXPECT_EQ(run("compile cut.gz").err, "cut.gz: error: unexpected end of the compressed data\n");
}

TEST_F(Command, SaysOnceHowManyFlagsWereNotUsed) {
  std::string const line = "@1.0.0.0/8 2.0.0.0/8 0 : 65535 80 : 80 0x06/0xff ";
  write("s", line + "0x0200/0x1200\n" + line + "0x0000/0x0000\n" + line + "0x1000/0x1000\n");
  EXPECT_EQ(run("compile s").err, "s: note: 2 rules carry flags that are not used\n");
  Outcome const strict = run("compile --flags strict s");
  EXPECT_EQ(strict.code, 2);
  EXPECT_EQ(strict.err, "s:3: error: a rule cannot say these flags\n");
  EXPECT_EQ(strict.out, "");
}

TEST_F(Command, BadInputExitsWith2) {
  write("a.json", rules(R"([{"name":"a","af":"ipv4","rules":[]}])"));
  write("blank", " \n\n");
  write("text", "\n  permit ip any any\n");
  struct Case {
    std::string arguments;
    char const* err;
  };
  Case const cases[] = {
      {"compile none.json", "none.json: error: No such file or directory\n"},
      {"compile .", ".: error: Is a directory\n"},
      {"compile blank", "blank: error: the file is empty\n"},
      {"compile text", "text:2:3: error: rules begin with '@' (ClassBench) or '{' (JSON)\n"},
      {"compile --format json text",
       "text:2:3: error: syntax error while parsing value - invalid literal\n"},
      {"compile --format classbench a.json",
       "a.json:1: error: expected '@' before "
       "'{\"schema\":\"naxel-rules\",\"version\":1,\"acls\":[{\"name\":\"a\",\"af\":\"ipv4\","
       "\"rules\":[]}]}'\n"},
      {"compile --chip a.json a.json", "a.json:1:11: error: 'schema' must be \"naxel-chip\"\n"},
      {"compile a.json a.json", "a.json:1:53: error: duplicate ACL 'a'\n"},
      {"compile -o no/where a.json",
       "naxel: error: no/where: cannot be written: No such file or directory\n"},
      {"classify --src 1.2.3 --dst 1.2.3.4 a.json", "naxel: error: '1.2.3' is not an address\n"},
      {"classify --src ::1 --dst 1.2.3.4 a.json",
       "naxel: error: the addresses are of different families\n"},
      {"classify --src 1.2.3.4 --dst 1.2.3.4 --acl b a.json",
       "naxel: error: there is no ACL 'b'\n"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.arguments);
    Outcome const o = run(c.arguments);
    EXPECT_EQ(o.code, 2);
    EXPECT_EQ(o.err, c.err);
  }
  for (char const* arguments :
       {"", "compile", "verify --packets -1 a.json", "compile --format xml a.json", "brew a.json",
        "classify --src 1.1.1.1 --dst 1.1.1.1 --dscp 64 a.json"})
    EXPECT_EQ(run(arguments).code, 2) << arguments;
}

TEST_F(Command, FailedKickExitsWith3AndKeepsTheOldFile) {
  write("r.json", rules(R"([{"name":"a","af":"ipv4","rules":[
    {"index":1,"name":"x","source":["1.0.0.0/8"]},{"index":2,"name":"y","source":["2.0.0.0/8"]},
    {"index":3,"name":"z","source":["3.0.0.0/8"]}]}])"));
  write("t.json", "old");
  struct Case {
    char const* chip;
    char const* message;
    char const* reason;
  };
  Case const cases[] = {
      {R"("prefixXformWidth":{"ipv4Src":1})", "Naxel failed at stagePrefixXform on chip 0",
       "ipv4Src: "},
      {R"("chipId":9,"softChip":{"capacity":{"v4Source":2},"answerAfterTicks":3})",
       "Naxel failed at stageLoader on chip 9", "v4Source: 3 entries needed, 2 available"},
      {R"("softChip":{"refuseAcquires":1,"refuseTable":"dscp"})",
       "Naxel failed at stageLoader on chip 0", ""},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.chip);
    write("c.json", chip(c.chip));
    Outcome const o = run("compile --json -o t.json --chip c.json r.json");
    EXPECT_EQ(o.code, 3);
    EXPECT_EQ(o.out, "");
    EXPECT_EQ(o.err.substr(0, o.err.find('\n')), c.message);
    EXPECT_NE(o.err.find(c.reason), std::string::npos) << o.err;
    EXPECT_EQ(read("t.json"), "old");
  }
  EXPECT_EQ(run("compile -o t.json r.json").code, 0);
  EXPECT_TRUE(Json::accept(read("t.json")));
  size_t files = 0;
  for (auto const& entry : fs::directory_iterator(directory_)) files += entry.is_regular_file();
  EXPECT_EQ(files, 5u) << "a temporary file was left behind";
}

TEST_F(Command, ClassifyGivesTheReason) {
  Outcome const o =
      run("classify --src 192.0.2.100 --dst 203.0.113.5 --proto 6 --sport 50000 --dport 22 "
          "--tcp syn --acl edge-in " +
          examples + "/edge.json");
  EXPECT_EQ(o.code, 0) << o.err;
  EXPECT_NE(
      o.out.find("edge-in: rule 80 'ssh': permit, log, set dscp 16\n"
                 "  because  source lies in 192.0.2.0/24 and not in the except prefix\n"
                 "           destination lies in 203.0.113.0/24 and not in the except prefix\n"
                 "           dport 22\n"
                 "           proto 6\n"),
      std::string::npos)
      << o.out;
  EXPECT_NE(run("classify --src 192.0.2.200 --dst 203.0.113.5 --proto 6 --dport 22 --tcp syn " +
                examples + "/edge.json")
                .out.find("edge-in: rule 1000 'rest': drop, log"),
            std::string::npos);
}

}  // namespace
