/// The driver's side of the handshake: requests written by hand, answers as the chip gives them.

#include "softchip/SoftChip.h"
#include "support/Output.h"

#include <functional>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

namespace SoftChip {

using namespace Verify;
namespace {

using Naxel::GlobalAclControl;
using Naxel::RequestState;
using Naxel::ResponseState;

/// The library's side as a script, and what the chip does on record.
class Bench : private Naxel::PDStatus::Notifiee {
 public:
  Bench() {
    notifierIs(status_.get());
    build();
  }

  /// Plays commands and returns the record. An output has one rule and some port ranges.
  ///
  ///   acquire ID RULE, load ID     request; the first offers an output with that rule
  ///   offer RULE                   puts another output in its place
  ///   policy NAME                  asks for a policy
  ///   start                        rule 10 is in force, the record is empty
  ///   run, tick N                  the timer until it rests, or so often
  ///   rebuild                      another chip takes over, one that answers at once
  ///   hitful, onebyone, answer N, confirm N, capacity N, refuse N     options of the chip
  ///   ports N                      of the outputs from now on
  ///
  /// The record has the answers of the table of entries ("2:hitless"), what packets meet whenever it
  /// changes ("rule10", "denyAll", "disturbed"), each tick ("|"), and in the end whether a chip that
  /// is at work reserves anything, what is short and what breaches the contract.
  std::string play(std::string const& script) {
    std::istringstream in(script);
    auto const word = [&] {
      std::string out;
      EXPECT_TRUE(in >> out) << script;
      return out;
    };
    auto const number = [&] { return static_cast<uint32_t>(std::stoul(word())); };
    std::map<std::string, std::function<void()>> const verbs = {
        {"acquire",
         [&] {
           uint32_t const id = number();
           config_->prevPDDataIs(chip_->inForce() ? chip_->inForce() : config_->prevPDData());
           config_->currPDDataIs(output(number()));
           config_->pdResourceConfigIs({static_cast<double>(id), RequestState::acquire});
         }},
        {"load",
         [&] {
           config_->pdResourceConfigIs({static_cast<double>(number()), RequestState::load});
         }},
        {"offer", [&] { config_->currPDDataIs(output(number())); }},
        {"policy",
         [&] { config_->globalAclControlIs(*Mox::instanceFromText<GlobalAclControl>(word())); }},
        {"start", [&] { play("acquire 1 10 run load 1 run"), record_.clear(); }},
        {"run", [&] { EXPECT_TRUE(activity_.runUntilIdle(1000)); }},
        {"tick",
         [&] {
           for (uint32_t n = number(); n > 0; --n) record_ += " |", activity_.runPass();
         }},
        {"rebuild", [&] { build(); }},
        {"hitful", [&] { chip_->options().forceHitful = true; }},
        {"onebyone", [&] { chip_->options().pace = Pace::oneByOne; }},
        {"answer", [&] { chip_->options().answerAfterTicks = number(); }},
        {"confirm", [&] { chip_->options().confirmPolicyAfterTicks = number(); }},
        {"capacity", [&] { chip_->options().capacity[Table::dstPort] = number(); }},
        {"refuse", [&] { chip_->options().refuseAcquires = number(); }},
        {"ports", [&] { ports_ = number(); }}};
    for (std::string verb; in >> verb;) verbs.at(verb)();
    std::string out = record_;
    auto const entries = status_->pdAclRuleEntryStatus();
    for (Table t : Naxel::allPDTables())
      if (chip_->idle() && t != Table::tcpFlags && Naxel::tableStatus(*status_, t) != entries &&
          Naxel::tableStatus(*status_, t).responseState() != ResponseState::failed)
        out += " unlike " + Mox::stringValue(t);
    if (!chip_->idle() && chip_->reservedFor() != 0) out += " reserves";
    for (Shortfall const& s : chip_->shortfalls()) out += " " + text(s);
    for (std::string const& breach : chip_->breaches()) out += " " + breach;
    return out.substr(out.empty() ? 0 : 1);
  }

 private:
  void build() {
    chip_.reset();
    chip_ = std::make_unique<Chip>(config_, status_, wheel_);
    chip_->observerIs([this](Write const&) { probe(); });
    probe();
  }
  Mox::Ptr<Naxel::PDData const> output(uint32_t rule) const {
    Output out;
    out.widths->rangeXformWidthIs(Naxel::RangeSetType::dstPort, 8);
    out.entry(edge_, rule, std::vector<Match>{});
    for (uint16_t p = 0; p < ports_; ++p) out.range(Naxel::RangeSetType::dstPort, p, p, p);
    return out.data;
  }
  void probe() {
    Verdict const now = chip_->lookup(edge_, packetOf("10.0.0.1"));
    if (now == met_) return;
    met_ = now;
    record_ += " " + (now.kind == Verdict::Kind::rule     ? "rule" + Mox::valueToStrep(now.rule)
                      : now.kind == Verdict::Kind::policy ? Mox::stringValue(now.policy)
                                                          : text(now));
  }
  void onPdAclRuleEntryStatus() override {
    auto const& s = status_->pdAclRuleEntryStatus();
    record_ += " " + Mox::valueToStrep(s.responseId()) + ":" + Mox::stringValue(s.responseState());
  }

  Naxel::PDAclKey const edge_{Lumox::ipv4(), "edge"};
  Mox::ManualClock clock_;
  Mox::Activity activity_{clock_};
  Mox::Ptr<Obel::TimerWheel> wheel_ = Mox::makePtr<Obel::TimerWheel>(activity_);
  Mox::Ptr<Naxel::PDConfig> config_ = Naxel::pDConfigFactory(Obel::ChipId(0));
  Mox::Ptr<Naxel::PDStatus> status_ = Mox::makePtr<Naxel::PDStatus>(Obel::ChipId(0));
  std::unique_ptr<Chip> chip_;
  uint32_t ports_ = 0;
  Verdict met_;
  std::string record_;
};

TEST(SoftChip, DoesWhatItsScriptSays) {
  struct Case {
    char const* script;
    char const* record;
  };
  for (Case const& c : {
           // Side by side where there is room for both, in place where there is for one.
           Case{"ports 3 start capacity 8 ports 5 acquire 2 20", "2:hitless"},
           Case{"ports 3 start capacity 8 ports 6 acquire 2 20", "2:hitful"},
           Case{"ports 8 start capacity 8 acquire 2 20", "2:hitful"},
           Case{"ports 5 start capacity 4 ports 3 acquire 2 20", "2:hitful"},
           Case{"ports 3 start capacity 8 ports 9 acquire 2 20",
                "2:hitful dstPort: 9 entries needed, 8 available"},
           Case{"ports 8 start capacity 8 ports 9 acquire 2 20",
                "2:hitful dstPort: 9 entries needed, 8 available"},
           Case{"start hitful ports 1 acquire 2 20", "2:hitful"},
           Case{"start capacity 0 acquire 2 20", "2:hitless"},
           // A change in place wants a policy, which takes its time.
           Case{"start answer 2 confirm 2 hitful acquire 2 20 run policy denyAll tick 2 load 2 run "
                "policy doNotApply run",
                "2:hitful | | denyAll 2:loaded rule20"},
           Case{"start answer 2 hitful acquire 2 20 run load 2 run",
                "2:hitful disturbed rule20 2:loaded load that disturbs traffic without a policy"},
           // A load is finished before a newer acquire is answered, the newest of them alone.
           Case{"answer 3 acquire 1 10 tick 3 load 1 tick 1 acquire 2 20 acquire 3 30 tick 5",
                "| | | 1:hitless | | | rule10 1:loaded | | | 3:hitless"},
           // What a newer acquire supersedes is reserved no longer.
           Case{"answer 1 acquire 1 10 run acquire 2 20", "1:hitless"},
           // What the library must not do.
           Case{"offer 10 load 1 run", "rule10 1:loaded load of an output that was not acquired"},
           Case{"refuse 1 acquire 1 10 run load 1 run",
                "1:failed rule10 1:loaded aclEntries: refused by order of the chip's options "
                "load of an output that was not acquired"},
           Case{"acquire 1 10 load 2 run",
                "1:hitless rule10 2:loaded load of an output that was not acquired"},
           Case{"acquire 1 10 offer 20 load 1 run",
                "1:hitless rule20 1:loaded load of another output than the acquired one"},
           Case{"confirm 1 policy denyAll policy permitAll run",
                "permitAll a policy was changed before it had been confirmed"},
           Case{"ports 257 acquire 1 10",
                "1:hitless ranges dstPort: label 256 of Value('Naxel::RangeSetElem', ** {'first': "
                "256, 'last': 256}) is wider than 8 bits"},
           // Another chip takes over; what was answered in part is taken back.
           Case{"start answer 3 acquire 2 20 rebuild load 2", "2:hitless rule20 2:loaded"},
           Case{"start answer 3 onebyone acquire 2 20 tick 8 rebuild load 2",
                "| | | | | | | | 2:hitless rule20 2:loaded"},
           Case{"start answer 3 onebyone acquire 2 20 run load 2 rebuild",
                "2:hitless 0:hitless 2:loaded rule20"},
           Case{"start acquire 2 20 load 2 rebuild", "2:hitless rule20 2:loaded"},
           Case{"start confirm 5 policy denyAll rebuild", "denyAll"},
       }) {
    SCOPED_TRACE(c.script);
    EXPECT_EQ(Bench().play(c.script), c.record);
  }
}

}  // namespace
}  // namespace SoftChip
