/// The transforms: how overlapping sets are cut into disjoint pieces, checked on written examples
/// and, on random input, value by value against what the configuration says.

#include "mox/Trace.h"
#include "naxel/types/NaxelTrace.h"
#include "support/World.h"

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include <gtest/gtest.h>

using namespace Naxel;
using Lumox::IpGenPrefix;
using Test::World;

namespace {

using Names = std::set<std::string>;

/// A chip that labels every field in full width, without combinations.
void labelEverything(World& w) {
  for (RangeSetType t : allRangeSetTypes()) w.capability->rangeXformWidthIs(t, 16);
}

Mox::Ptr<GenSetIpRule> setRule(World const& w, std::string const& name) {
  return w.root->aggregatorStatus()->aclGenSetIpRuleList("a")->genSetIpRule(name);
}

/// The rules of ACL "a" whose set under `keyOf` has the label.
template <class KeyOf>
Names rulesWithLabel(World const& w, XformStatus const& status, PlainLabel label, KeyOf keyOf) {
  Names out;
  for (auto const& [name, rule] :
       w.root->aggregatorStatus()->aclGenSetIpRuleList("a")->genSetIpRule()) {
    auto const* list = status.plainLabelListMap()->plainLabelList(keyOf(*rule));
    if (list && list->labelHas(label)) out.insert(name);
  }
  return out;
}

auto const sourceOf = [](GenSetIpRule const& r) { return r.source(); };
auto const sportOf = [](GenSetIpRule const& r) { return r.sport(); };

/// " A:1,2 B:2" for the label lists of the rules' sets.
template <class KeyOf>
std::string lists(World const& w, XformStatus const& status, KeyOf keyOf) {
  std::map<std::string, std::string> out;
  for (auto const& [name, rule] :
       w.root->aggregatorStatus()->aclGenSetIpRuleList("a")->genSetIpRule()) {
    auto const* list = status.plainLabelListMap()->plainLabelList(keyOf(*rule));
    for (size_t i = 0; list && i < list->label().size(); ++i)
      out[name] += (i ? "," : "") + Mox::valueToStrep(list->label()[i]);
    out[name] += "";
  }
  std::string text;
  for (auto const& [name, list] : out) text += " " + name + ":" + list;
  return text;
}

/// Pieces in natural order carry 1, 2, 3, ... in the order of their first appearance, and pieces of
/// equal groups, and only those, share a label.
template <class LabelMap, class GroupOf>
void expectNaturalLabels(LabelMap const& pieces, GroupOf groupOf) {
  std::map<Names, PlainLabel> labels;
  uint32_t last = 0;
  for (auto const& [piece, label] : pieces) {
    EXPECT_LE(label.value(), last + 1) << piece;
    last = std::max(last, label.value());
    auto const [known, fresh] = labels.emplace(groupOf(label), label);
    EXPECT_EQ(known->second, label) << piece;
  }
  EXPECT_EQ(labels.size(), last);
}

struct Example {
  char const* rules;
  char const* wanted;
};

std::string prefixPieces(World const& w, PrefixXformKey const& key) {
  auto const status = w.root->prefixXformStatus(key);
  std::string out;
  for (auto const& [p, label] : status->prefixToLabelMap())
    out += Mox::valueToStrep(p) + "=" + Mox::valueToStrep(label) + " ";
  return out + "|" + lists(w, *status, sourceOf);
}

std::string rangePieces(World const& w, RangeSetType type = RangeSetType::srcPort) {
  auto const status = w.root->rangeSplitStatus(type);
  std::string out;
  for (auto const& [e, label] : status->rangeToPlainLabelMap())
    out += std::to_string(e.first()) + "-" + std::to_string(e.last()) + "=" +
           Mox::valueToStrep(label) + " ";
  return out + "|" + lists(w, *status, sportOf);
}

bool inList(IpPrefixList const& list, uint64_t hi, uint64_t lo) {
  auto const in = [&](IpGenPrefix const& p) { return p.containsAddress(hi, lo); };
  return std::any_of(list.addr().begin(), list.addr().end(), in) &&
         std::none_of(list.exceptAddr().begin(), list.exceptAddr().end(), in);
}

/// Lines traced at level 0 while it lives.
class Failures {
 public:
  Failures() {
    old_ = Mox::traceSinkIs([this](auto const&, int, std::string const& t) { text += t + "\n"; });
  }
  ~Failures() { Mox::traceSinkIs(old_); }
  std::string text;

 private:
  Mox::TraceSink old_;
};

}  // namespace

TEST(Transform, PrefixesAreCutAlongTheirTree) {
  Example const cases[] = {
      {"a 1 A src 10.0.0.0/8", "10.0.0.0/8=1 | A:1"},
      {"a 1 A src 10.0.0.0/8\na 2 B src 10.1.0.0/16", "10.0.0.0/8=1 10.1.0.0/16=2 | A:1,2 B:2"},
      {"a 1 A src 10.0.0.0/8,!10.1.0.0/16", "10.0.0.0/8=1 10.1.0.0/16=2 | A:1"},
      {"a 1 A src 10.0.0.0/8,!10.1.0.0/16\na 2 B src 10.1.2.0/24",
       "10.0.0.0/8=1 10.1.0.0/16=2 10.1.2.0/24=3 | A:1 B:3"},
      {"a 1 A src 10.0.0.0/8,!10.1.0.0/16\na 2 B src 10.1.0.0/16",
       "10.0.0.0/8=1 10.1.0.0/16=2 | A:1 B:2"},
      {"a 1 A src 10.0.0.0/8\na 2 B src 10.0.0.0/8,!11.0.0.0/8",
       "10.0.0.0/8=1 11.0.0.0/8=2 | A:1 B:1"},
      {"a 1 A src 10.0.0.0/8\na 2 B src 12.0.0.0/8,10.0.0.0/8",
       "10.0.0.0/8=1 12.0.0.0/8=2 | A:1 B:1,2"},
      // Its own except prefix beats a prefix of the list at it, below it and above it.
      {"a 1 A src 10.0.0.0/8,10.1.2.0/24,!10.1.0.0/16",
       "10.0.0.0/8=1 10.1.0.0/16=2 10.1.2.0/24=2 | A:1"},
      {"a 1 A src 10.0.0.0/8,10.1.0.0/16,!10.1.0.0/16", "10.0.0.0/8=1 10.1.0.0/16=2 | A:1"},
      {"a 1 A src 10.1.0.0/16,!10.0.0.0/8", "10.0.0.0/8=1 10.1.0.0/16=1 | A:"},
      {"a 1 A src !10.0.0.0/8", "10.0.0.0/8=1 | A:"},
      // An except prefix within an except prefix of another set.
      {"a 1 A src 10.0.0.0/8,!10.1.0.0/16\na 2 B src 10.0.0.0/8,!10.1.2.0/24",
       "10.0.0.0/8=1 10.1.0.0/16=2 10.1.2.0/24=3 | A:1 B:1,2"},
      {"a 1 A src 10.1.2.3/8\na 2 B src 10.9.9.9/8,!10.9.9.9/16",
       "10.0.0.0/8=1 10.9.0.0/16=2 | A:1,2 B:1"},
      {"a 1 A src 0.0.0.0/0\na 2 B src 0.0.0.0/0,!255.255.255.255/32",
       "0.0.0.0/0=1 255.255.255.255/32=2 | A:1,2 B:1"}};
  for (auto const& [rules, wanted] : cases) {
    SCOPED_TRACE(rules);
    World w(rules);
    EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess);
    EXPECT_EQ(prefixPieces(w, {Lumox::ipv4(), true}), wanted);
  }
  World v6(
      "a 1 A src ::/0,!2001:db8::/32\n"
      "a 2 B src 2001:db8::1/128\n");
  v6.kick();
  EXPECT_EQ(prefixPieces(v6, {Lumox::ipv6(), true}),
            "::/0=1 2001:db8::/32=2 2001:db8::1/128=3 | A:1 B:3");
  EXPECT_TRUE(v6.root->prefixXformStatus({Lumox::ipv4(), true})->prefixToLabelMap().empty());
}

TEST(Transform, RangesAreCutAtTheirEnds) {
  Example const cases[] = {
      {"a 1 A sport 1-10\na 2 B sport 5-20", "1-4=1 5-10=2 11-20=3 | A:1,2 B:2,3"},
      {"a 1 A sport 1-10\na 2 B sport 11-20", "1-10=1 11-20=2 | A:1 B:2"},
      {"a 1 A sport 1-10\na 2 B sport 10-20", "1-9=1 10-10=2 11-20=3 | A:1,2 B:2,3"},
      {"a 1 A sport 80", "80-80=1 | A:1"},
      {"a 1 A sport 0-65535", "0-65535=1 | A:1"},
      {"a 1 A sport 0-65535\na 2 B sport 65535\na 3 C sport 0",
       "0-0=1 1-65534=2 65535-65535=3 | A:1,2,3 B:3 C:1"},
      {"a 1 A sport 1-10,20-30", "1-10=1 20-30=1 | A:1"},
      {"a 1 A sport 1-10,5-20", "1-20=1 | A:1"},
      {"a 1 A sport 1-10,10-20", "1-20=1 | A:1"},
      {"a 1 A sport 1-10,1-20", "1-20=1 | A:1"},
      {"a 1 A sport 1-20,5-10,12-20", "1-20=1 | A:1"},
      {"a 1 A sport 1-10,11-20", "1-10=1 11-20=1 | A:1"},
      {"a 1 A sport 1-10,11-20\na 2 B sport 10-11", "1-9=1 10-10=2 11-11=2 12-20=1 | A:1,2 B:2"}};
  for (auto const& [rules, wanted] : cases) {
    SCOPED_TRACE(rules);
    World w;
    labelEverything(w);
    w.rules(rules);
    EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess);
    EXPECT_EQ(rangePieces(w), wanted);
  }
}

TEST(Transform, EveryAddressGetsThePieceOfExactlyTheSetsThatHoldIt) {
  std::mt19937 random(7);
  for (int round = 0; round < 120; ++round) {
    SCOPED_TRACE(round);
    bool const v6 = round % 2;
    unsigned const base = v6 && round % 4 == 1 ? 58 : 0;  // around the middle of an IPv6 address
    auto const prefix = [&] {
      uint64_t const bits = random() % 1024;
      auto const length = static_cast<uint8_t>(base + random() % 11);
      if (!v6) return IpGenPrefix::v4(static_cast<uint32_t>(bits << 22 | random() % 64), length);
      if (base == 0) return IpGenPrefix::v6(bits << 54 | random() % 64, random(), length);
      return IpGenPrefix::v6(bits >> 4, bits << 60 | random(), length);
    };
    World w;
    std::vector<IpGenPrefix> all;
    auto const acl = w.acls->aclIs("a");
    for (unsigned r = 0, count = 1 + random() % 5; r < count; ++r) {
      auto const rule = acl->ruleByNameIs("r" + std::to_string(r));
      acl->ruleByIdIs(AceIndex(r), rule);
      auto const list = rule->ruleFilterIs()->sourceIs();
      for (unsigned i = 0, n = 1 + random() % 4; i < n; ++i) {
        list->addrIs(all.emplace_back(prefix()));
        if (random() % 2) list->exceptAddrIs(all.emplace_back(prefix()));
      }
    }
    ASSERT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess);
    auto const status = w.root->prefixXformStatus({all[0].af(), true});
    auto const groupOf = [&](PlainLabel l) { return rulesWithLabel(w, *status, l, sourceOf); };
    std::vector<std::pair<uint64_t, uint64_t>> probes;
    for (IpGenPrefix const& p : all) {
      for (auto const& [hi, lo] : {p.firstAddress(), p.lastAddress()}) {
        probes.emplace_back(hi, lo);
        if (!v6) {  // the neighbours on both sides
          probes.emplace_back(hi + (uint64_t{1} << 32), lo);
          probes.emplace_back(hi - (uint64_t{1} << 32), lo);
        } else {
          probes.emplace_back(lo == ~uint64_t{0} ? hi + 1 : hi, lo + 1);
          probes.emplace_back(lo == 0 ? hi - 1 : hi, lo - 1);
        }
      }
    }
    for (auto const& [hi, lo] : probes) {
      uint64_t const address = v6 ? hi : hi & 0xffffffff00000000u;
      uint64_t const low = v6 ? lo : 0;
      Names wanted;
      for (auto const& [name, rule] : acl->ruleByName())
        if (inList(*rule->ruleFilter()->source(), address, low)) wanted.insert(name);
      std::pair<IpGenPrefix, PlainLabel> const* longest = nullptr;
      for (auto const& entry : status->prefixToLabelMap().items())
        if (entry.first.containsAddress(address, low) &&
            (!longest || entry.first.length() > longest->first.length()))
          longest = &entry;
      EXPECT_EQ(longest ? groupOf(longest->second) : Names(), wanted) << address << " " << low;
    }
    expectNaturalLabels(status->prefixToLabelMap(), groupOf);
  }
}

TEST(Transform, EveryPortAndPairOfPortsGetsThePieceOfExactlyTheSetsThatHoldIt) {
  std::mt19937 random(11);
  for (int round = 0; round < 80; ++round) {
    SCOPED_TRACE(round);
    unsigned const offset = round % 2 ? 65536 - 24 : 0;
    auto const range = [&] {
      unsigned const first = random() % 24;
      unsigned const last = std::min(23u, first + static_cast<unsigned>(random() % 9));
      return L4PortRange(offset + first, offset + last);
    };
    World w;
    labelEverything(w);
    w.capability->comboXformWidthIs(ComboLabelSetType::srcDstL4Port, 16);
    auto const acl = w.acls->aclIs("a");
    for (unsigned r = 0, count = 1 + random() % 5; r < count; ++r) {
      auto const rule = acl->ruleByNameIs("r" + std::to_string(r));
      acl->ruleByIdIs(AceIndex(r), rule);
      for (unsigned i = 0, n = 1 + random() % 3; i < n; ++i) {
        rule->ruleFilterIs()->sportRangeIs(range());
        rule->ruleFilterIs()->dportRangeIs(range());
      }
    }
    ASSERT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess);

    auto const holders = [&](bool src, uint32_t port) {
      Names out;
      for (auto const& [name, rule] : acl->ruleByName()) {
        auto const& coll =
            src ? rule->ruleFilter()->sportRange() : rule->ruleFilter()->dportRange();
        for (auto const& r : coll)
          if (r.rangeStart() <= port && port <= r.rangeEnd()) out.insert(name);
      }
      return out;
    };
    // Port to label on both sides; 0 where no piece holds the port.
    std::map<uint32_t, PlainLabel> labels[2];
    for (bool src : {false, true}) {
      auto const status =
          w.root->rangeSplitStatus(src ? RangeSetType::srcPort : RangeSetType::dstPort);
      auto const groupOf = [&](PlainLabel l) {
        return rulesWithLabel(w, *status, l,
                              [&](GenSetIpRule const& r) { return src ? r.sport() : r.dport(); });
      };
      for (uint32_t port = offset; port < offset + 24; ++port) {
        unsigned pieces = 0;
        for (auto const& [e, label] : status->rangeToPlainLabelMap())
          if (e.first() <= port && port <= e.last()) ++pieces, labels[src][port] = label;
        EXPECT_LE(pieces, 1u) << port;
        EXPECT_EQ(pieces ? groupOf(labels[src][port]) : Names(), holders(src, port)) << port;
      }
      expectNaturalLabels(status->rangeToPlainLabelMap(), groupOf);
    }
    auto const type = ComboLabelSetType::srcDstL4Port;
    auto const info = w.root->comboLabelResolverStatus(type)->comboLabelInfo();
    auto const split = w.root->comboLabelSplitStatus(type);
    auto const groupOf = [&](PlainLabel l) {
      return rulesWithLabel(w, *split, l, [&](GenSetIpRule const& r) {
        return info->srcDstToComboMap(r.comboPair(type));
      });
    };
    for (auto const& [s, srcLabel] : labels[1])
      for (auto const& [d, dstLabel] : labels[0]) {
        Names wanted;
        Names const dst = holders(false, d);
        for (auto const& name : holders(true, s))
          if (dst.contains(name)) wanted.insert(name);
        auto const* label = split->comboToPlainLabelMap().get({srcLabel, dstLabel});
        EXPECT_EQ(label ? groupOf(*label) : Names(), wanted) << s << " " << d;
      }
    expectNaturalLabels(split->comboToPlainLabelMap(), groupOf);
  }
}

TEST(Transform, EqualProductsAndRepeatedPairsShareOneCombination) {
  World w;
  labelEverything(w);
  auto const type = ComboLabelSetType::srcDstL4Port;
  w.capability->comboXformWidthIs(type, 8);
  w.rules(
      "a 1 A sport 1-10,5-20 dport 5\n"
      "a 2 B sport 1-20 dport 5\n"
      "a 3 C sport 1-20 dport 5\n"
      "a 4 D sport 1-20\n"
      "b 1 A sport 1-20 dport 6\n");
  w.kick();
  auto const status = w.root->comboLabelResolverStatus(type);
  auto const info = status->comboLabelInfo();
  auto const comboOf = [&](char const* name) {
    return info->srcDstToComboMap(setRule(w, name)->comboPair(type));
  };
  EXPECT_TRUE(comboOf("A"));
  EXPECT_EQ(comboOf("A"), comboOf("B"));
  EXPECT_FALSE(comboOf("D"));
  EXPECT_EQ(status->genSetUsageInfo()->refCountValue(comboOf("A")), 3u);
  EXPECT_EQ(info->comboLabelSetColl().size(), 2u);
  GenSetKey const kept = comboOf("A");
  w.rules("b 1 A sport 1-20\n");
  w.kick();
  EXPECT_EQ(comboOf("A"), kept);
  EXPECT_EQ(info->comboLabelSetColl().size(), 1u);
  w.capability->comboXformWidthIs(type, 0);
  w.kick();
  EXPECT_EQ(status->status(), StageStatusType::finishedNotEnabled);
  EXPECT_FALSE(comboOf("A"));
  EXPECT_TRUE(info->comboLabelSetColl().empty());
}

TEST(Transform, AWidthHoldsAllButOneOfItsValuesAndThenFailsEveryTime) {
  struct Case {
    char const* machine;
    char const* field;
    char const* value[8];
    StageStatus const& (*statusOf)(World const&);
    void (*widthIs)(World&, uint8_t);
  };
  PrefixXformKey static const v4(Lumox::ipv4(), true);
  Case const cases[] = {
      {"PrefixXformSm(ipv4, src)",
       "src",
       {"10.0.0.0/8", "11.0.0.0/8", "12.0.0.0/8", "13.0.0.0/8", "14.0.0.0/8", "15.0.0.0/8",
        "16.0.0.0/8", "17.0.0.0/8"},
       [](World const& w) -> StageStatus const& { return *w.root->prefixXformStatus(v4); },
       [](World& w, uint8_t n) { w.capability->prefixXformWidthIs(v4, n); }},
      {"RangeSplitSm(dscp)",
       "dscp",
       {"1", "2", "3", "4", "5", "6", "7", "8"},
       [](World const& w) -> StageStatus const& {
         return *w.root->rangeSplitStatus(RangeSetType::dscp);
       },
       [](World& w, uint8_t n) { w.capability->rangeXformWidthIs(RangeSetType::dscp, n); }}};
  for (Case const& c : cases)
    for (uint8_t width = 1; width <= 3; ++width) {
      SCOPED_TRACE(std::string(c.machine) + " " + std::to_string(width));
      Failures failures;
      World w;
      c.widthIs(w, width);
      size_t const limit = (size_t{1} << width) - 1;
      auto const rule = [&](size_t i) {
        return "a " + std::to_string(i) + " r" + std::to_string(i) + " " + c.field + " " +
               c.value[i] + "\n";
      };
      for (size_t i = 0; i < limit; ++i) w.rules(rule(i));
      EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess);
      EXPECT_EQ(failures.text, "");
      w.kick();
      EXPECT_EQ(c.statusOf(w).status(), StageStatusType::finishedSkipped);
      w.rules(rule(limit));
      for (int again = 0; again < 3; ++again) {
        failures.text.clear();
        EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedFail);
        bool const first = again == 0;
        EXPECT_EQ(c.statusOf(w).status(),
                  first ? StageStatusType::finishedFailed : StageStatusType::finishedSkipped);
        EXPECT_EQ(failures.text.find(std::string(c.machine) +
                                     "::doStartKick: Generated too many disjoint sets : " +
                                     std::to_string(limit) + "\n") != std::string::npos,
                  first)
            << failures.text;
        EXPECT_NE(w.failureText().find(std::to_string(limit + 1)), std::string::npos)
            << w.failureText();
        EXPECT_TRUE(dynamic_cast<XformStatus const&>(c.statusOf(w)).outputUnusable());
      }
      c.widthIs(w, static_cast<uint8_t>(width + 1));
      EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess) << w.failureText();
      c.widthIs(w, width);
      EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedFail);
      w.acls->acl("a")->ruleByNameDel("r0");
      EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess) << w.failureText();
    }
}
