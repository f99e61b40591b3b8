#pragma once

/// The program as its users run it, for tests: calls in a folder of their own, and what they leave there.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <sys/wait.h>

#include <gtest/gtest.h>

namespace Test {

namespace fs = std::filesystem;

/// A call of the program and what is to come of it.
struct Call {
  std::string arguments;
  int code;
  std::string err;
  std::string out = {};  ///< a part
};

/// A directory of its own for each test, in which the program runs; ex/ has the examples.
class CommandRun : public testing::Test {
 protected:
  CommandRun() {
    std::string pattern = (fs::temp_directory_path() / "naxel-XXXXXX").string();
    directory_ = mkdtemp(pattern.data());
    fs::create_directory_symlink(NAXEL_EXAMPLES_DIR, directory_ / "ex");
    fs::create_directory_symlink(NAXEL_EXAMPLES_DIR, directory_ / "examples");
  }
  ~CommandRun() override { fs::remove_all(directory_); }

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

  /// What a shell returns for some lines, in which $N is the program.
  int shell(std::string const& lines) {
    std::string const whole =
        "cd '" + directory_.string() + "' && N='" NAXEL_TOOL_PATH "' && { " + lines + "\n}";
    int const status = std::system(whole.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  /// Returns what the program has printed.
  std::string expectCall(Call const& c) {
    SCOPED_TRACE(c.arguments);
    EXPECT_EQ(shell("\"$N\" >.out 2>.err </dev/null " + c.arguments), c.code);
    std::string const out = read(".out");
    std::string const err = read(".err");
    if (c.err.ends_with('*'))
      EXPECT_TRUE(err.starts_with(c.err.substr(0, c.err.size() - 1))) << err;
    else
      EXPECT_EQ(err, c.err);
    EXPECT_NE(out.find(c.out), std::string::npos) << out;
    EXPECT_TRUE(c.code == 0 || c.err == "*" || !c.out.empty() || out.empty()) << out;
    return out;
  }
  std::set<std::string> files() {
    std::set<std::string> out;
    for (auto const& file : fs::directory_iterator(directory_)) out.insert(file.path().filename());
    return out;
  }

  fs::path directory_;
};

}  // namespace Test
