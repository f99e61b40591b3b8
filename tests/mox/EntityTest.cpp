// Attributes, collections and the rounds of notification.

#include "acl/ParamConfig.h"
#include "mox/Entity.h"
#include "mox/FlatSet.h"
#include "mox/HashMap.h"
#include "mox/OrderedMap.h"
#include "mox/Trace.h"

#include <functional>
#include <thread>

#include <gtest/gtest.h>

namespace Mox {
namespace {

class Lamp : public Entity {
 public:
  class Notifiee : public Mox::Notifiee {
   public:
    virtual void onLevel() {}
    virtual void onName() {}
    virtual void onPart(uint32_t const&) {}
  };
  explicit Lamp(bool* gone = nullptr) : gone_(gone) {}
  ~Lamp() override {
    if (gone_) *gone_ = true;
  }
  std::string_view fwkType() const override { return "Test::Lamp"; }
  AttributeTable const& attributeTable() const override {
    static AttributeTable const table = {
        attribute<&Lamp::level_>("level"), attribute<&Lamp::name_>("name"),
        attribute<&Lamp::twice>("twice"),  attribute<&Lamp::parts_>("parts"),
        attribute<&Lamp::peer_>("peer"),   operation("blink")};
    return table;
  }

  uint32_t level() const { return level_; }
  void levelIs(uint32_t v) { attrIs(level_, v, &Notifiee::onLevel); }
  std::string const& name() const { return name_; }
  void nameIs(std::string const& v) { attrIs(name_, v, &Notifiee::onName); }
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
  bool* gone_;
  uint32_t level_ = 0;
  std::string name_;
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
class Watcher : public Lamp::Notifiee {
 public:
  Watcher(char const* name, std::string& log, Entity* lamp = nullptr) : name_(name), log_(log) {
    notifierIs(lamp);
  }
  void onLevel() override {
    log_ += std::string(name_) + " ";
    if (auto const doNow = act) doNow();  // a copy, because it may destroy this watcher
  }
  void onName() override { log_ += std::string(name_) + ".name "; }
  void onPart(uint32_t const& key) override {
    log_ += std::string(name_) + std::to_string(key) + " ";
  }
  std::function<void()> act;

 private:
  char const* name_;
  std::string& log_;
};

struct EntityTest : ::testing::Test {
  std::string taken() { return std::exchange(log, {}); }
  std::string log;
  Ptr<Lamp> lamp = makePtr<Lamp>();
  Watcher a{"a", log, lamp.get()}, b{"b", log, lamp.get()}, c{"c", log, lamp.get()};
};

TEST_F(EntityTest, OnlyChangesAreToldInTheOrderOfAttachment) {
  lamp->levelIs(0);
  EXPECT_EQ(taken(), "");
  lamp->levelIs(4);
  lamp->levelIs(4);
  EXPECT_EQ(taken(), "a b c ");
  a.notifierIs(lamp.get());  // attached there already: keeps its place
  b.notifierIs(nullptr);
  lamp->levelIs(5);
  EXPECT_EQ(taken(), "a c ");
  b.notifierIs(lamp.get());
  lamp->nameIs("x");
  EXPECT_EQ(taken(), "a.name c.name b.name ");
}

TEST_F(EntityTest, CollectionsTellTheKeysThatChanged) {
  b.notifierIs(nullptr);
  c.notifierIs(nullptr);
  lamp->partIs(1, 10);
  lamp->partIs(1, 10);
  lamp->partIs(1, 11);
  lamp->partDel(2);
  lamp->partIs(3, 0);
  EXPECT_EQ(taken(), "a1 a1 a3 ");
  lamp->partDel(lamp->parts().begin()->first);  // a key that dies with its element
  EXPECT_EQ(taken(), "a1 ");
  lamp->partIs(9, 1);
  lamp->partDelAll();
  lamp->partDelAll();
  EXPECT_EQ(taken(), "a9 a3 a9 ");
  EXPECT_TRUE(lamp->parts().empty());
  lamp->markIs(7);
  lamp->markIs(7);
  lamp->markDel(lamp->marks().front());
  EXPECT_EQ(taken(), "a7 a7 ");
  Ptr<Lamp> const child = lamp->childIs(4);
  EXPECT_EQ(lamp->childIs(4), child);
  EXPECT_EQ(taken(), "a4 ");
}

TEST_F(EntityTest, ANotifieeThatLeavesInARoundIsNotCalled) {
  auto doomed = std::make_unique<Watcher>("d", log, lamp.get());
  a.act = [&] {
    b.notifierIs(nullptr);
    c.notifierIs(nullptr);
    doomed.reset();
  };
  lamp->levelIs(1);
  EXPECT_EQ(taken(), "a ");
  // The one that is being called may leave or be destroyed too.
  auto self = std::make_unique<Watcher>("s", log, lamp.get());
  c.notifierIs(lamp.get());
  a.act = [&] { a.notifierIs(nullptr); };
  self->act = [&] { self.reset(); };
  lamp->levelIs(2);
  EXPECT_EQ(taken(), "a s c ");
  lamp->levelIs(3);
  EXPECT_EQ(taken(), "c ");
}

TEST_F(EntityTest, ANotifieeThatComesInARoundIsCalledFromTheNextChangeOn) {
  Watcher late("l", log);
  a.act = [&] { late.notifierIs(lamp.get()); };
  b.act = [&] {  // leaving and coming back counts as coming
    b.notifierIs(nullptr);
    b.notifierIs(lamp.get());
    c.notifierIs(nullptr);
    c.notifierIs(lamp.get());
  };
  lamp->levelIs(1);
  EXPECT_EQ(taken(), "a b ");
  b.act = nullptr;
  lamp->levelIs(2);
  EXPECT_EQ(taken(), "a l b c ");
}

TEST_F(EntityTest, ANestedRoundRunsToItsEndBeforeTheOuterGoesOn) {
  Watcher late("l", log);
  b.act = [&] {
    if (lamp->level() != 1) return;
    late.notifierIs(lamp.get());
    lamp->levelIs(2);
    log += "| ";
  };
  lamp->levelIs(1);
  EXPECT_EQ(taken(), "a b a b c l | c ");
  // Who leaves in the inner round is left out of the outer one.
  b.act = [&] {
    if (lamp->level() == 3) lamp->levelIs(4);
  };
  a.act = [&] {
    if (lamp->level() != 4) return;
    c.notifierIs(nullptr);
    late.notifierIs(nullptr);
    late.notifierIs(lamp.get());
  };
  lamp->levelIs(3);
  EXPECT_EQ(taken(), "a b a b ");
}

TEST_F(EntityTest, AnEntityDroppedByAHandlerLivesToTheEndOfTheRound) {
  bool gone = false;
  lamp = makePtr<Lamp>(&gone);
  a.notifierIs(lamp.get());
  b.notifierIs(lamp.get());
  a.act = [&] {
    lamp = nullptr;
    EXPECT_FALSE(gone);
  };
  lamp->levelIs(1);
  EXPECT_EQ(taken(), "a b ");
  EXPECT_TRUE(gone);
  EXPECT_EQ(a.notifier(), nullptr);
  EXPECT_EQ(b.notifier(), nullptr);
}

TEST_F(EntityTest, AHandlerThatThrowsDoesNotStopTheRound) {
  std::vector<std::string> lines;
  TraceSink const before =
      traceSinkIs([&](TraceFacility const& f, int level, std::string const& text) {
        lines.push_back(f.name() + std::to_string(level) + text);
      });
  a.act = [] { throw RangeError("too bright"); };
  b.act = [] { throw 7; };
  EXPECT_NO_THROW(lamp->levelIs(1));
  traceSinkIs(before);
  EXPECT_EQ(taken(), "a b c ");
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].substr(0, 4), "Mox0");
  EXPECT_NE(lines[0].find("too bright"), std::string::npos);
}

TEST_F(EntityTest, ATreeMayBeBuiltOnOneThreadAndRunOnAnother) {
  std::thread([&] {
    lamp->levelIs(1);
    Watcher d("d", log, lamp.get());
    lamp->levelIs(2);
  }).join();
  EXPECT_EQ(taken(), "a b c a b c d ");
}

TEST(Entity, WatchersOfABaseAndOfTheTypeItselfSeeADerivedEntity) {
  struct TorchWatcher : Torch::Notifiee {
    void onLevel() override { ++levels; }
    void onBeam() override { ++beams; }
    int levels = 0, beams = 0;
  };
  std::string log;
  Ptr<Torch> const torch = makePtr<Torch>();
  Watcher base("a", log, torch.get());
  TorchWatcher own;
  own.notifierIs(torch.get());
  torch->levelIs(3);
  torch->beamIs(true);
  EXPECT_EQ(log, "a ");
  EXPECT_EQ(own.levels, 1);
  EXPECT_EQ(own.beams, 1);
  ASSERT_EQ(torch->attributeTable().size(), 7u);
  EXPECT_EQ(torch->attributeTable()[6].name, "beam");
  EXPECT_EQ(torch->attributeText("beam"), "true");
  EXPECT_EQ(torch->attributeText("level"), "3");
}

TEST(Entity, AttributesReadAsTextByName) {
  Ptr<Lamp> const lamp = makePtr<Lamp>();
  lamp->levelIs(21);
  lamp->nameIs("it's");
  std::string names;
  for (Attribute const& a : lamp->attributeTable()) names += std::string(a.name) + " ";
  EXPECT_EQ(names, "level name twice parts peer blink ");
  EXPECT_EQ(lamp->attributeText("peer"), "None");
  lamp->peerIs(makePtr<Torch>());
  lamp->partIs(4, 1);
  lamp->partIs(2, 3);
  struct Case {
    char const *name, *text;
  };
  for (Case const& c : {Case{"level", "21"}, Case{"name", "'it\\'s'"}, Case{"twice", "42"},
                        Case{"parts", "{4: 1, 2: 3}"}, Case{"peer", "Ptr('Test::Torch')"},
                        Case{"blink", "operation"}})
    EXPECT_EQ(lamp->attributeText(c.name), c.text) << c.name;
  EXPECT_THROW(lamp->attributeText("colour"), RangeError);
  EXPECT_EQ(Acl::paramConfigFactory()->attributeText("permitDuringUpdate"), "false");
}

}  // namespace
}  // namespace Mox
