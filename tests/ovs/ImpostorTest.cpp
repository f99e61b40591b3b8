/// The driver over somebody who answers in place of a switch or of its control socket, and what it tells him from.

#include "ovs/Bridge.h"

#include <atomic>
#include <chrono>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

namespace Test {
namespace {

using NaxelOvs::SwitchError;

/// Listens in place of a switch, and answers what is said with the same bytes, so many times in all.
class Impostor {
 public:
  Impostor(std::string const& path, std::string bytes, int answers)
      : listener_(socket(AF_UNIX, SOCK_STREAM, 0)), answers_(answers) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    listen(listener_, 4);
    thread_ = std::thread([this, bytes = std::move(bytes)] {
      for (int fd = 0; (fd = accept(listener_, nullptr, nullptr)) >= 0; close(fd)) serve(fd, bytes);
    });
  }
  /// Whoever speaks with it must have gone before.
  ~Impostor() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
  }
  /// Answers so many more, beginning with what it has kept silent about.
  void more(int answers) { answers_ += answers; }

 private:
  void serve(int fd, std::string const& bytes) {
    for (int asked = 0;;) {
      pollfd p{fd, POLLIN, 0};
      char heard[4096];
      if (poll(&p, 1, 10) > 0) {
        if (recv(fd, heard, sizeof heard, 0) <= 0) return;
        ++asked;
      }
      for (; asked > 0 && answers_ > 0; --asked, --answers_)
        send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
  }

  int listener_;
  std::atomic<int> answers_;
  std::thread thread_;
};

// The control socket is the test's own, which tells when cached flows follow.
TEST(OvsImpostor, ALoadIsAnsweredWhenCachedFlowsFollowIt) {
  if (!Bridge::possible()) GTEST_SKIP() << "the packages of Open vSwitch are not unpacked";
  Bridge bridge;
  auto const acls = small("e 10 r src 10.0.0.0/8 drop");
  NaxelOvs::DriverOptions options = bridge.options();
  options.target.control = bridge.folder() + "/c";
  {
    Impostor control(options.target.control, R"({"id":0,"result":"","error":null})", 1);
    auto const session = agent(acls, options);
    // The first round may have begun before the tables changed.
    while (bridge.flows().empty()) EXPECT_FALSE(session->kick(0.2));
    // What ends now is that kick and not this one.
    EXPECT_FALSE(session->kick(0.2));
    control.more(100);
    kick(*session);
    EXPECT_TRUE(session->driver().lastLoad().cachesFollowed);
  }
  unlink(options.target.control.c_str());
  bridge.tool("ovs-ofctl del-flows br0");
  {
    Impostor control(options.target.control, R"({"id":0,"result":"","error":null})", 1);
    auto const session = agent(acls, options);
    // Flows that go before the load is answered are put back.
    std::thread meanwhile([&] {
      while (bridge.flows().empty()) std::this_thread::yield();
      bridge.tool("ovs-ofctl del-flows br0");
      control.more(100);
    });
    kick(*session);
    meanwhile.join();
    EXPECT_EQ(bridge.flows().size(), session->driver().lastLoad().flows);
  }
  unlink(options.target.control.c_str());
  {
    // So says a switch of several kinds of datapath.
    Impostor const control(options.target.control,
                           R"({"id":0,"result":null,"error":"can't wait on multiple udpifs."})", 9);
    auto const session = agent(small("e 10 r src 12.0.0.0/8 drop"), options);
    kick(*session);
    EXPECT_FALSE(session->driver().lastLoad().cachesFollowed);
  }
}

TEST(OvsImpostor, WhoeverAnswersIsToldFromASwitch) {
  struct Case {
    std::string bytes;
    char const* words;
  };
  using namespace NaxelOvs;
  std::string const hello = encode({wireVersion, MessageType::hello, 1, {}});
  std::string const features =
      encode({wireVersion, MessageType::featuresReply, 2, std::string(24, 'x')});
  std::string const config = encode({wireVersion, MessageType::getConfigReply, 3, {"\0\3\0", 3}});
  for (auto const& [bytes, words] :
       {Case{"HTTP/1.1 400 Bad Request\r\n\r\n", "has been silent"}, Case{"", "has been silent"},
        Case{std::string(16, '\0'), "less than its head"},
        Case{encode({wireVersion, MessageType::error, 1, {"\0\0\0\0", 4}}), "OFPHFC_INCOMPATIBLE"},
        Case{encode({1, MessageType::hello, 1, {}}), "speaks OpenFlow 1.0 at most"},
        Case{encode({wireVersion, MessageType::barrierReply, 1, {}}), "speaks no OpenFlow"},
        Case{hello, "has been silent"},
        Case{hello + encode({wireVersion, MessageType::barrierReply, 2, {}}), "another kind"},
        Case{hello + features + config, "does not tell its settings"},
        Case{hello + features + encode({wireVersion, MessageType::error, 3, {}}),
             "an error without a code"}}) {
    SCOPED_TRACE(words);
    char folder[] = "/tmp/nxovs-XXXXXX";
    ASSERT_TRUE(mkdtemp(folder));
    std::string const path = std::string(folder) + "/s";
    {
      Impostor const impostor(path, bytes, 1);
      try {
        Switch bridge(path, std::chrono::milliseconds(50));
        bridge.fragmentMode();
        ADD_FAILURE() << "taken for a switch";
      } catch (SwitchError const& error) {
        EXPECT_NE(error.text.find(words), std::string::npos) << error.text;
      }
    }
    unlink(path.c_str());
    rmdir(folder);
  }
}

}  // namespace
}  // namespace Test
