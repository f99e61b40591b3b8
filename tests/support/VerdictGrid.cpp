#include "support/VerdictGrid.h"

#include "verify/AddressSet.h"
#include "verify/Packet.h"
#include "verify/Random.h"
#include "verify/RuleOracle.h"

#include <algorithm>
#include <bit>
#include <map>
#include <set>

namespace Test {

using namespace Naxel;
using Verify::Address;
using Verify::AddressSet;
using Verify::Field;
namespace Fields = Verify::Fields;
using Verify::KeyLayout;
using Verify::Packet;
using Label = std::optional<uint16_t>;

namespace {

constexpr size_t mostDifferences = 5;

/// The values that a field's classes stand for have the same rows of bits: the rules that such a
/// value lets through, and behind them the entries.
struct Class {
  std::vector<uint64_t> bits;
  Label label;     // by which a combination is looked up
  Packet example;  // the fields of the axis are filled in
};
using Axis = std::vector<Class>;

/// The part of the packet that an axis stands for, copied into another.
using Fill = void (*)(Packet const& from, Packet& to);

/// One ACL and its part of the output.
class AclGrid {
 public:
  AclGrid(AclConfig const& acl, PDAclRuleColl const& out, PDData const& data,
          KeyLayout const& layout, GridResult& result)
      : data_(data), layout_(layout), key_(out.typeKey()), result_(result) {
    for (auto const& [index, rule] : acl.ruleById())
      rules_.push_back({index, rule->ruleFilter().get(), side(rule->ruleFilter().get(), true),
                        side(rule->ruleFilter().get(), false)});
    for (auto const& [index, rule] : out.rule())
      for (PDAclFilter const& entry : rule->filter()) entries_.push_back({index, &entry});
    ruleWords_ = (rules_.size() + 63) / 64;
    words_ = ruleWords_ + (entries_.size() + 63) / 64;
  }

  void compare(uint64_t budget, uint64_t seed) {
    bool const ports =
        !layout_.isRaw(RangeSetType::srcPort) && !layout_.isRaw(RangeSetType::dstPort);
    axes_.push_back(pairAxis(addressAxis(true), addressAxis(false), Fields::prefixCombo,
                             prefixComboType(key_.af()), true,
                             [](Packet const& from, Packet& to) { to.dst = from.dst; }));
    axes_.push_back(pairAxis(valueAxis(RangeSetType::srcPort), valueAxis(RangeSetType::dstPort),
                             Fields::portCombo, ComboLabelSetType::srcDstL4Port, ports,
                             [](Packet const& from, Packet& to) { to.dport = from.dport; }));
    for (RangeSetType type : {RangeSetType::proto, RangeSetType::icmp, RangeSetType::length,
                              RangeSetType::fragment, RangeSetType::dscp})
      axes_.push_back(type == RangeSetType::proto ? protocolAxis() : valueAxis(type));

    uint64_t all = 1;
    for (Axis const& axis : axes_) all = std::min(budget + 1, all * axis.size());
    chosen_.resize(axes_.size());
    if (all <= budget) {
      std::vector<uint64_t> const ones(words_, ~uint64_t{0});
      descend(0, ones);
      return;
    }
    result_.complete = false;
    Verify::Random random(seed);
    for (uint64_t i = 0; i < budget; ++i) {
      std::vector<uint64_t> bits(words_, ~uint64_t{0});
      for (size_t a = 0; a < axes_.size(); ++a) {
        chosen_[a] = &axes_[a][random.below(axes_[a].size())];
        for (size_t w = 0; w < words_; ++w) bits[w] &= chosen_[a]->bits[w];
      }
      judge(bits);
    }
  }

 private:
  struct Rule {
    AceIndex index;
    RuleFilter const* filter;  // null: matches everything
    AddressSet source;
    AddressSet destination;
  };
  struct Entry {
    AceIndex rule;
    PDAclFilter const* match;
  };

  AddressSet side(RuleFilter const* filter, bool source) const {
    if (!filter) return {};
    return {(source ? filter->source() : filter->destination()).get(), key_.af()};
  }
  void pass(Class& c, size_t firstWord, size_t i) const {
    c.bits[firstWord + i / 64] |= uint64_t{1} << i % 64;
  }
  /// Lets the entries through whose mask for a field is 0 or whose value agrees.
  void passEntries(Class& c, Field field, Label label) const {
    for (size_t i = 0; i < entries_.size(); ++i) {
      auto const& match = entries_[i].match->labelField(field);
      if (match.mask().value() == 0 || (label && match.matches(*label))) pass(c, ruleWords_, i);
    }
  }
  static void addClass(Axis& axis, std::map<std::pair<std::vector<uint64_t>, Label>, size_t>& seen,
                       Class c) {
    if (seen.emplace(std::pair(c.bits, c.label), axis.size()).second) axis.push_back(std::move(c));
  }

  Axis addressAxis(bool source) const {
    auto const& table = *data_.pdPrefixXformEntryColl(PrefixXformKey(key_.af(), source));
    unsigned const bits = Verify::addressBits(key_.af());
    std::set<Address> cuts = {Address{}};
    auto const cut = [&](Verify::Interval const& i) {
      cuts.insert(i.first);
      cuts.insert(Verify::nextAddress(i.last & Verify::networkMask(bits), bits));
    };
    for (Rule const& rule : rules_) {
      AddressSet const& list = source ? rule.source : rule.destination;
      for (auto const& i : list.addr()) cut(i);
      for (auto const& i : list.except()) cut(i);
    }
    for (auto const& e : table.entry()) cut(Verify::intervalOf(e.key()));

    Axis axis;
    std::map<std::pair<std::vector<uint64_t>, Label>, size_t> seen;
    for (Address const a : cuts) {
      Class c{std::vector<uint64_t>(words_), std::nullopt, Packet()};
      (source ? c.example.src : c.example.dst) = a;
      for (size_t r = 0; r < rules_.size(); ++r)
        if ((source ? rules_[r].source : rules_[r].destination).contains(a)) pass(c, 0, r);
      int longest = -1;
      for (auto const& e : table.entry())
        if (Verify::intervalOf(e.key()).contains(a) && e.key().length() > longest) {
          longest = e.key().length();
          c.label = e.value().value();
        }
      if (!c.label) c.label = layout_.miss(layout_.prefixWidth(key_.af(), source));
      passEntries(c, source ? Fields::source : Fields::destination, c.label);
      addClass(axis, seen, std::move(c));
    }
    return axis;
  }

  /// The values at which rules or entries can change their mind about a field.
  std::set<uint32_t> valueCuts(RangeSetType type) const {
    uint32_t const bound = rangeField(type).bound();
    std::set<uint32_t> cuts = {0};
    auto const cut = [&](uint32_t first, uint32_t last) {
      cuts.insert(first);
      cuts.insert(last + 1);
    };
    for (Rule const& rule : rules_)
      if (rule.filter) forRanges(*rule.filter, type, cut);
    if (!layout_.isRaw(type)) {
      for (auto const& e : data_.rangeColl(type)->entry()) cut(e.key().first(), e.key().last());
    } else {
      for (Entry const& entry : entries_) {
        auto const& match = entry.match->labelField(rangeField(type).tcamField);
        uint32_t const mask = match.mask().value();
        uint32_t const open = bound & ~mask;
        uint32_t const run = open & ~(open + 1);  // the open bits at the low end
        // The values that match are runs of numbers, one for each value of the other open bits.
        for (uint32_t high = open & ~run, v = high;; v = (v - 1) & high) {
          uint32_t const first = (match.label().value() & mask) | v;
          cut(first, first | run);
          if (v == 0) break;
        }
      }
    }
    cuts.erase(cuts.upper_bound(bound), cuts.end());
    return cuts;
  }
  template <class F>
  static void forRanges(RuleFilter const& filter, RangeSetType type, F f) {
    filter.forEachRangeColl([&](RangeSetType t, auto const& ranges) {
      if (t == type)
        for (auto const& r : ranges) f(r.rangeStart(), r.rangeEnd());
    });
  }

  Class valueClass(RangeSetType type, uint16_t v) const {
    Class c{std::vector<uint64_t>(words_), std::nullopt, Packet()};
    c.example.valueIs(type, v);
    for (size_t r = 0; r < rules_.size(); ++r) {
      bool constrained = false;
      bool inside = false;
      if (rules_[r].filter)
        forRanges(*rules_[r].filter, type, [&](uint32_t first, uint32_t last) {
          constrained = true;
          inside = inside || (first <= v && v <= last);
        });
      if (!constrained || inside) pass(c, 0, r);
    }
    if (layout_.isRaw(type)) {
      c.label = v;
    } else {
      for (auto const& e : data_.rangeColl(type)->entry())
        if (e.key().first() <= v && v <= e.key().last()) c.label = e.value().value();
      if (!c.label) c.label = layout_.miss(layout_.range[static_cast<size_t>(type)]);
    }
    passEntries(c, rangeField(type).tcamField, c.label);
    return c;
  }

  Axis valueAxis(RangeSetType type) const {
    // Raw values differ one by one; only a port is looked up again by its label.
    bool const combined =
        (type == RangeSetType::srcPort || type == RangeSetType::dstPort) && !layout_.isRaw(type);
    Axis axis;
    std::map<std::pair<std::vector<uint64_t>, Label>, size_t> seen;
    for (uint32_t const v : valueCuts(type)) {
      Class c = valueClass(type, static_cast<uint16_t>(v));
      if (!combined) c.label.reset();
      addClass(axis, seen, std::move(c));
    }
    return axis;
  }

  /// The protocols, each with the TCP flags that a packet may carry: they count for TCP only.
  Axis protocolAxis() const {
    std::set<uint32_t> cuts = valueCuts(RangeSetType::proto);
    cuts.insert({Packet::protoTcp, Packet::protoTcp + 1});
    Axis axis;
    std::map<std::pair<std::vector<uint64_t>, Label>, size_t> seen;
    for (uint32_t const v : cuts) {
      Class const plain = valueClass(RangeSetType::proto, static_cast<uint16_t>(v));
      for (unsigned flags = 0; flags < 8; ++flags) {
        Class c = plain;
        c.label.reset();
        c.example.syn = flags & 1;
        c.example.ack = flags & 2;
        c.example.rst = flags & 4;
        auto const drop = [&](size_t firstWord, size_t i) {
          c.bits[firstWord + i / 64] &= ~(uint64_t{1} << i % 64);
        };
        bool const init = v == 6 && (flags & 3) == 1;
        bool const established = v == 6 && (flags & 6) != 0;
        for (size_t r = 0; r < rules_.size(); ++r)
          if (RuleFilter const* f = rules_[r].filter;
              f && ((f->matchTcpInit() && !init) || (f->matchTcpEstablished() && !established)))
            drop(0, r);
        for (size_t e = 0; e < entries_.size(); ++e) {
          PDAclFilter const& m = *entries_[e].match;
          // Nothing ever fills the field for head fragments.
          if ((m.matchTcpInit() && !init) || (m.matchTcpEstablished() && !established) ||
              m.headFragment().mask().value() != 0)
            drop(ruleWords_, e);
        }
        addClass(axis, seen, std::move(c));
      }
    }
    return axis;
  }

  /// Both fields together, with what the chip matches through their combination.
  Axis pairAxis(Axis const& src, Axis const& dst, Field field, ComboLabelSetType type, bool labels,
                Fill fill) const {
    uint8_t const width = layout_.combo[static_cast<size_t>(type)];
    bool const combined = labels && width > 0;
    std::map<std::pair<Label, Label>, Label> combos;
    if (combined)
      for (auto const& e : data_.comboColl(type)->entry())
        combos[{e.key().srcLabel().value(), e.key().dstLabel().value()}] = e.value().value();
    std::map<Label, Class> passing;  // the entries that a label passes
    Axis axis;
    std::map<std::pair<std::vector<uint64_t>, Label>, size_t> seen;
    for (Class const& s : src)
      for (Class const& d : dst) {
        Label label;
        if (combined) {
          auto const known = combos.find({s.label, d.label});
          label = known != combos.end() ? known->second : layout_.miss(width);
        }
        auto const [at, isNew] =
            passing.try_emplace(label, Class{std::vector<uint64_t>(words_), std::nullopt, {}});
        if (isNew) passEntries(at->second, field, label);
        Class c = at->second;
        c.example = s.example;
        fill(d.example, c.example);
        for (size_t w = 0; w < words_; ++w)
          c.bits[w] = (w < ruleWords_ ? ~uint64_t{0} : c.bits[w]) & s.bits[w] & d.bits[w];
        addClass(axis, seen, std::move(c));
      }
    return axis;
  }

  void descend(size_t axis, std::vector<uint64_t> const& above) {
    if (axis == axes_.size()) return judge(above);
    std::vector<uint64_t> bits(words_);
    for (Class const& c : axes_[axis]) {
      chosen_[axis] = &c;
      for (size_t w = 0; w < words_; ++w) bits[w] = above[w] & c.bits[w];
      descend(axis + 1, bits);
    }
  }

  static size_t firstBit(std::vector<uint64_t> const& bits, size_t from, size_t to) {
    for (size_t w = from; w < to; ++w)
      if (bits[w]) return (w - from) * 64 + static_cast<size_t>(std::countr_zero(bits[w]));
    return SIZE_MAX;
  }
  void judge(std::vector<uint64_t> const& bits) {
    ++result_.packets;
    size_t const rule = firstBit(bits, 0, ruleWords_);
    size_t const entry = firstBit(bits, ruleWords_, words_);
    bool const right = rule < rules_.size()
                           ? entry < entries_.size() && entries_[entry].rule == rules_[rule].index
                           : entry >= entries_.size();
    if (right || result_.differences.size() >= mostDifferences) return;
    auto const name = [](AceIndex i) { return "rule " + std::to_string(i.value()); };
    result_.differences.push_back(
        key_.aclName() + ": " + Verify::text(examplePacket()) + ": rules say " +
        (rule < rules_.size() ? name(rules_[rule].index) : "none") + ", tables say " +
        (entry < entries_.size() ? name(entries_[entry].rule) : "none"));
  }
  Packet examplePacket() const {
    Packet p = chosen_[0]->example;
    p.af = key_.af();
    p.sport = chosen_[1]->example.sport;
    p.dport = chosen_[1]->example.dport;
    p.proto = chosen_[2]->example.proto;
    p.syn = chosen_[2]->example.syn;
    p.ack = chosen_[2]->example.ack;
    p.rst = chosen_[2]->example.rst;
    p.icmpType = chosen_[3]->example.icmpType;
    p.length = chosen_[4]->example.length;
    p.fragment = chosen_[5]->example.fragment;
    p.dscp = chosen_[6]->example.dscp;
    return p;
  }

  PDData const& data_;
  KeyLayout const& layout_;
  PDAclKey key_;
  GridResult& result_;
  std::vector<Rule> rules_;
  std::vector<Entry> entries_;
  size_t ruleWords_ = 0;
  size_t words_ = 0;
  std::vector<Axis> axes_;
  std::vector<Class const*> chosen_;
};

/// The rules of an ACL as the output has to have them, whatever they match.
void compareRules(AclConfig const& acl, PDAclRuleColl const& out, GridResult& result) {
  auto const differ = [&](std::string const& what) {
    if (result.differences.size() < mostDifferences)
      result.differences.push_back(acl.name() + ": " + what);
  };
  for (auto const& [index, rule] : acl.ruleById()) {
    PDAclRule const* const compiled = out.rule(index);
    std::string const name = "rule " + std::to_string(index.value());
    if (!compiled)
      differ(name + " is missing");
    else if (compiled->action() != rule->action())
      differ(name + " has another action");
  }
  if (out.rule().size() > acl.ruleById().size()) differ("rules that nobody configured");
}

}  // namespace

GridResult compareVerdicts(AclConfigColl const& acls, PDData const& data, KeyLayout const& layout,
                           uint64_t budget, uint64_t seed) {
  GridResult result;
  for (auto const& [name, acl] : acls.acl()) {
    auto const out = data.pdAclColl()->pdAcl(PDAclKey(Verify::familyOf(*acl), name));
    if (!out) {
      result.differences.push_back(name + ": the ACL is missing");
      continue;
    }
    compareRules(*acl, *out, result);
    AclGrid(*acl, *out, data, layout, result).compare(budget, seed);
  }
  if (data.pdAclColl()->pdAcl().size() > acls.acl().size())
    result.differences.push_back("ACLs that nobody configured");
  return result;
}

}  // namespace Test
