// Attributes, collections and the rounds of notification.

#include "naxel/control/StageTypes.h"
#include "naxel/loader/HwCapability.h"
#include "naxel/types/RuleFilter.h"
#include "support/TraceLog.h"

#include <algorithm>
#include <functional>
#include <random>

#include <gtest/gtest.h>

namespace Mox {
namespace {

using Naxel::L4PortRange;
using Naxel::RangeSetType;
using Naxel::StageStatus;

TEST(Entity, OnlyChangesAreToldWithTheirKeys) {
  static std::string log;
  struct : Naxel::ChipHwCapability::Notifiee {
    void onTcpFlagsXformWidth() override { log += "flags "; }
    void onRangeXformWidth(RangeSetType const& type) override { log += stringValue(type) + " "; }
  } widths;
  struct : Naxel::RuleFilter::Notifiee {
    void onSportRange(L4PortRange const& r) override { log += std::to_string(r.rangeEnd()) + " "; }
  } ranges;
  auto const chip = Naxel::chipHwCapabilityFactory(Obel::ChipId(0));
  widths.notifierIs(chip.get());
  for (uint32_t width : {2, 4, 4}) chip->tcpFlagsXformWidthIs(width);  // the first is there already
  for (uint32_t width : {0, 3, 3}) chip->rangeXformWidthIs(RangeSetType::dscp, width);
  chip->rangeXformWidthDel(RangeSetType::icmp);
  chip->rangeXformWidthIs(RangeSetType::srcPort, 9);
  EXPECT_EQ(std::exchange(log, {}), "flags dscp dscp srcPort ");
  EXPECT_EQ(chip->attributeText("rangeXformWidth"), "{srcPort: 9, dscp: 3}");
  for (int i = 0; i < 2; ++i) chip->rangeXformWidthDelAll();
  EXPECT_EQ(std::exchange(log, {}), "srcPort dscp ");
  EXPECT_EQ(chip->attributeText("rangeXformWidth"), "{}");

  auto const filter = makePtr<Naxel::RuleFilter>();
  ranges.notifierIs(filter.get());
  for (uint32_t port : {7, 7, 8, 9}) filter->sportRangeIs({port, port});
  filter->sportRangeDel(*filter->sportRange().begin());  // a key that goes with its element
  EXPECT_EQ(log, "7 8 9 7 ");
  EXPECT_EQ(filter->attributeText("source"), "None");
  filter->sourceIs();
  EXPECT_EQ(filter->attributeText("source"), "Ptr('Naxel::IpPrefixList')");
  EXPECT_THROW(filter->attributeText("colour"), RangeError);
}

/// Does what the test asks of it.
struct Watcher : StageStatus::Notifiee {
  explicit Watcher(std::function<void()> f, Entity* status = nullptr) : act(std::move(f)) {
    notifierIs(status);
  }
  void onProgress() override {
    auto const doNow = act;  // a copy, because it may destroy this watcher
    doNow();
  }
  std::function<void()> act;
};

// A round calls, in the order of attachment, whoever is attached since its beginning. Handlers attach,
// detach and destroy others and themselves, run rounds of their own, and throw.
TEST(Entity, RandomRoundsCallTheNotifieesOfTheModel) {
  struct Attachment {
    size_t watcher;
    uint64_t number;
    bool operator==(Attachment const&) const = default;
  };
  std::mt19937 random(1);
  ::Test::TraceLog trace;
  Ptr<StageStatus> const status = makePtr<StageStatus>();
  std::vector<std::unique_ptr<Watcher>> watchers(6);
  std::vector<Attachment> attached;
  std::vector<std::vector<Attachment>> rounds;  // what is left of each that runs
  uint64_t attachments = 0;
  auto const next = [&] {
    auto& left = rounds.back();
    std::erase_if(left, [&](auto const& a) {
      return std::find(attached.begin(), attached.end(), a) == attached.end();
    });
    if (left.empty()) return watchers.size();
    size_t const watcher = left.front().watcher;
    left.erase(left.begin());
    return watcher;
  };
  auto const run = [&] {
    rounds.push_back(attached);
    status->progressInc();
    EXPECT_EQ(next(), watchers.size()) << "not called";
    rounds.pop_back();
  };
  std::function<void()> const change = [&] {
    size_t const n = random() % watchers.size();
    auto const isOfN = [&](Attachment const& a) { return a.watcher == n; };
    auto const what = random() % 6;
    if (what <= 1 || !watchers[n]) std::erase_if(attached, isOfN);
    if (what == 0 || !watchers[n])
      watchers[n] = std::make_unique<Watcher>([&, n] {
        EXPECT_EQ(n, next());
        for (auto i = random() % 3; i > 0; --i) change();
        if (random() % 32 == 0) throw RangeError("too late");
        if (random() % 32 == 0) throw 7;
      });
    if (what == 1) return watchers[n]->notifierIs(nullptr);
    // One that is attached already keeps its place.
    if (std::none_of(attached.begin(), attached.end(), isOfN))
      attached.push_back({n, ++attachments});
    watchers[n]->notifierIs(status.get());
    if (what == 5 && rounds.size() < 4) run();
  };
  for (int i = 0; i < 5000; ++i) {
    change();
    run();
  }
  EXPECT_GT(attachments, 5000u);
  for (std::string const text : {"a handler threw\n", "a handler threw: too late\n"})
    EXPECT_NE(trace.lines.find("Mox:0:Naxel::StageStatus: " + text), text.npos);
}

TEST(Entity, AnEntityDroppedByAHandlerLivesToTheEndOfTheRound) {
  Ptr<StageStatus> status = makePtr<StageStatus>();
  bool called = false;
  Watcher a([&] { status = nullptr; }, status.get());
  Watcher b([&] { called = a.notifier() && b.notifier(); }, status.get());
  status->progressInc();
  EXPECT_TRUE(called);
  EXPECT_FALSE(a.notifier() || b.notifier());
}

}  // namespace
}  // namespace Mox
