/// The kit for drivers: a right driver passes, and drivers with one fault each are told apart.

#include "naxel/testing/DriverConformance.h"
#include "naxel/testing/ModelLookup.h"
#include "naxel/testing/OutputCopy.h"
#include "naxel/testing/Script.h"
#include "softchip/UnderTest.h"
#include "support/Thinning.h"
#include "verify/NaiveLookup.h"

#include <chrono>
#include <fstream>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

namespace Naxel::Testing {
namespace {

using Output = Mox::Ptr<PDData const>;
using Verify::Packet;
using S = ResponseState;

/// A chip in software behind a pair of its own, and between that pair and the library's somebody who makes one
/// mistake: in what is answered, confirmed, written into the chip, or looked up.
class Broken : public SoftChip::UnderTest, private PDConfig::Notifiee, private PDStatus::Notifiee {
 public:
  struct Hooks {
    /// What is answered for a table; nothing where nothing is.
    std::optional<ResourceStatus> (*answer)(Broken&, PDTable, ResourceStatus) = nullptr;
    std::optional<GlobalAclControl> (*policy)(Broken&, GlobalAclControl) = nullptr;
    /// Changes a copy of an output before the chip gets it.
    void (*write)(Broken&, PDData& to) = nullptr;
    Met (*meets)(Broken&, PDAclKey const&, Packet, Met) = nullptr;
    /// A request has come, and is about to be passed on.
    void (*asked)(Broken&) = nullptr;
    void (*started)(Broken&) = nullptr;
  };
  struct Fault {
    Rule rule;
    char const* name;
    char const* chip;  // of the chip that it is tried on
    Hooks at;
  };

  explicit Broken(Fault const& how)
      : UnderTest(SoftChip::optionsNamed(how.chip)), fault(how), chipOptions(options()) {}

  void start(Mox::Ptr<PDConfig> config, Mox::Ptr<PDStatus> status,
             Mox::Ptr<Obel::TimerWheel> wheel) override {
    outer = config, reported = status;
    restarted = outer->pdResourceConfig().requestId() != 0;
    inner_ = pDConfigFactory(config->chipId()), said_ = pDStatusFactory(config->chipId());
    for (PDTable t : allPDTables()) tableStatusIs(*said_, t, tableStatus(*reported, t));
    said_->globalAclControlIs(reported->globalAclControl());
    if (fault.at.started) fault.at.started(*this);
    pass();
    inner_->globalAclControlIs(outer->globalAclControl());
    PDConfig::Notifiee::notifierIs(outer.get());
    PDStatus::Notifiee::notifierIs(said_.get());
    UnderTest::start(inner_, said_, wheel);
  }
  void stop() override {
    PDConfig::Notifiee::notifierIs(nullptr);
    PDStatus::Notifiee::notifierIs(nullptr);
    UnderTest::stop();
  }
  Met lookup(PDAclKey const& acl, Packet const& packet) override {
    Met const met = UnderTest::lookup(acl, packet);
    return fault.at.meets ? fault.at.meets(*this, acl, packet, met) : met;
  }
  bool roomIs(size_t entries) override { return room = entries, UnderTest::roomIs(entries); }

  // What the mistakes are made of.
  using UnderTest::chip;
  RequestState state() const { return outer->pdResourceConfig().requestState(); }
  Mox::Seconds id() const { return outer->pdResourceConfig().requestId(); }
  size_t entries() const { return outer->currPDData()->pdAclColl()->numFilters(); }
  Met in(Output const& output, PDAclKey const& acl, Packet const& packet) const {
    return Testing::lookup(*output, acl, packet);
  }
  bool answered() const {
    return tableStatus(*reported, PDTable::aclEntries).responseId() == id() &&
           tableStatus(*reported, PDTable::aclEntries).responseState() ==
               (state() == RequestState::load ? S::loaded : S::hitless);
  }
  SoftChip::Options& now() { return chip().options(); }
  /// Looks the entries of an ACL up with labels that are changed before; from the last one on, if so.
  Met scan(PDAclKey const& acl, Packet const& packet, bool backward, bool missesMatch) {
    auto const data = chip().inForce();
    auto const rules = data ? data->pdAclColl()->pdAcl(acl) : nullptr;
    if (!rules || chip().policy() != GlobalAclControl::doNotApply)
      return UnderTest::lookup(acl, packet);
    auto const labels = Verify::naiveLabels(*data, Verify::KeyLayout::of(*data), packet);
    Met out{Met::Kind::noRule};
    for (auto const& [index, rule] : rules->rule())
      for (PDAclFilter entry : rule->filter()) {
        for (TcamFieldType f : allLabelFields())
          if (missesMatch && !labels[f]) entry.labelFieldIs(f, {});
        if (!matches(entry, labels, packet) || (acl.af() != packet.af && !missesMatch)) continue;
        if (out.kind == Met::Kind::noRule || backward)
          out = {Met::Kind::rule, index, rule->action()};
      }
    return out;
  }

  Fault const& fault;
  SoftChip::Options const chipOptions;
  Mox::Ptr<PDConfig> outer;
  Mox::Ptr<PDStatus> reported;
  bool restarted = false;
  size_t room = 1000000;
  // For the use of one mistake each.
  size_t count = 0;
  Mox::Seconds before = 0;
  bool flag = false;
  Output kept;
  std::vector<Output> earlier;

 private:
  void onPdResourceConfig() override {
    if (fault.at.asked) fault.at.asked(*this);
    pass();
  }
  void onGlobalAclControl() override {
    if (inner_->globalAclControl() != outer->globalAclControl() &&
        (asked_ != outer->globalAclControl())) {
      asked_ = outer->globalAclControl();
      inner_->globalAclControlIs(asked_);
      return;
    }
    if (confirmed_ == said_->globalAclControl()) return;
    confirmed_ = said_->globalAclControl();
    auto const policy = fault.at.policy ? fault.at.policy(*this, confirmed_) : confirmed_;
    if (policy) reported->globalAclControlIs(*policy);
  }
  void onTableStatus() override {
    for (PDTable table : allPDTables()) {
      ResourceStatus const status = tableStatus(*said_, table);
      if (std::exchange(seen_[table], status) == status) continue;
      auto const answer = fault.at.answer && status.responseId() != 0
                              ? fault.at.answer(*this, table, status)
                              : status;
      if (answer) tableStatusIs(*reported, table, *answer);
    }
  }
  Output written(Output const& output) {
    if (!fault.at.write) return output;
    auto& copy = copies_[output.get()];
    if (!copy) {
      auto const changed = copyOf(*output);
      if (output->pdAclColl()->numFilters() > 0) fault.at.write(*this, *changed);
      earlier.push_back(output);
      copy = changed;
    }
    return copy;
  }
  void pass() {
    inner_->requestIs(written(outer->prevPDData()), written(outer->currPDData()),
                      outer->pdResourceConfig());
  }

  Mox::Ptr<PDConfig> inner_;
  Mox::Ptr<PDStatus> said_;
  GlobalAclControl asked_ = GlobalAclControl::doNotApply;
  GlobalAclControl confirmed_ = GlobalAclControl::doNotApply;
  std::map<PDTable, ResourceStatus> seen_;
  std::map<PDData const*, Output> copies_;
};

using B = Broken;
using PD = PDData;
using Answer = std::optional<ResourceStatus>;

void eachEntry(PDData& d, void (*change)(PDAclFilter&)) {
  entriesOf(d, [&](PDAclKey const&, PDAclFilter& f, size_t) { return change(f), true; });
}
/// The ACL entries of the outputs before and of this one: of rules that stay, or of those that are gone.
void mergeRules(B& b, PDData& d, bool gone) {
  b.now().capacity[PDTable::aclEntries] = ~size_t{0};
  if (b.earlier.empty()) return;
  for (auto const& [key, acl] : b.earlier.back()->pdAclColl()->pdAcl()) {
    auto const now = d.pdAclColl()->pdAcl(key);
    if (!now) continue;
    auto const all = Mox::makePtr<PDAclRuleColl>(key);
    auto const add = [&](PDAclRule const& rule) {
      auto const to = all->ruleIs(rule.aceIndex());
      if (to->filters() == 0) to->actionIs(rule.action());
      for (PDAclFilter const& f : rule.filter()) to->filterIs(f);
    };
    for (auto const& [index, rule] : now->rule()) add(*rule);
    for (auto const& [index, rule] : acl->rule())
      if (now->ruleHas(index) != gone) add(*rule);
    d.pdAclCollIs().pdAclIs(key, all);
  }
}

constexpr B::Fault faults[] = {
    {Rule::answerAll,
     "no load is answered",
     "roomy",
     {.answer = [](B& b, PDTable,
                   ResourceStatus s) { return b.state() == RequestState::load ? Answer() : s; }}},
    {Rule::answerEvery,
     "a table is forgotten",
     "roomy",
     {.answer = [](B&, PDTable t, ResourceStatus s) { return t == PDTable::dscp ? Answer() : s; }}},
    {Rule::answerId,
     "one table answers to an id of its own",
     "roomy",
     {.answer =
          [](B&, PDTable t, ResourceStatus s) {
            return Answer({s.responseId() + (t == PDTable::length ? 0.5 : 0), s.responseState()});
          }}},
    {Rule::answerId,
     "the answer to an acquire has the id of the one before",
     "roomy",
     {.answer =
          [](B& b, PDTable t, ResourceStatus s) {
            Mox::Seconds const old = b.before;
            if (t == PDTable::aclEntries && s.responseState() == S::loaded)
              b.before = s.responseId();
            return old != 0 && s.responseState() == S::hitless ? Answer({old, s.responseState()})
                                                               : s;
          }}},
    {Rule::answerState,
     "a revert is answered like a load",
     "roomy",
     {.answer =
          [](B&, PDTable, ResourceStatus s) {
            bool const reverted = s.responseState() == S::reverted;
            return Answer({s.responseId(), reverted ? S::loaded : s.responseState()});
          }}},
    {Rule::answerAlike,
     "one table calls hitless what all others call hitful",
     "hitful",
     {.answer =
          [](B&, PDTable t, ResourceStatus s) {
            bool const other = t == PDTable::icmp && s.responseState() == S::hitful;
            return Answer({s.responseId(), other ? S::hitless : s.responseState()});
          }}},
    {Rule::acquireKeeps,
     "what is acquired is in force at once",
     "roomy",
     {.meets =
          [](B& b, PDAclKey const& k, Packet p, Met m) {
            return b.state() == RequestState::acquire && b.answered()
                       ? b.in(b.outer->currPDData(), k, p)
                       : m;
          }}},
    {Rule::acquireKeeps,
     "an acquire clears the tables",
     "slow",
     {.meets =
          [](B& b, PDAclKey const&, Packet, Met m) {
            return b.state() == RequestState::acquire && b.id() != 0 ? Met{Met::Kind::noRule} : m;
          }}},
    {Rule::acquireReserves,
     "nothing is reserved, and what does not fit is left out",
     "roomy",
     {.write =
          [](B& b, PD& d) {
            entriesOf(d, [&](PDAclKey const&, PDAclFilter&, size_t n) { return n < b.room; });
            b.now().capacity[PDTable::aclEntries] = ~size_t{0};
          }}},
    {Rule::acquireReleases,
     "an acquire that nobody loads keeps its entries",
     "roomy",
     {.asked =
          [](B& b) {
            if (b.state() == RequestState::acquire && b.flag) b.count += b.entries();
            b.flag = b.state() == RequestState::acquire;
            b.now().capacity[PDTable::aclEntries] = b.room - std::min(b.room, b.count);
          }}},
    {Rule::acquireConsistent,
     "every third acquire finds no room",
     "roomy",
     {.asked =
          [](B& b) {
            if (b.state() == RequestState::acquire && ++b.count % 3 == 0)
              b.now().refuseAcquires = 1;
          }}},
    {Rule::loadSucceeds,
     "a load fails",
     "roomy",
     {.answer =
          [](B&, PDTable t, ResourceStatus s) {
            bool const fails = t == PDTable::proto && s.responseState() == S::loaded;
            return Answer({s.responseId(), fails ? S::failed : s.responseState()});
          }}},
    {Rule::loadFinishes,
     "a newer acquire stops a load",
     "slow",
     {.answer =
          [](B& b, PDTable, ResourceStatus s) {
            b.flag = b.flag && s.responseState() != S::loaded;
            return Answer(s);
          },
      .meets =
          [](B& b, PDAclKey const& k, Packet p, Met m) {
            return b.kept && m.kind != Met::Kind::denyAll ? b.in(b.kept, k, p) : m;
          },
      .asked =
          [](B& b) {
            b.now().answerAfterTicks = 60;
            if (b.state() == RequestState::acquire && b.flag) b.kept = b.earlier.back();
            if (b.state() != RequestState::load) return;
            b.kept = nullptr, b.flag = true;
            b.earlier.push_back(b.outer->prevPDData());
          }}},
    {Rule::loadedInForce,
     "a load is answered first, and carried out then",
     "roomy",
     {.meets =
          [](B& b, PDAclKey const& k, Packet p, Met m) {
            return b.state() == RequestState::load ? b.in(b.outer->prevPDData(), k, p) : m;
          }}},
    {Rule::hitlessUndisturbed,
     "the old tables go before the new ones come",
     "slow",
     {.meets =
          [](B& b, PDAclKey const&, Packet, Met m) {
            return b.state() == RequestState::load && !b.answered() ? Met{Met::Kind::noRule} : m;
          }}},
    {Rule::revertRestores,
     "a revert leaves in force what was refused",
     "roomy",
     {.meets =
          [](B& b, PDAclKey const& k, Packet p, Met m) {
            return b.state() == RequestState::revert && b.answered() ? m
                   : b.state() == RequestState::revert               ? b.in(b.kept, k, p)
                                                                     : m;
          },
      .asked =
          [](B& b) {
            if (b.state() == RequestState::acquire) b.kept = b.outer->currPDData();
          }}},
    {Rule::policyConfirmed,
     "the lift of a policy is not confirmed",
     "hitful",
     {.policy =
          [](B&, GlobalAclControl p) {
            return p == GlobalAclControl::doNotApply ? std::optional<GlobalAclControl>() : p;
          }}},
    {Rule::policyInForce,
     "a policy is confirmed and not put in force",
     "hitful",
     {.meets =
          [](B& b, PDAclKey const& k, Packet p, Met m) {
            return m.kind == Met::Kind::denyAll ? b.in(b.outer->prevPDData(), k, p) : m;
          }}},
    {Rule::policyAsAsked,
     "permitAll is confirmed for denyAll",
     "hitful",
     {.policy =
          [](B&, GlobalAclControl p) {
            return std::optional(p == GlobalAclControl::denyAll ? GlobalAclControl::permitAll : p);
          }}},
    {Rule::policyCovers,
     "a policy ends when the load begins",
     "hitful",
     {.meets =
          [](B& b, PDAclKey const& k, Packet p, Met m) {
            bool const early = m.kind == Met::Kind::denyAll && b.state() == RequestState::load;
            return early ? b.in(b.outer->currPDData(), k, p) : m;
          }}},
    {Rule::restartTables,
     "after a restart the tables are empty",
     "roomy",
     {.meets = [](B& b, PDAclKey const&, Packet,
                  Met m) { return b.restarted ? Met{Met::Kind::noRule} : m; },
      .asked = [](B& b) { b.restarted = b.restarted && b.state() == RequestState::acquire; }}},
    {Rule::restartRequest,
     "what stood at a restart is never answered",
     "slow",
     {.answer =
          [](B& b, PDTable, ResourceStatus s) {
            return b.restarted && s.responseId() == b.before ? Answer() : s;
          },
      .started = [](B& b) { b.before = b.id(); }}},
    {Rule::restartPolicy,
     "after a restart the policy is not in force",
     "hitful",
     {.meets =
          [](B& b, PDAclKey const& k, Packet p, Met m) {
            bool const open = b.restarted && m.kind == Met::Kind::denyAll;
            return open ? b.in(b.outer->currPDData(), k, p) : m;
          },
      .asked = [](B& b) { b.restarted = b.restarted && b.state() != RequestState::acquire; }}},
    {Rule::outputUnchanged,
     "an output is edited",
     "roomy",
     {.asked =
          [](B& b) {
            const_cast<PDData&>(*b.outer->currPDData())
                .rangeCollIs(RangeSetType::dscp)
                .entryIs({RangeSetElem(1, 2), EncodedLabel(3)});
          }}},
    {Rule::configUntouched,
     "the driver writes PDConfig",
     "roomy",
     {.answer =
          [](B& b, PDTable, ResourceStatus s) {
            if (s.responseState() == S::loaded) b.outer->prevPDDataIs(b.outer->currPDData());
            return Answer(s);
          }}},
    {Rule::writeAcl,
     "an ACL that is gone stays",
     "roomy",
     {.write =
          [](B& b, PD& d) {
            for (Output const& o : b.earlier)
              for (auto const& [key, acl] : o->pdAclColl()->pdAcl())
                if (!d.pdAclColl()->pdAclHas(key)) d.pdAclCollIs().pdAclIs(key, acl);
          }}},
    {Rule::writeEntries,
     "entries of a changed rule stay",
     "roomy",
     {.write = [](B& b, PD& d) { mergeRules(b, d, false); }}},
    {Rule::writeEntries,
     "rules that are gone stay",
     "roomy",
     {.write = [](B& b, PD& d) { mergeRules(b, d, true); }}},
    {Rule::writeTable,
     "one table is written once only",
     "roomy",
     {.write =
          [](B& b, PD& d) {
            for (Output const& o : b.earlier)
              if (!o->rangeColl(RangeSetType::dstPort)->entry().empty())
                return tableFrom(d, PDTable::dstPort, *o);
          }}},
    {Rule::lookupPrefix,
     "the first prefix counts",
     "roomy",
     {.write =
          [](B&, PD& d) {
            std::vector<Lumox::IpGenPrefix> seen;
            prefixesOf(d, PDTable::v4Source, [&](PDPrefixXformEntry& e, size_t) {
              for (auto const& p : seen)
                if (p.containsAddress(e.key().hi(), e.key().lo())) return false;
              return seen.push_back(e.key()), true;
            });
          }}},
    {Rule::lookupRange,
     "a range ends one value early",
     "roomy",
     {.write =
          [](B&, PD& d) {
            rangesOf(d, PDTable::dstPort, [](PDRangeXformEntry& e, size_t) {
              if (e.key().first() == e.key().last()) return false;
              auto const last = static_cast<uint16_t>(e.key().last() - 1);
              return e = {RangeSetElem(e.key().first(), last), e.value()}, true;
            });
          }}},
    {Rule::lookupCombination,
     "combinations are not compared",
     "roomy",
     {.write =
          [](B&, PD& d) {
            eachEntry(d, [](PDAclFilter& f) { f.prefixComboIs({}), f.portComboIs({}); });
          }}},
    {Rule::lookupSides,
     "source and destination are swapped",
     "roomy",
     {.meets =
          [](B& b, PDAclKey const& k, Packet p, Met) {
            std::swap(p.src, p.dst);
            return b.UnderTest::lookup(k, p);
          }}},
    {Rule::lookupMissZero,
     "a miss yields label 0",
     "roomy",
     {.write =
          [](B&, PD& d) {
            for (PrefixXformKey const& key : PrefixXformKey::all()) {
              auto const table = Mox::makePtr<PDPrefixXformEntryColl>();
              for (auto const& e : d.pdPrefixXformEntryColl(key)->entry()) table->entryIs(e);
              auto const all = key.af() == Lumox::ipv4() ? Lumox::IpGenPrefix::v4(0, 0)
                                                         : Lumox::IpGenPrefix::v6(0, 0, 0);
              if (!table->entry(all)) table->entryIs({all, EncodedLabel(0)});
              d.pdPrefixXformEntryCollIs(key, table);
            }
          }}},
    {Rule::lookupMiss,
     "a miss matches anything",
     "roomy",
     {.meets = [](B& b, PDAclKey const& k, Packet p,
                  Met m) { return k.af() == p.af ? b.scan(k, p, false, true) : m; }}},
    {Rule::lookupRaw,
     "raw values are not compared",
     "roomy",
     {.write =
          [](B&, PD& d) {
            if (d.hwCapability()->rangeXformWidth(RangeSetType::proto) == 0)
              eachEntry(d, [](PDAclFilter& f) { f.protoIs({}); });
          }}},
    {Rule::lookupMask,
     "labels are compared in full",
     "roomy",
     {.write =
          [](B&, PD& d) {
            eachEntry(d, [](PDAclFilter& f) {
              for (TcamFieldType t : allLabelFields())
                if (f.labelField(t).mask().value() != 0)
                  f.labelFieldIs(t, {f.labelField(t).label(), LabelMask(65535)});
            });
          }}},
    {Rule::lookupFlags,
     "TCP flags are not compared",
     "roomy",
     {.write =
          [](B&, PD& d) {
            eachEntry(
                d, [](PDAclFilter& f) { f.matchTcpInitIs(false), f.matchTcpEstablishedIs(false); });
          }}},
    {Rule::lookupFamily,
     "an ACL is found by its name alone",
     "roomy",
     {.meets =
          [](B& b, PDAclKey const& k, Packet p, Met m) {
            auto const data = b.chip().inForce();
            PDAclKey const other(k.af() == Lumox::ipv4() ? Lumox::ipv6() : Lumox::ipv4(),
                                 k.aclName());
            if (!data || data->pdAclColl()->pdAclHas(k) || !data->pdAclColl()->pdAclHas(other))
              return m;
            auto const labels = Verify::naiveLabels(*data, Verify::KeyLayout::of(*data), p);
            for (auto const& [index, rule] : data->pdAclColl()->pdAcl(other)->rule())
              for (PDAclFilter const& f : rule->filter())
                if (Verify::matches(f, labels, p))
                  return Met{Met::Kind::rule, index, rule->action()};
            return m;
          }}},
    {Rule::lookupOrder,
     "the last entry that matches decides",
     "roomy",
     {.meets = [](B& b, PDAclKey const& k, Packet p, Met) { return b.scan(k, p, true, false); }}},
    {Rule::lookupAction,
     "everything is permitted",
     "roomy",
     {.meets = [](B&, PDAclKey const&, Packet, Met m) { return m.action = {}, m; }}},
};

Report reportOf(B::Fault const& fault, size_t scripts = 20) {
  Options options;
  options.breaches = 1;
  options.scripts = scripts;
  return proveDriver([&] { return std::make_unique<Broken>(fault); }, options);
}

TEST(Conformance, TheSoftChipKeepsTheRules) {
  for (char const* chip : {"roomy", "hitful", "small", "slow", "closed"}) {
    SCOPED_TRACE(chip);
    Options options;
    options.scripts = 40 / ::Test::thinning();
    Report const report = proveDriver(
        [&] { return std::make_unique<SoftChip::UnderTest>(SoftChip::optionsNamed(chip)); },
        options);
    EXPECT_TRUE(report.passed()) << text(report);
    EXPECT_TRUE(report.notJudged.empty()) << text(report);
  }
}

TEST(Conformance, FaultsAreToldApart) {
  using Clock = std::chrono::steady_clock;
  std::set<Rule> told;
  for (B::Fault const& fault : faults) {
    SCOPED_TRACE(fault.name);
    auto const start = Clock::now();
    Report const report = reportOf(fault);
    double const spent = std::chrono::duration<double>(Clock::now() - start).count();
    if (std::getenv("NAXEL_VERBOSE"))
      std::printf("%s: %.1f s\n%s", fault.name, spent, text(report).c_str());
    ASSERT_EQ(report.breaches.size(), 1u) << text(report);
    Breach const& breach = report.breaches[0];
    EXPECT_EQ(textOf(breach.rule).name, textOf(fault.rule).name) << text(report);
    EXPECT_LE(breach.script.size(), 9u) << text(report);
    told.insert(breach.rule);
    // The same again: the whole run, and the short script alone.
    if (told.size() % 8 == 0) {
      EXPECT_EQ(text(report), text(reportOf(fault)));
    }
    Report const again = replay([&] { return std::make_unique<Broken>(fault); }, breach.script);
    ASSERT_EQ(again.breaches.size(), 1u) << text(report);
    EXPECT_EQ(again.breaches[0].rule, breach.rule);
  }
  // Every rule but the one for what nothing explains.
  for (RuleText const& rule : allRules)
    EXPECT_NE(told.contains(rule.rule), rule.rule == Rule::lookup) << rule.name;
}

/// A driver whose author can look nothing up is judged by its answers alone, and one that sees no more than what
/// becomes of test packets by that.
TEST(Conformance, JudgesByWhatTheChipTells) {
  struct Dumb : SoftChip::UnderTest {
    using UnderTest::UnderTest;
    Met lookup(PDAclKey const&, Packet const&) override { return {}; }
    bool roomIs(size_t) override { return false; }
  };
  Options options;
  options.scripts = 2;
  Report const dumb = proveDriver([] { return std::make_unique<Dumb>(); }, options);
  EXPECT_TRUE(dumb.passed()) << text(dumb);
  EXPECT_EQ(dumb.notJudged.size(), 3u) << text(dumb);

  struct Fate : Broken {
    using Broken::Broken;
    Met lookup(PDAclKey const& acl, Packet const& packet) override {
      Met const met = Broken::lookup(acl, packet);
      return {met.kind == Met::Kind::denyAll || met.action.dropEnabled() ? Met::Kind::dropped
                                                                         : Met::Kind::passed};
    }
  };
  static constexpr B::Fault none{Rule::lookup, "none", "roomy", {}};
  for (B::Fault const& fault : faults) {
    if (fault.rule != Rule::lookupFlags && fault.rule != Rule::writeEntries) continue;
    Report const report = proveDriver([&] { return std::make_unique<Fate>(fault); }, options);
    ASSERT_FALSE(report.passed()) << fault.name;
    // Where less is told, what is left behind may look like a load that did nothing.
    EXPECT_TRUE(fault.rule == report.breaches[0].rule || fault.rule == Rule::writeEntries);
  }
  Report const fate = proveDriver([] { return std::make_unique<Fate>(none); }, options);
  EXPECT_TRUE(fate.passed()) << text(fate);
}

TEST(Conformance, TheGuideHasEveryRule) {
  std::ifstream in(std::string(NAXEL_SOURCE_DIR) + "/docs/driver-guide.md");
  std::stringstream guide;
  guide << in.rdbuf();
  size_t at = 0;
  for (RuleText const& rule : allRules) {
    std::string const row =
        "| `" + std::string(rule.name) + "` | " + std::string(rule.demands) + " |";
    size_t const found = guide.str().find(row, at);
    EXPECT_NE(found, std::string::npos) << row;
    if (found != std::string::npos) at = found;
    EXPECT_EQ(&rule - allRules.data(), static_cast<std::ptrdiff_t>(rule.rule));
  }
}

}  // namespace
}  // namespace Naxel::Testing
