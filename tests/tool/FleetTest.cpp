// Folders of rule files: a process and a line for each of them.

#include "command/Devices.h"
#include "support/CommandRun.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

class Fleet : public Test::CommandRun {
 protected:
  Fleet() { shell("mkdir -p d/sub d/.hidden"); }

  /// One rule for each of the networks 10.0.1.0/24, 10.0.2.0/24 and so on.
  void writeRules(std::string const& name, int rules = 1) {
    std::string all;
    for (int i = 1; i <= rules; ++i)
      all += (i > 1 ? ",{" : "{") + std::string(R"("index":)") + std::to_string(i) +
             R"(,"name":"r)" + std::to_string(i) + R"(","source":["10.)" + std::to_string(i / 256) +
             "." + std::to_string(i % 256) + R"(.0/24"]})";
    write(name, "naxel-rules", R"("acls":[{"name":"a","af":"ipv4","rules":[)" + all + "]}]");
  }
  /// "FILE:CODE:ERRORS" of each line, without the folder.
  static std::string told(std::string const& out) {
    std::istringstream lines(out);
    std::string all;
    for (std::string line; std::getline(lines, line);) {
      auto const json = nlohmann::json::parse(line);
      all += json["file"].get<std::string>().substr(2) + ":" + json["code"].dump() + ":";
      if (json.contains("messages")) all += json["messages"][0]["text"].get<std::string>();
      EXPECT_EQ(json.contains("result"), json["code"] == 0) << line;
      all += "\n";
    }
    return all;
  }
};

TEST_F(Fleet, ALineForEachFileInTheOrderOfPaths) {
  for (char const* name :
       {"d/sub/a", "d/sub.json", "d/a", "d/\xff", "d/-x", "d/.no", "d/.hidden/no"})
    writeRules(name);
  write("d/broken", " ");
  EXPECT_EQ(
      shell("ln -s ../d d/loop; ln -s ../a.json d/link; ln -s nothing d/dangling; mkfifo d/fifo; "
            "mkdir d/empty; cp d/a a.json"),
      0);
  auto const call = [](int jobs) { return "compile --jobs " + std::to_string(jobs) + " d"; };
  std::string const said =
      "naxel: note[fleet]: 8 devices: 6 fine, 0 with findings, 2 with errors; passed over: 2 "
      "things that are no "
      "files\n";
  std::string const out = expectCall({call(3), 2, "*"});
  EXPECT_EQ(read(".err"), said);
  EXPECT_EQ(told(out),
            "-x:0:\na:0:\nbroken:2:the file is empty\ndangling:2:No such file or "
            "directory\nlink:0:\nsub.json:0:\nsub/a:0:\n"
            "\xEF\xBF\xBD:0:\n");
  EXPECT_EQ(expectCall({call(1), 2, "*"}), out) << "the lines depend on the number of processes";
  EXPECT_EQ(told(expectCall({"compile d/sub a.json d/sub/a", 0, "*"})), "json:0:\nsub/a:0:\n");
  expectCall({"compile d/empty", 2, "naxel: error[usage]: there are no files below the folder\n"});
  // Options reach the processes as they stand; what is wrong with them is told once.
  expectCall(
      {"explain --src 10.0.1.1 --dst=1.1.1.1 --dport 1 --why-not=a:1 -q --fragments plain d/sub", 0,
       "", R"("decides":true)"});
  expectCall({"explain --dport x d", 2, "naxel: error[usage]: --dport: 'x' is not*"});
}

TEST_F(Fleet, WhatOneFileDoesCostsItsLine) {
  writeRules("d/a");
  writeRules("d/z", 60000);
  std::string const slow =
      expectCall({"verify --packets 100000000 --timeout 1 --jobs 2 d/a", 2, "*"});
  EXPECT_EQ(slow, "");  // no folder
  EXPECT_EQ(told(expectCall({"verify --packets 400000000 --timeout 1 --jobs 2 d", 70, "*"})),
            "a:70:took longer than 1 s, and was ended\nz:70:took longer than 1 s, and was ended\n");
#if !defined(__SANITIZE_ADDRESS__)  // which takes more than any such limit by itself
  EXPECT_EQ(shell("ulimit -v 100000; $N compile d >.out 2>.err"), 70);
  EXPECT_TRUE(told(read(".out")).starts_with("a:0:\nz:70:")) << read(".out");
#endif
  // A signal that ends the run ends the processes.
  for (int const number : {2, 15, 9}) {
    std::string const signal = std::to_string(number);
    std::string const left = "grep -lsz '^--seed=77" + signal + "$' /proc/[0-9]*/cmdline";
    EXPECT_EQ(shell("env --default-signal $N verify --packets 400000000 --seed 77" + signal +
                    " d >.out 2>.err & p=$!\nuntil " + left + " >.list; do :; done\nkill -" +
                    signal + " $p; wait $p"),
              128 + number);
    EXPECT_EQ(shell("for i in 1 2 3 4 5 6 7 8 9; do " + left +
                    " >.list || exit 0; sleep .1; done; exit 1"),
              0);
  }
}

TEST_F(Fleet, TwoFoldersArePairedByThePathsBelowThem) {
  shell("mkdir -p old/s new/s; touch old/a new/a old/s/b new/s/b old/s/c new/d new/.e");
  std::string told;
  std::string const at = directory_.string() + "/";
  size_t passedOver = 0;
  for (auto const& d : NaxelTool::devicePairs(at + "old", at + "new/", passedOver)) {
    told += d.name + ":";
    for (std::string const& file : d.files) told += " " + file.substr(at.size());
    told += " " + d.trouble.substr(0, d.trouble.find(" /")) + "\n";
  }
  EXPECT_EQ(told,
            "a: old/a new/a \nd: new/d there is none in\ns/b: old/s/b new/s/b \n"
            "s/c: old/s/c there is none in\n");
  shell("rm -r old new; mkdir -p old/s new/s");
  writeRules("old/a");
  writeRules("new/a", 2);
  writeRules("old/s/same");
  writeRules("new/s/same");
  std::string const out = expectCall({"diff --no-rows old new", 1, "*"});
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 2);
  EXPECT_NE(out.find(R"("file":"s/same","code":0)"), std::string::npos) << out;
}

TEST_F(Fleet, ASearchHasFoundWhatOneDeviceHas) {
  writeRules("d/a");
  writeRules("d/sub/b", 2);
  auto const search = [](std::string const& what) { return "search --in '" + what + "' d"; };
  expectCall({search("ip 10.0.2.0/24 > any"), 0, "*"});
  EXPECT_EQ(read(".err"),
            "naxel: note[fleet]: 2 devices: 1 with such a packet, 1 without, 0 with errors\n");
  expectCall({search("ip 10.0.3.0/24 > any"), 1, "*"});
  write("d/broken", " ");
  expectCall({search("ip 10.0.2.0/24 > any"), 2, "*"});
}

TEST_F(Fleet, ABrokenRunIsTakenUpAgain) {
  for (char const* name : {"d/a", "d/b", "d/c"}) writeRules(name);
  write("d/broken", " ");
  writeRules("chip");
  std::string const call = "compile --chip chip.json --resume log d";
  write("chip.json", "naxel-chip", R"("chipId":1)");
  auto const expectRun = [&](std::string const& known, std::string const& out) {
    EXPECT_EQ(expectCall({call, 2, "*"}), out);
    EXPECT_EQ(read(".err"),
              "naxel: note[fleet]: 4 devices: 3 fine, 0 with findings, 1 with errors; " + known +
                  " of them were known\n");
  };
  std::string const out = expectCall({"compile --chip chip.json d", 2, "*"});
  expectRun("0", out);
  std::string const log = read("log");
  expectRun("4", out);
  EXPECT_EQ(read("log"), log);
  // What somebody else has put into it becomes no line of ours, and no code.
  size_t const head = log.find('\n') + 1;
  size_t const at = log.rfind('\n', log.find(R"("file":"d/a")")) + 1;
  std::string const line = log.substr(at, log.find('\n', at) - at);
  std::string const front = line.substr(0, line.find("0,\"device\":"));
  std::string const device = line.substr(front.size() + 11, line.size() - front.size() - 12);
  for (std::string const& crafted :
       {std::string("0,\"device\":{\"x\":1}}"), std::string("0,\"device\":7}"),
        "0,\"device\":" + std::string(100000, '[') + "}", "1,\"device\":" + device + "}",
        "700,\"device\":" + device + "}", "0,\"device\":" + device + ",\"more\":{}}"}) {
    SCOPED_TRACE(crafted.substr(0, 99));
    write("log", log.substr(0, head) + front + crafted + "\n");
    expectRun("0", out);
  }
  write("log", log.substr(0, head) + front + "0,\"device\":" + device + "}\n");
  expectRun("1", out);
  // Wherever a crash has cut the file off, the whole lines before it count.
  for (size_t size = 0; size <= log.size(); size += std::max<size_t>(1, log.size() / 13)) {
    SCOPED_TRACE(size);
    write("log", log.substr(0, size));
    auto const lines =
        std::count(log.begin(), log.begin() + static_cast<std::ptrdiff_t>(size), '\n');
    expectRun(std::to_string(lines ? lines - 1 : 0), out);
    std::string again = read("log");
    EXPECT_EQ(std::count(again.begin(), again.end(), '\n'), 5);
  }
  // A file that is written again is looked at again, as are all once something else is asked for.
  EXPECT_EQ(shell("cp d/a d/b"), 0);
  expectRun("3", out);
  for (char const* other :
       {"compile --resume log d", "compile --chip chip.json --resume log d/a d/b d/."}) {
    expectCall({other, 2, "log: error[input]: is of another command line, version or input*"});
  }
  write("chip.json", "naxel-chip", R"("chipId":2)");
  expectCall({call, 2, "log: error[input]: is of another*"});
  write("log", "kept\n");
  expectCall({call, 2, "log: error[input]: is of another*"});
  EXPECT_EQ(read("log"), "kept\n");
  // A log below the folder is none of its files.
  EXPECT_EQ(told(expectCall({"compile --resume d/log d", 2, "*"})),
            told(expectCall({"compile --resume d/log d", 2, "*"})));
}

}  // namespace
