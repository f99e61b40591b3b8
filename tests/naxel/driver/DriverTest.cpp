/// What every driver does, over requests that are written by hand and over those of a library; and what differs
/// between two outputs.

#include "naxel/driver/Driver.h"
#include "naxel/driver/TableDiff.h"
#include "support/Handshake.h"
#include "support/Thinning.h"
#include "support/Vocabulary.h"

#include <cctype>
#include <set>
#include <sstream>

namespace Test {
namespace {

using namespace Naxel;

using Rows = std::set<std::string>;

std::string row(auto const&... parts) { return ((valueToStrep(parts) + " ") + ...); }

Rows rowsOf(PDData const& data) {
  Rows rows;
  auto const add = [&](auto const& name, auto const& table) {
    for (auto const& e : table->entry()) rows.insert(row(name, e));
  };
  for (auto const& [key, table] : data.pdPrefixXformEntryColl()) add(key, table);
  for (RangeSetType type : allRangeSetTypes()) add(type, data.rangeColl(type));
  for (ComboLabelSetType type : allComboLabelSetTypes()) add(type, data.comboColl(type));
  for (auto const& [key, acl] : data.pdAclColl()->pdAcl())
    for (auto const& [index, rule] : acl->rule())
      for (PDAclFilter const& f : rule->filter()) rows.insert(row(key, index, f, rule->action()));
  return rows;
}

/// Writes a difference into rows that it has to fit.
void changeRows(TableDiff const& diff, Rows& rows) {
  auto const del = [&](std::string const& r) { EXPECT_EQ(rows.erase(r), 1u) << r; };
  auto const add = [&](std::string const& r) { EXPECT_TRUE(rows.insert(r).second) << r; };
  auto const table = [&](auto const& name, auto const& changes) {
    for (auto const* e : changes.del) del(row(name, *e));
    for (auto const& [was, is] : changes.change) del(row(name, *was)), add(row(name, *is));
    for (auto const* e : changes.add) add(row(name, *e));
  };
  for (auto const& [key, changes] : diff.prefix) table(key, changes);
  for (RangeSetType type : allRangeSetTypes()) table(type, diff.range[static_cast<size_t>(type)]);
  for (ComboLabelSetType type : allComboLabelSetTypes())
    table(type, diff.combo[static_cast<size_t>(type)]);
  for (AclChanges const& acl : diff.acl) {
    auto const all = [&](PDAclRule const& r, auto write) {
      for (PDAclFilter const& f : r.filter()) write(row(acl.key, r.aceIndex(), f, r.action()));
    };
    for (PDAclRule const* r : acl.del) all(*r, del);
    for (PDAclRule const* r : acl.add) all(*r, add);
    for (auto const& [was, is, more, less, otherAction] : acl.change) {
      if (otherAction || diff.otherWidths) {
        all(*was, del), all(*is, add);
        continue;
      }
      for (auto const* f : less) del(row(acl.key, was->aceIndex(), *f, was->action()));
      for (auto const* f : more) add(row(acl.key, is->aceIndex(), *f, is->action()));
    }
  }
}

/// Writes into rows what differs, notes its calls, and answers at once or on command.
class RowDriver : public Driver {
 public:
  RowDriver(Rows& rows, Log& log, Mox::Ptr<PDConfig> config, Mox::Ptr<PDStatus> status)
      : Driver(std::move(config), std::move(status)), rows_(rows), log_(log) {}
  using Driver::answerAll, Driver::confirmPolicy, Driver::reportPolicy;
  bool atOnce = false;
  ResponseState toAcquire = ResponseState::hitless;
  void answer() {
    auto const asked = request();
    if (!asked) return;
    auto const outcome = asked->requestState() == RequestState::load     ? ResponseState::loaded
                         : asked->requestState() == RequestState::revert ? ResponseState::reverted
                                                                         : toAcquire;
    bool const present = asked == config().pdResourceConfig();
    EXPECT_EQ(answerAll(outcome, "full", PDTable::dscp), present);
  }

 private:
  void called(std::string const& what, void (RowDriver::*reply)()) {
    EXPECT_FALSE(std::exchange(inCall_, true)) << what;
    log_.push_back(what);
    if (atOnce) (this->*reply)();
    inCall_ = false;
  }
  void asked(std::string const& what, Offer const& offer) {
    EXPECT_EQ(rows_, rowsOf(*offer.current)) << what;
    if (what == "load") changeRows(TableDiff(*offer.current, *offer.next), rows_);
    EXPECT_EQ(rows_, rowsOf(what == "acquire" ? *offer.current : *offer.next)) << what;
    called(what + valueToStrep(offer.id), &RowDriver::answer);
  }
  void acquire(Offer const& offer) override { asked("acquire", offer); }
  void load(Offer const& offer) override { asked("load", offer); }
  void revert(Offer const& offer) override { asked("revert", offer); }
  void policy(GlobalAclControl v) override {
    called(Mox::stringValue(v), &RowDriver::confirmPolicy);
  }
  void restore(Mox::Ptr<PDData const> const& inForce) override {
    rows_ = rowsOf(*inForce);
    log_.push_back("restore");
  }

  Rows& rows_;
  Log& log_;
  bool inCall_ = false;
};

struct Driven : ByHand {
  Driven() { root = nullptr; }
  Rows rows;
  Log log, ends;
  std::unique_ptr<RowDriver> driver;
  Mox::Ptr<PDData const> loaded = pdConfig->currPDData();
  std::unique_ptr<Pipeline> pipeline;  // none where a library is played by hand

  /// Of the library: "kick", "cancel" and "restart", or by hand "acquire5", a request of that id, and "denyAll". Of the
  /// driver: "hitless", an answer, "hitless5", to that request; "half" an answer; "ok" to a policy; "own", a policy of its own;
  /// "up", "ownUp", "down".
  void step(std::string word) {
    double const number = std::isdigit(word.back()) ? word.back() - '0' : 0;
    if (number > 0) word.pop_back();
    if (word == "kick") pipeline->kick([&](KickResult const& r) { ends.push_back(text(r)); });
    if (word == "cancel") pipeline->cancel();
    if (word == "restart") pipeline->restart();
    if (word == "up" || word == "ownUp")
      driver = std::make_unique<RowDriver>(rows, log, pdConfig, pdStatus);
    if (word.starts_with("own")) driver->reportPolicy(denyAll);
    if (word == "up" || word == "ownUp") driver->start();
    if (word == "down") driver = nullptr;
    if (word == "ok") driver->confirmPolicy();
    if (word == "answer") driver->answer();
    if (word == "half") pdStatus->pdDscpXformEntryStatusIs({id(), ResponseState::failed});
    if (auto const policy = Mox::instanceFromText<GlobalAclControl>(word))
      pdConfig->globalAclControlIs(*policy);
    if (auto const said = Mox::instanceFromText<ResponseState>(word))
      if (!(number > 0 ? driver->answerAll(number, *said) : driver->answerAll(*said)))
        log.push_back("dropped");
    if (auto const state = Mox::instanceFromText<RequestState>(word)) {
      auto const offered = pDDataFactory();
      offered->rangeCollIs(RangeSetType::icmp)
          .entryIs({{1, 2}, EncodedLabel(static_cast<uint16_t>(number))});
      auto const next = *state == RequestState::acquire ? offered
                        : *state == RequestState::load  ? pdConfig->currPDData()
                                                        : loaded;
      pdConfig->requestIs(loaded, next, {number, *state});
      if (*state == RequestState::load) loaded = next;
    }
  }
};

TEST(DriverTest, RequestsAndPoliciesAreWorkedOffInTheirOrder) {
  struct Case {
    char const* steps;
    char const* calls;
    char const* end;  // what the tables say, and the policy
  };
  Case const cases[] = {
      {"up acquire5 hitful denyAll ok load5 loaded doNotApply ok",
       "acquire5 denyAll load5 doNotApply", "5:loaded doNotApply"},
      // A newer request supersedes an acquire or a revert, and never a load.
      {"up acquire5 acquire6 hitful5 hitless6", "acquire5 acquire6 dropped",
       "6:hitless doNotApply"},
      {"up acquire5 failed revert5 acquire6 reverted hitless", "acquire5 revert5 acquire6 dropped",
       "6:hitless doNotApply"},
      {"up acquire5 hitless load5 acquire6", "acquire5 load5", "5:hitless doNotApply"},
      {"up acquire5 hitless load5 acquire6 loaded", "acquire5 load5 acquire6 dropped",
       "5:hitless doNotApply"},
      {"up acquire5 hitless load5 acquire6 loaded hitless load6 loaded loaded",
       "acquire5 load5 acquire6 dropped load6 dropped", "6:loaded doNotApply"},
      // Neither load nor revert begins before a policy is confirmed, be it taken back meanwhile.
      {"up denyAll doNotApply acquire5 failed revert5 ok ok reverted",
       "denyAll acquire5 doNotApply revert5", "5:reverted doNotApply"},
      {"up denyAll doNotApply permitAll ok ok ok", "denyAll permitAll", "0:hitless permitAll"},
      {"up acquire5 hitless denyAll load5 acquire6 hitless ok loaded hitless6",
       "acquire5 denyAll dropped load5 acquire6 dropped", "6:hitless denyAll"},
      // A policy of the driver's own drops a change, and stands until the library asks for something.
      {"up permitAll own ok denyAll permitAll ok", "permitAll permitAll", "0:hitless permitAll"},
      {"permitAll ownUp ok doNotApply ok", "doNotApply", "0:hitless doNotApply"},
      {"ownUp denyAll acquire5 hitless load5 loaded", "acquire5 load5", "5:loaded denyAll"},
      {"up acquire5 hitful permitAll own ok", "acquire5 permitAll permitAll", "5:hitful permitAll"},
      // Over a pair in use, in every state.
      {"denyAll up ok", "denyAll", "0:hitless denyAll"},
      {"acquire5 half up", "restore acquire5", "0:hitless doNotApply"},
      {"acquire5 half up hitful load5 half down up loaded", "restore acquire5 load5 restore load5",
       "5:loaded doNotApply"},
      {"up acquire5 hitful down denyAll up load5 ok loaded", "acquire5 restore denyAll load5",
       "5:loaded denyAll"},
      {"up acquire5 failed down up revert5 half down up reverted down up",
       "acquire5 restore revert5 restore revert5 restore", "5:reverted doNotApply"},
      {"up acquire5 hitless load5 down up acquire6 loaded hitless load6 loaded down up acquire7",
       "acquire5 load5 restore load5 acquire6 dropped load6 restore acquire7",
       "6:loaded doNotApply"}};
  for (Case const& c : cases) {
    SCOPED_TRACE(c.steps);
    Driven d;
    std::istringstream steps(c.steps), calls(c.calls);
    for (std::string word; steps >> word;) d.step(word);
    EXPECT_EQ(d.log, Log(std::istream_iterator<std::string>(calls), {}));
    Rows said;
    for (PDTable table : allPDTables()) {
      ResourceStatus const answer = tableStatus(*d.pdStatus, table);
      said.insert(valueToStrep(answer.responseId()) + ":" +
                  Mox::stringValue(answer.responseState()) + " " +
                  Mox::stringValue(d.pdStatus->globalAclControl()));
    }
    EXPECT_EQ(said, Rows{c.end});
  }
}

TEST(DriverTest, UnderALibraryTheChipHoldsWhatTheLibraryBelieves) {
  Traced const quiet;
  std::vector<std::string> const words{"kick", "kick", "cancel", "restart", "up",     "ownUp",
                                       "own",  "ok",   "ok",     "answer",  "answer", "answer"};
  std::vector const answers{ResponseState::hitless, ResponseState::hitful, ResponseState::failed};
  for (uint64_t seed = 1; seed <= 25; seed += thinning()) {
    SCOPED_TRACE(seed);
    SeededDice dice(seed);
    Driven d;
    d.pipeline = std::make_unique<Pipeline>(d, d.wheel);
    d.step("up");
    size_t kicks = 1;
    for (int event = 0; event < 100; ++event) {
      auto const& word = dice.of(words);
      kicks += word == "kick";
      d.step(word);
      d.driver->atOnce = dice.oneIn(3);
      d.driver->toAcquire = dice.of(answers);
      if (dice.oneIn(4)) d.acls->aclDelAll(), drawAcls(dice, *d.acls);
      if (dice.oneIn(8)) drawWidths(dice, *d.capability, true);
      if (dice.oneIn(2)) d.run();
    }
    for (bool atOnce : {true, false})
      for (auto answer : answers) {
        d.driver->atOnce = atOnce;
        d.driver->toAcquire = answer;
        for (char const* word : {"ok", "answer", "kick", "answer", "ok", "answer", "ok"})
          d.step(word), d.run();
        EXPECT_EQ(d.ends.size(), kicks++) << d.pipeline->waitingFor();
        EXPECT_EQ(d.rows, rowsOf(d.pipeline->output()));
        std::string const why =
            "Naxel failed at stageLoader on chip 0: the driver refused resources for DSCP values "
            "(full)";
        EXPECT_EQ(d.ends.back(), answer == ResponseState::failed ? why : "success");
        EXPECT_EQ(d.pdStatus->globalAclControl(), doNotApply);
      }
  }
}

TEST(TableDiffTest, RowsThatStayTheSameAreNotCounted) {
  char const both[] =
      "edge 10 a sport 1-3 proto 6\nedge 20 b src 10.0.0.0/8\ncore 5 c dport 80 drop";
  World w(both), other(both);
  w.kick(), other.kick();
  TableDiff const same(w.tables(), other.tables());  // of other rule objects
  EXPECT_EQ(same.rows() + same.acl.size(), 0u);
  struct Step {
    char const* rules;
    uint8_t width;  // of a field that no rule names
    size_t rows, acls;
  };
  for (Step const& step : {Step{"", 0, 0, 0},
                           {"edge 10 a sport 1-3 proto 6 drop", 0, 2, 1},
                           {"edge 10 a sport 1-2 proto 6 drop", 0, 2, 1},
                           {"edge 20 b src 11.0.0.0/8", 0, 2, 0},
                           {"edge 30 d\nacl new", 0, 1, 2},
                           {"core 5 c dport 80\nedge 10 a sport 7 log", 0, 4, 2},
                           {"", 3, 5, 2}}) {
    SCOPED_TRACE(step.rules);
    auto const before = w.pdConfig->currPDData();
    w.rules(step.rules);
    if (step.width) w.capability->rangeXformWidthIs(RangeSetType::dscp, step.width);
    w.kick();
    TableDiff const diff(*before, w.tables());
    EXPECT_EQ(diff.rows(), step.rows);
    EXPECT_EQ(diff.acl.size(), step.acls);
  }
}

}  // namespace
}  // namespace Test
