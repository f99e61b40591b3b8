/// Changes of one rule: what the kick after each kind of them takes; and one after the other, how many rows of the
/// tables differ after each, and what the tables take in the end.

#include "Cases.h"
#include "Pipeline.h"
#include "input/ChipReader.h"
#include "naxel/driver/TableDiff.h"
#include "verify/ExactProof.h"
#include "verify/Random.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <tuple>

namespace Bench {

namespace {

using namespace Naxel;

/// Random changes of one rule, such as operators make.
class Changes {
 public:
  explicit Changes(AclConfigColl& acls) {
    for (auto const& [key, acl] : acls.acl())
      for (auto const& [index, rule] : acl->ruleById()) rules_.push_back({acl, index, rule});
  }

  enum class Kind { nothing, action, ports, prefix, remove, insert };
  void next() {
    constexpr std::array all = {Kind::action, Kind::ports,  Kind::remove,
                                Kind::insert, Kind::prefix, Kind::prefix};
    next(all[random_.below(all.size())]);
  }
  void next(Kind kind) {
    switch (kind) {
      case Kind::nothing: return;
      case Kind::action: return action();
      case Kind::ports: return ports();
      case Kind::remove: return removeRule();
      case Kind::insert: return bringBack();
      case Kind::prefix: return prefix();
    }
  }

 private:
  struct Rule {
    Mox::Ptr<AclConfig> acl;
    AceIndex index;
    Mox::Ptr<RuleConfig> rule;
  };

  Rule const& any() { return random_.of(rules_); }
  void action() {
    RuleConfig& rule = *any().rule;
    NaxelActionValue action = rule.action();
    action.logEnabledIs(!action.logEnabled());
    rule.actionIs(action);
  }
  void ports() {
    RuleFilter& filter = *any().rule->ruleFilterIs();
    if (filter.dportRange().empty()) return prefix();
    filter.dportRangeDelAll();
    auto const first = static_cast<uint16_t>(random_.below(60000));
    filter.dportRangeIs(L4PortRange(
        first, static_cast<uint16_t>(first + random_.below(random_.oneIn(2) ? 1 : 5000))));
  }
  void removeRule() {
    size_t const at = random_.below(rules_.size());
    rules_[at].acl->ruleByIdDel(rules_[at].index);
    gone_.push_back(rules_[at]);
    rules_.erase(rules_.begin() + static_cast<ptrdiff_t>(at));
  }
  void bringBack() {
    if (gone_.empty()) return removeRule();
    gone_.back().acl->ruleByIdIs(gone_.back().index, gone_.back().rule);
    rules_.push_back(gone_.back());
    gone_.pop_back();
  }
  static std::vector<Lumox::IpGenPrefix> prefixesOf(IpPrefixList const* list) {
    std::vector<Lumox::IpGenPrefix> all;
    if (list) all.assign(list->addr().begin(), list->addr().end());
    std::sort(all.begin(), all.end());
    return all;
  }
  /// One prefix more, one less or another one, in a list of the rule's own.
  void prefix() {
    RuleFilter& filter = *any().rule->ruleFilterIs();
    bool const source = random_.oneIn(2);
    auto const list = source ? filter.source() : filter.destination();
    std::vector<Lumox::IpGenPrefix> prefixes = prefixesOf(list.get());
    // Near one of another rule's.
    RuleFilter& near = *any().rule->ruleFilterIs();
    auto const around = prefixesOf((source ? near.source() : near.destination()).get());
    uint32_t const base = around.empty() ? 0x0a000000 : random_.of(around).address4();
    auto const length = static_cast<uint8_t>(random_.between(16, 32));
    auto const offset = static_cast<uint32_t>(random_.below(random_.oneIn(2) ? 0x100 : 0x10000));
    auto const fresh = Lumox::IpGenPrefix::v4(base ^ offset, length).masked();
    bool const takesAway = !prefixes.empty() && random_.oneIn(2);
    if (takesAway)
      prefixes.erase(prefixes.begin() + static_cast<ptrdiff_t>(random_.below(prefixes.size())));
    if (!takesAway || prefixes.empty()) prefixes.push_back(fresh);
    auto const own = Mox::makePtr<IpPrefixList>();
    for (auto const& p : prefixes) own->addrIs(p);
    source ? filter.sourceIs(own) : filter.destinationIs(own);
  }

  Verify::Random random_{1};
  std::vector<Rule> rules_;
  std::vector<Rule> gone_;
};

double quantile(std::vector<double> const& sorted, double share) {
  return sorted[std::min(sorted.size() - 1,
                         static_cast<size_t>(share * static_cast<double>(sorted.size())))];
}

/// With NAXEL_BENCH_PROVE set, throws std::runtime_error where the tables do not do what the rules say.
void proveIfAsked([[maybe_unused]] AclConfigColl const& acls, [[maybe_unused]] PDData const& data) {
  if (!std::getenv("NAXEL_BENCH_PROVE")) return;
#if NAXEL_EXACT_PROOF
  Verify::Proof const proof = Verify::prove(acls, data, Verify::KeyLayout::of(data));
  if (!proof.difference.empty()) throw std::runtime_error(proof.difference);
#else
  throw std::runtime_error("this build cannot prove: it was made without the BDD library");
#endif
}

double churn(RuleSource const& source, benchmark::State& state, Acl::LabelCode code, bool keeps) {
  auto const acls = build(source);
  auto const capability = NaxelTool::defaultChip().capability;
  Pipeline pipeline(acls, capability);
  pipeline.labelCodeIs(code);
  pipeline.keepLabelsIs(keeps);
  pipeline.kick();
  Changes changes(*acls);
  char const* const asked = std::getenv("NAXEL_BENCH_CHANGES");
  size_t const wanted = asked ? std::strtoul(asked, nullptr, 10) : 100;
  std::vector<double> rows;
  std::vector<double> other;
  double seconds = 0;
  for (size_t i = 0; i < wanted; ++i) {
    changes.next();
    auto const before = pipeline.output();
    seconds += pipeline.kick();
    proveIfAsked(*acls, *pipeline.output());
    TableDiff const diff(*before, *pipeline.output());
    double relabelled = 0;
    for (auto const& [key, table] : diff.prefix)
      relabelled += static_cast<double>(table.change.size());
    for (auto const& table : diff.range) relabelled += static_cast<double>(table.change.size());
    size_t const acl = diff.aclRows();
    rows.push_back(static_cast<double>(acl));
    other.push_back(relabelled);
  }
  std::sort(rows.begin(), rows.end());
  std::sort(other.begin(), other.end());
  Pipeline fresh(acls, capability);
  fresh.labelCodeIs(code);
  fresh.kick();
  state.counters["median"] = quantile(rows, .5);
  state.counters["p95"] = quantile(rows, .95);
  state.counters["p99"] = quantile(rows, .99);
  state.counters["worst"] = rows.back();
  state.counters["labelsMedian"] = quantile(other, .5);
  state.counters["labelsWorst"] = other.back();
  state.counters["encodedAfresh"] = static_cast<double>(pipeline.encodedAfresh());
  state.counters["entries"] = static_cast<double>(pipeline.entries());
  state.counters["afresh"] =
      static_cast<double>(pipeline.entries()) / static_cast<double>(fresh.entries());
  return seconds / static_cast<double>(wanted);
}

/// Seconds of a kick after a change of a kind, in the middle of several, and of the first kick beside it.
double changed(RuleSource const& source, benchmark::State& state, Changes::Kind kind, bool keeps) {
  auto const acls = build(source);
  Pipeline pipeline(acls, NaxelTool::defaultChip().capability);
  pipeline.labelCodeIs(keeps ? Acl::LabelCode::compact : Acl::LabelCode::aligned);
  pipeline.keepLabelsIs(keeps);
  double const first = pipeline.kick();
  Changes changes(*acls);
  std::vector<double> seconds;
  for (int i = 0; i < 9; ++i) {
    // What is brought back has been removed before, without being timed.
    if (kind == Changes::Kind::insert) {
      changes.next(Changes::Kind::remove);
      pipeline.kick();
    }
    changes.next(kind);
    seconds.push_back(pipeline.kick());
  }
  std::sort(seconds.begin(), seconds.end());
  state.counters["share"] = seconds[4] / first * 100;
  return seconds[4];
}

}  // namespace

void addChangeCases(std::vector<RuleSource> const& sources) {
  using Kind = Changes::Kind;
  for (RuleSource const& source : sources) {
    if (source.rules > 12000 || source.rules < 5000) continue;
    for (bool const keeps : {false, true})
      for (auto const& [name, kind] :
           {std::pair("nothing", Kind::nothing), std::pair("action", Kind::action),
            std::pair("ports", Kind::ports), std::pair("prefix", Kind::prefix),
            std::pair("remove", Kind::remove), std::pair("insert", Kind::insert)})
        addCase("change", source.name + (keeps ? " kept " : " aligned ") + name, 1,
                [=](benchmark::State& state) { return changed(source, state, kind, keeps); });
  }
}

void addChurnCases(std::vector<RuleSource> const& sources) {
  for (RuleSource const& source : sources) {
    if (source.rules > 12000 || source.rules < 5000) continue;
    for (auto const& [name, code, keeps] : {std::tuple("aligned", Acl::LabelCode::aligned, false),
                                            std::tuple("compact", Acl::LabelCode::compact, false),
                                            std::tuple("kept", Acl::LabelCode::compact, true)})
      addCase("churn", source.name + " " + name, 1,
              [=](benchmark::State& state) { return churn(source, state, code, keeps); });
  }
}

}  // namespace Bench
