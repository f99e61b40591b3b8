#pragma once

/// The handshake with a driver, played by hand step by step, and what the library traces meanwhile.

#include "mox/Trace.h"
#include "naxel/loader/NaxelLoaderSm.h"
#include "naxel/types/NaxelTrace.h"
#include "support/Fresh.h"
#include "support/Told.h"

#include <algorithm>
#include <sstream>

namespace Test {

using Log = std::vector<std::string>;
inline constexpr auto running = Naxel::NaxelProgress::naxelRunning;
inline constexpr auto success = Naxel::NaxelProgress::naxelFinishedSuccess;
inline constexpr auto failure = Naxel::NaxelProgress::naxelFinishedFail;
inline constexpr auto denyAll = Naxel::GlobalAclControl::denyAll;
inline constexpr auto permitAll = Naxel::GlobalAclControl::permitAll;
inline constexpr auto doNotApply = Naxel::GlobalAclControl::doNotApply;

inline constexpr char firstRules[] = "edge 10 r src 10.0.0.0/8 dport 80";
inline constexpr char secondRules[] = "edge 10 r src 11.0.0.0/8 dport 80\nedge 20 s dport 443 drop";
inline constexpr char thirdRules[] = "edge 10 r src 12.0.0.0/8";

/// The lines that are traced as long as it lives, up to a level.
class Traced {
 public:
  explicit Traced(int level = 0)
      : sink_(Mox::traceSinkIs([this](Mox::TraceFacility const&, int, std::string const& text) {
          lines.push_back(text);
        })) {
    Naxel::naxelTrace().levelIs(level);
  }
  ~Traced() {
    Naxel::naxelTrace().levelIs(0);
    Mox::traceSinkIs(sink_);
  }
  /// How many lines contain a text.
  long count(std::string const& text) const {
    return std::ranges::count_if(
        lines, [&](auto const& line) { return line.find(text) != std::string::npos; });
  }
  std::vector<std::string> lines;

 private:
  Mox::TraceSink sink_;
};

/// Does something at the notification of that number, from 1.
template <class Base>
class At {
 public:
  At(int number, Mox::Entity& watched, std::function<void()> const& act)
      : left_(number), told_(&watched, [this, act] {
          if (--left_ == 0) act();
        }) {}
  /// How many notifications are missing; negative for those after that one.
  int left() const { return left_; }

 private:
  int left_;
  Told<Base> told_;
};

/// A world whose driver answers and confirms by hand only.
struct ByHand : World {
  explicit ByHand(char const* rules = firstRules) : World(rules) { manual(); }
  void manual() { driver.automatic = driver.confirms = false; }
  /// A kick that the driver answers at once; then by hand again.
  Mox::Ptr<Naxel::PDData const> loadedAtOnce() {
    driver.automatic = driver.confirms = true;
    EXPECT_EQ(kick(), success);
    manual();
    driver.log.clear();
    return pdConfig->currPDData();
  }
  Mox::Seconds id() const { return pdConfig->pdResourceConfig().requestId(); }
  Naxel::NaxelProgress say(Naxel::ResponseState state, Mox::Seconds toRequest = 0) {
    driver.answerAll(Naxel::ResourceStatus(toRequest ? toRequest : id(), state));
    return run();
  }
  Naxel::NaxelProgress one(Naxel::PDTable table, Naxel::ResponseState state) {
    tableStatusIs(*pdStatus, table, Naxel::ResourceStatus(id(), state));
    return run();
  }
  Naxel::NaxelProgress acl(Naxel::ResponseState state) {
    return one(Naxel::PDTable::aclEntries, state);
  }
  Naxel::NaxelProgress confirm() {
    driver.confirmPolicy();
    return run();
  }
  /// Confirms if what was asked for last is a policy.
  Naxel::NaxelProgress obey() {
    std::string const last = driver.log.empty() ? "" : driver.log.back();
    return last == "denyAll" || last == "permitAll" || last == "doNotApply" ? confirm() : run();
  }
  Naxel::NaxelProgress report(Naxel::GlobalAclControl policy) {
    pdStatus->globalAclControlIs(policy);
    return run();
  }
  /// What has been asked for, without a policy that is in force anyway.
  Log askedBut(Naxel::GlobalAclControl policy) const {
    Log asked = driver.log;
    std::erase(asked, Mox::stringValue(policy));
    return asked;
  }
  /// Answers an acquire, and everything that follows from that.
  Naxel::NaxelProgress finish(Naxel::ResponseState answer) {
    say(answer);
    obey();
    say(answer == Naxel::ResponseState::failed ? Naxel::ResponseState::reverted
                                               : Naxel::ResponseState::loaded);
    return obey();
  }
  /// Plays words one after the other: "kick", "cancel"; "hitful" is the answer of all tables, "hitful-1" to the id before,
  /// "acl:hitful" and "tcp:hitful" that of one; "confirm", "own:denyAll" are about the policy.
  Naxel::NaxelProgress play(std::string const& script) {
    std::istringstream words(script);
    for (std::string word; words >> word;) {
      auto const colon = word.find(':') + 1;
      auto const sign = word.find_first_of("+-");
      std::string const what = word.substr(colon, sign - colon);
      auto const answer = Mox::instanceFromText<Naxel::ResponseState>(what);
      auto const policy = Mox::instanceFromText<Naxel::GlobalAclControl>(what);
      if (word == "kick")
        kick();
      else if (word == "cancel")
        request(Naxel::NaxelKickRequest::naxelCancel), run();
      else if (word == "confirm")
        confirm();
      else if (policy)
        report(*policy);
      else if (!answer)
        ADD_FAILURE() << word;
      else if (colon)
        one(word[0] == 't' ? Naxel::PDTable::tcpFlags : Naxel::PDTable::aclEntries, *answer);
      else
        say(*answer, sign == word.npos ? 0 : id() + (word[sign] == '+' ? 1 : -1));
    }
    return run();
  }
  Naxel::LoaderStatus const& loader() const { return *root->loaderStatus(); }
};

}  // namespace Test
