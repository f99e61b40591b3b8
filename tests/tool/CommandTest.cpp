// The program as its users run it: output, exit codes, files.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <zlib.h>

namespace {

namespace fs = std::filesystem;

/// A call of the program and what is to come of it.
struct Call {
  std::string arguments;
  int code;
  std::string err;
  std::string out = {};  ///< a part
};

/// A directory of its own for each test, in which the program runs; ex/ has the examples.
class Command : public testing::Test {
 protected:
  Command() {
    std::string pattern = (fs::temp_directory_path() / "naxel-XXXXXX").string();
    directory_ = mkdtemp(pattern.data());
    fs::create_directory_symlink(NAXEL_EXAMPLES_DIR, directory_ / "ex");
  }
  ~Command() override { fs::remove_all(directory_); }

  void write(std::string const& name, std::string const& content) {
    std::ofstream(directory_ / name, std::ios::binary) << content;
  }
  void write(std::string const& name, std::string const& schema, std::string const& fields) {
    write(name, R"({"schema":")" + schema + R"(","version":1,)" + fields + "}");
  }
  std::string read(std::string const& name) {
    std::ifstream in(directory_ / name, std::ios::binary);
    return (std::ostringstream() << in.rdbuf()).str();
  }

  /// Returns what the program has printed.
  std::string expectCall(Call const& c) {
    SCOPED_TRACE(c.arguments);
    std::string const line = "cd '" + directory_.string() + "' && '" NAXEL_TOOL_PATH "' " +
                             c.arguments + " >.out 2>.err </dev/null";
    int const status = std::system(line.c_str());
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == c.code) << status;
    std::string const out = read(".out");
    if (c.err != "*") {
      EXPECT_EQ(read(".err"), c.err);
    }
    EXPECT_NE(out.find(c.out), std::string::npos) << out;
    EXPECT_TRUE(c.code == 0 || c.err == "*" || out.empty()) << out;
    return out;
  }

  fs::path directory_;
};

// The documents show whole outputs, and are compared with the program; here is what they leave out.
TEST_F(Command, CodeAndMessageOfEveryOutcome) {
  write("a", "naxel-rules", R"("acls":[{"name":"a","af":"ipv4","rules":[]}])");
  write("three", "naxel-rules", R"("acls":[{"name":"a","af":"ipv4","rules":[
    {"index":1,"name":"x","source":["1.0.0.0/8"]},{"index":2,"name":"y","source":["2.0.0.0/8"]},
    {"index":3,"name":"z","source":["3.0.0.0/8"]}]}])");
  write("late", "naxel-rules", R"("acls":[{"name":"a","af":"ipv4","rules":[
    {"index":20,"name":"second","action":{"dropEnabled":true,"tc":3,"setTcEnabled":true}},
    {"index":10,"name":"never","source":{"except":["10.0.0.0/8"]}}]}])");
  write("seven", "naxel-chip", R"("chipId":7,"rangeXformWidth":{"dstPort":4,"srcPort":0},
                        "comboXformWidth":{"ipv6SrcDstPrefix":5})");
  write("hitful", "naxel-chip", R"("permitDuringUpdate":true,"softChip":{"forceHitful":true})");
  write("narrow", "naxel-chip", R"("prefixXformWidth":{"ipv4Src":1})");
  write("small", "naxel-chip",
        R"("chipId":9,"softChip":{"capacity":{"v4Source":2},"answerAfterTicks":3})");
  write("blank", " \n\n");
  write("text", "\n  permit ip any any\n");
  write("set",
        "@1.0.0.0/8 0.0.0.0/0 0 : 65535 0 : 65535 0x00/0x00\n"
        "@0.0.0.0/0 0.0.0.0/0 0 : 65535 0 : 65535 0x00/0x00\n");
  write("trace", "# drawn from the first rule\n16777216 1 2 3 6 0\n33554432 1 2 3 6 0 0\n");
  write("table", "old");
  fs::create_hard_link(directory_ / "table", directory_ / "kept");
  auto const files = [&] {
    return std::distance(fs::directory_iterator(directory_), fs::directory_iterator());
  };
  auto const before = files();

  Call const calls[] = {
    {"compile --chip hitful three", 0, "", "hitful, policy permitAll while loading; loaded\n"},
    {"compile --json --chip seven late", 0, "",
     R"("chip":7,
 "kick":{"progress":"naxelFinishedSuccess","message":"","count":1},
 "widths":{"prefix":{"ipv4Src":16,"ipv4Dst":16,"ipv6Src":16,"ipv6Dst":16},"range":{"dstPort":4},"combo":{"ipv6SrcDstPrefix":5}},)"},
    {"compile --json late", 0, "", R"(
    {"index":10,"name":"never","action":{"dropEnabled":false,"logEnabled":false,"dscp":0,"setDscpEnabled":false,"tc":8,"setTcEnabled":false,"sflowEnabled":false},"entries":[]},
    {"index":20,"name":"second","action":{"dropEnabled":true,"logEnabled":false,"dscp":0,"setDscpEnabled":false,"tc":3,"setTcEnabled":true,"sflowEnabled":false},"entries":[
     {}]}]}]}}
)"},
    {"verify --packets 3000 --chip ex/combo-chip.json ex/edge.json ex/branch.rules", 0,
     "ex/branch.rules: note[unused-flags]: 5 rules carry flags that are not used\n",
     "\nedge-in6: "},
    {"classify --src 192.0.2.9 --dst 203.0.113.5 --acl edge-out ex/edge.json", 0, "",
     "fragment 0 dscp 0\nedge-out: rule 50 'rest': drop, sflow\n"},
    {"classify --packets trace set", 1, "*",
     "trace:3: set: rule 1 'r1': permit (set:2); the trace says: rule 0 or before it\n"},
    {"classify --packets trace --packets - --acl edge-in ex/edge.json", 1, "*",
     "total: 2 packets read, 2 classified, 0 left out, 0 differences\n"},
    {"classify --json --packet 'a: udp 1.2.3.4:53 > 1.2.3.4:53' a", 0, "",
     "\"verdicts\":[\n  {\"acl\":\"a\",\"verdict\":\"none\"}],\n \"differences\":0}\n"},
    {"classify --packets text a", 2,
     "text:2:3: error[unknown-protocol]: there is no protocol 'permit'\n    2 |   permit ip any "
     "any\n"
     "      |   ^~~~~~ other protocols than tcp, udp, sctp and icmp are written 'proto N'\n"},
    {"classify --packets - -", 2, "naxel: error[usage]: standard input can be read only once\n"},
    {"classify --packets trace --packet-format pcap a", 2,
     "trace: error[capture]: unknown file format\n"},
    {"classify --packets trace --src ::1 a", 2, "*"},
    {"compile none", 2, "none: error[input]: No such file or directory\n"},
    {"compile .", 2, ".: error[input]: Is a directory\n"},
    {"compile blank", 2, "blank: error[input]: the file is empty\n"},
    {"compile text", 2,
     "text:2:3: error[input]: rules begin with '@' (ClassBench) or '{' (JSON)\n"},
    {"compile --format classbench text", 2,
     "text:2: error[syntax]: expected '@' before 'permit ip any any'\n"},
    {"compile --chip a a", 2, "a:1:11: error[input]: 'schema' must be \"naxel-chip\"\n"},
    {"compile -o no/where a", 2,
     "no/where: error[input]: cannot be written: No such file or directory\n"},
    {"classify --src 1.2.3 --dst 1.2.3.4 a", 2, "naxel: error[usage]: '1.2.3' is not an address\n"},
    {"classify --src ::1 --dst 1.2.3.4 a", 2,
     "naxel: error[usage]: the addresses are of different families\n"},
    {"classify --src 1.2.3.4 --dst 1.2.3.4 --acl b a", 2,
     "naxel: error[usage]: there is no ACL 'b'\n"},
    {"classify --src 1.1.1.1 --dst 1.1.1.1 --dscp 64 a", 2, "*"},
    {"verify --packets -1 a", 2, "*"},
    {"compile --format xml a", 2, "*"},
    {"compile", 2, "*"},
    {"brew a", 2, "*"},
    {"", 2, "*"},
    // Nothing is written over, and nothing is left behind.
    {"compile -o table --chip narrow three", 3,
     "naxel: error[kick]: Naxel failed at stagePrefixXform on chip 0\nnaxel: error[kick]: ipv4Src: "
     "IPv4 source address: 3 disjoint "
     "pieces needed, label width 1 has labels for 1\n"},
    {"compile -o table --chip small three", 3,
     "naxel: error[kick]: Naxel failed at stageLoader on chip 9\nnaxel: error[kick]: the driver "
     "refused resources for IPv4 source "
     "prefixes\nnaxel: error[kick]: v4Source: 3 entries needed, 2 available\n"},
#if NAXEL_EXACT_PROOF
    {"verify --exact --packets 0 ex/edge.json", 0, "", "every packet: 3 ACLs, 27 rules, "},
#else
    {"verify --exact --packets 0 a", 2,
     "naxel: error[usage]: this build cannot prove: it was made without the BDD library\n"},
#endif
  };
  for (Call const& c : calls) expectCall(c);
  EXPECT_EQ(read("table"), "old");
  expectCall({"compile -o table three", 0, ""});
  EXPECT_TRUE(nlohmann::json::accept(read("table")));
  EXPECT_EQ(read("kept"), "old") << "written over instead of replaced";
  EXPECT_EQ(files(), before + 2) << "more than .out and .err was left behind";
}

TEST_F(Command, EqualInputGivesEqualBytesPackedOrNot) {
  std::string const compile = "compile --json --chip ex/combo-chip.json ex/edge.json ";
  std::string const first = expectCall({compile + "ex/branch.rules", 0, "*"});
  std::string const set = read("ex/branch.rules");
  gzFile const packed = gzopen((directory_ / "branch.rules.gz").c_str(), "wb");
  gzwrite(packed, set.data(), static_cast<unsigned>(set.size()));
  gzclose(packed);
  EXPECT_EQ(expectCall({compile + "-o t branch.rules.gz", 0, "*"}), "");
  EXPECT_EQ(read("t"), first);
  std::string const bytes = read("branch.rules.gz");
  write("cut.gz", bytes.substr(0, bytes.size() / 2));
  expectCall(
      {"compile cut.gz", 2, "cut.gz: error[input]: unexpected end of the compressed data\n"});
  expectCall(
      {"compile branch.rules.gz ex/branch.rules", 2,
       "branch.rules.gz: note[unused-flags]: 5 rules carry flags that are not used\n"
       "ex/branch.rules: error[input]: ACL 'branch.rules' stands in branch.rules.gz already\n"});
}

}  // namespace
