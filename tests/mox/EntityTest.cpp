// Attributes, collections and the rounds of notification.

#include "mox/Entity.h"
#include "mox/FlatSet.h"
#include "mox/HashMap.h"
#include "mox/OrderedMap.h"
#include "support/TraceLog.h"

#include <algorithm>
#include <functional>
#include <random>

#include <gtest/gtest.h>

namespace Mox {
namespace {

class Lamp : public Entity {
 public:
  class Notifiee : public Mox::Notifiee {
   public:
    virtual void onLevel() {}
    virtual void onPart(uint32_t const&) {}
  };
  std::string_view fwkType() const override { return "Test::Lamp"; }
  AttributeTable const& attributeTable() const override {
    static AttributeTable const table = {
        attribute<&Lamp::level_>("level"), attribute<&Lamp::twice>("twice"),
        attribute<&Lamp::parts_>("parts"), attribute<&Lamp::peer_>("peer"), operation("blink")};
    return table;
  }

  uint32_t level() const { return level_; }
  void levelIs(uint32_t v) { attrIs(level_, v, &Notifiee::onLevel); }
  uint32_t twice() const { return 2 * level_; }
  void peerIs(Ptr<Lamp> v) { peer_ = std::move(v); }

  HashMap<uint32_t, uint32_t> const& parts() const { return parts_; }
  void partIs(uint32_t key, uint32_t v) { itemSet(parts_, key, v, &Notifiee::onPart); }
  void partDel(uint32_t const& key) { itemDel(parts_, key, &Notifiee::onPart); }
  void partDelAll() { collDelAll(parts_, &Notifiee::onPart); }
  FlatSet<uint32_t> const& marks() const { return marks_; }
  void markIs(uint32_t key) { memberIs(marks_, key, &Notifiee::onPart); }
  void markDel(uint32_t const& key) { itemDel(marks_, key, &Notifiee::onPart); }
  Ptr<Lamp> childIs(uint32_t key) {
    return itemIs(children_, key, &Notifiee::onPart, [] { return makePtr<Lamp>(); });
  }

 private:
  uint32_t level_ = 0;
  HashMap<uint32_t, uint32_t> parts_;
  FlatSet<uint32_t> marks_;
  OrderedMap<uint32_t, Ptr<Lamp>> children_;
  Ptr<Lamp> peer_;
};

/// A lamp of a derived type, whose watchers may be those of a Lamp or its own.
class Torch : public Lamp {
 public:
  class Notifiee : public Lamp::Notifiee {
   public:
    virtual void onBeam() {}
  };
  std::string_view fwkType() const override { return "Test::Torch"; }
  AttributeTable const& attributeTable() const override {
    static AttributeTable const table =
        joinTables(Lamp::attributeTable(), {attribute<&Torch::beam_>("beam")});
    return table;
  }
  void beamIs(bool v) { attrIs(beam_, v, &Notifiee::onBeam); }

 private:
  bool beam_ = false;
};

/// Writes what it is told to a log, then does what the test asks of it.
template <class Watched>
class Watcher : public Watched::Notifiee {
 public:
  Watcher(std::string name, std::string& log, Entity* lamp) : name_(std::move(name)), log_(log) {
    this->notifierIs(lamp);
  }
  void onLevel() override {
    log_ += name_ + " ";
    if (auto const doNow = act) doNow();  // a copy, because it may destroy this watcher
  }
  void onPart(uint32_t const& key) override { log_ += name_ + std::to_string(key) + " "; }
  std::function<void()> act;

 protected:
  std::string name_;
  std::string& log_;
};

struct TorchWatcher : Watcher<Torch> {
  using Watcher::Watcher;
  void onBeam() override { log_ += name_ + ".beam "; }
};

struct EntityTest : ::testing::Test {
  std::string taken() { return std::exchange(log, {}); }
  std::string log;
  Ptr<Lamp> lamp = makePtr<Lamp>();
  Watcher<Lamp> a{"a", log, lamp.get()}, b{"b", log, lamp.get()};
};

TEST_F(EntityTest, OnlyChangesAreToldWithTheirKeys) {
  a.notifierIs(lamp.get());  // attached there already: keeps its place
  lamp->levelIs(0);
  EXPECT_EQ(taken(), "");
  lamp->levelIs(4);
  lamp->levelIs(4);
  EXPECT_EQ(taken(), "a b ");
  b.notifierIs(nullptr);
  lamp->partIs(1, 10);
  lamp->partIs(1, 10);
  lamp->partIs(1, 11);
  lamp->partDel(2);
  lamp->partIs(3, 0);
  EXPECT_EQ(taken(), "a1 a1 a3 ");
  lamp->partDel(lamp->parts().begin()->first);  // a key that dies with its element
  lamp->partIs(9, 1);
  lamp->partDelAll();
  lamp->partDelAll();
  EXPECT_EQ(taken(), "a1 a9 a3 a9 ");
  EXPECT_TRUE(lamp->parts().empty());
  lamp->markIs(7);
  lamp->markIs(7);
  lamp->markDel(lamp->marks().front());
  Ptr<Lamp> const child = lamp->childIs(4);
  EXPECT_EQ(lamp->childIs(4), child);
  EXPECT_EQ(taken(), "a7 a7 a4 ");
}

// A round calls, in the order of attachment, whoever is attached since its beginning. Handlers attach,
// detach and destroy others and themselves, and run rounds of their own.
TEST(Entity, RandomRoundsCallTheNotifieesOfTheModel) {
  struct Attachment {
    size_t watcher;
    uint64_t number;
    bool operator==(Attachment const&) const = default;
  };
  std::mt19937 random(1);
  std::string log;
  Ptr<Lamp> const lamp = makePtr<Lamp>();
  std::vector<std::unique_ptr<Watcher<Lamp>>> watchers(6);
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
    lamp->levelIs(lamp->level() + 1);
    EXPECT_EQ(next(), watchers.size()) << "not called";
    rounds.pop_back();
  };
  std::function<void()> const change = [&] {
    size_t const n = random() % watchers.size();
    auto const what = random() % 6;
    bool const was = std::erase_if(attached, [&](auto const& a) { return a.watcher == n; });
    if (what == 0 || !watchers[n]) {
      watchers[n] = std::make_unique<Watcher<Lamp>>("", log, nullptr);
      watchers[n]->act = [&, n] {
        EXPECT_EQ(n, next());
        for (auto i = random() % 3; i > 0; --i) change();
      };
    } else if (what == 1 || was) {
      watchers[n]->notifierIs(nullptr);
    }
    if (what > 1) attached.push_back({n, ++attachments}), watchers[n]->notifierIs(lamp.get());
    if (what == 5 && rounds.size() < 4) run();
  };
  for (int i = 0; i < 5000; ++i) {
    change();
    run();
  }
  EXPECT_GT(attachments, 10000u);
}

TEST_F(EntityTest, AnEntityDroppedByAHandlerLivesToTheEndOfTheRound) {
  a.act = [&] {
    lamp = nullptr;
    EXPECT_TRUE(a.notifier());
  };
  lamp->levelIs(1);
  EXPECT_EQ(taken(), "a b ");
  EXPECT_EQ(a.notifier(), nullptr);
  EXPECT_EQ(b.notifier(), nullptr);
}

TEST_F(EntityTest, AHandlerThatThrowsDoesNotStopTheRound) {
  ::Test::TraceLog trace;
  Watcher<Lamp> c("c", log, lamp.get());
  a.act = [] { throw RangeError("too bright"); };
  b.act = [] { throw 7; };
  EXPECT_NO_THROW(lamp->levelIs(1));
  EXPECT_EQ(taken(), "a b c ");
  EXPECT_EQ(trace.lines,
            "Mox:0:Test::Lamp: a handler threw: too bright\nMox:0:Test::Lamp: a handler threw\n");
}

TEST_F(EntityTest, ADerivedEntityHasTheAttributesAndWatchersOfItsBaseToo) {
  Ptr<Torch> const torch = makePtr<Torch>();
  a.notifierIs(torch.get());
  TorchWatcher own("t", log, torch.get());
  torch->levelIs(21);
  torch->beamIs(true);
  EXPECT_EQ(taken(), "a t t.beam ");
  torch->partIs(4, 1);
  torch->partIs(2, 3);
  auto const text = [&] {
    std::string out;
    for (Attribute const& at : torch->attributeTable())
      out += std::string(at.name) + "=" + torch->attributeText(at.name) + " ";
    return out;
  };
  EXPECT_EQ(text(), R"(level=21 twice=42 parts={4: 1, 2: 3} peer=None blink=operation beam=true )");
  torch->peerIs(makePtr<Torch>());
  EXPECT_EQ(torch->attributeText("peer"), "Ptr('Test::Torch')");
  EXPECT_THROW(torch->attributeText("colour"), RangeError);
}

}  // namespace
}  // namespace Mox
