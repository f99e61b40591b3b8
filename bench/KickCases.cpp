/// Kicks over whole rule sets: the first one and its stages, one with nothing changed, and one with a
/// single rule changed.

#include "Cases.h"
#include "Pipeline.h"
#include "input/ChipReader.h"

namespace Bench {

namespace {

using Naxel::NaxelActiveStage;

/// A pipeline with a set in force, kept for the benchmarks that follow each other over the same set.
class Loaded {
 public:
  static Loaded& of(RuleSource const& source) {
    static std::unique_ptr<Loaded> last;
    if (!last || last->name_ != source.name) {
      last = nullptr;
      last = std::make_unique<Loaded>(source);
    }
    return *last;
  }

  explicit Loaded(RuleSource const& source)
      : name_(source.name),
        acls_(build(source)),
        pipeline_(acls_, NaxelTool::defaultChip().capability) {
    pipeline_.kick();
    auto const& rules = acls_->acl().begin()->second->ruleById();
    auto at = rules.begin();
    for (size_t i = 0; i < rules.size() / 2; ++i) ++at;
    rule_ = at->second;
    list_ = rule_->ruleFilterIs()->source();
    other_ = Mox::makePtr<Naxel::IpPrefixList>();
    other_->addrIs(Lumox::IpGenPrefix::v4(0xcb00714d, 32));
  }

  double unchanged() { return pipeline_.kick(); }
  double changedAction() {
    Naxel::NaxelActionValue action = rule_->action();
    action.logEnabledIs(!action.logEnabled());
    rule_->actionIs(action);
    return pipeline_.kick();
  }
  double changedPrefix() {
    auto const filter = rule_->ruleFilterIs();
    filter->sourceIs(filter->source() == other_ ? list_ : other_);
    return pipeline_.kick();
  }

 private:
  std::string name_;
  Mox::Ptr<Naxel::AclConfigColl> acls_;
  Pipeline pipeline_;
  Mox::Ptr<Naxel::RuleConfig> rule_;  // in the middle of the first ACL
  Mox::Ptr<Naxel::IpPrefixList> list_;
  Mox::Ptr<Naxel::IpPrefixList> other_;
};

double firstKick(RuleSource const& source, benchmark::State& state) {
  auto const acls = build(source);
  Pipeline pipeline(acls, NaxelTool::defaultChip().capability);
  double const seconds = pipeline.kick();
  state.counters["rules"] = static_cast<double>(source.rules);
  state.counters["entries"] = static_cast<double>(pipeline.entries());
  for (size_t i = 1; i < Pipeline::stages; ++i) {
    auto const stage = static_cast<NaxelActiveStage>(i);
    state.counters[Naxel::stringValue(stage)] = pipeline.stageSeconds(stage) * 1e3;
  }
  return seconds;
}

}  // namespace

void addKickCases(std::vector<RuleSource> const& sources) {
  for (RuleSource const& source : sources) {
    addCase("first", source.name, 1,
            [source](benchmark::State& state) { return firstKick(source, state); });
    addCase("unchanged", source.name, 3,
            [source](benchmark::State&) { return Loaded::of(source).unchanged(); });
    addCase("action", source.name, 2,
            [source](benchmark::State&) { return Loaded::of(source).changedAction(); });
    addCase("prefix", source.name, 2,
            [source](benchmark::State&) { return Loaded::of(source).changedPrefix(); });
  }
}

}  // namespace Bench
