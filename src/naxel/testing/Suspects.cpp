#include "naxel/testing/Suspects.h"

#include "naxel/testing/OutputCopy.h"
#include "verify/NaiveLookup.h"

#include <algorithm>

namespace Naxel::Testing {

using Verify::KeyLayout;
using Verify::Labels;
using Verify::naiveLookup;
using Verify::Packet;
using Verify::Verdict;
using Output = Mox::Ptr<PDData const>;

bool agrees(Met const& met, Verdict const& verdict) {
  bool const rule = verdict.kind == Verdict::Kind::rule;
  bool const denied =
      verdict.kind == Verdict::Kind::policy && verdict.policy == GlobalAclControl::denyAll;
  switch (met.kind) {
    case Met::Kind::untold: return true;
    case Met::Kind::noRule: return verdict.kind == Verdict::Kind::none;
    case Met::Kind::rule:
      return rule && met.action == verdict.action && (!met.rule || met.rule == verdict.rule);
    case Met::Kind::denyAll: return denied;
    case Met::Kind::permitAll: return verdict.kind == Verdict::Kind::policy && !denied;
    case Met::Kind::dropped: return denied || (rule && verdict.action.dropEnabled());
    case Met::Kind::passed: return !denied && !(rule && verdict.action.dropEnabled());
  }
  return false;
}

namespace {

/// Goes through the mistakes, from those that leave little else possible to those that are like many.
class Detective {
 public:
  Detective(PDData const& inForce, std::span<Output const> earlier,
            std::vector<Observation> const& all)
      : data_(inForce), layout_(KeyLayout::of(inForce)), earlier_(earlier), all_(all) {}

  Diagnosis find() {
    // Each says in found_ what it has found.
    static constexpr auto steps = {
        &Detective::flags,    &Detective::order,     &Detective::prefixes, &Detective::ranges,
        &Detective::masks,    &Detective::combos,    &Detective::missZero, &Detective::sides,
        &Detective::family,   &Detective::raw,       &Detective::leftAcl,  &Detective::leftEntries,
        &Detective::oneTable, &Detective::truncated, &Detective::features};
    for (auto const step : steps) {
      (this->*step)();
      if (!found_.words.empty()) break;
    }
    return found_;
  }

 private:
  template <class Lookup>
  bool explain(Lookup const& lookup) const {
    return std::ranges::all_of(
        all_, [&](Observation const& o) { return agrees(o.met, lookup(o.key, o.packet)); });
  }
  bool tables(PDData const& other) const {
    KeyLayout const layout = KeyLayout::of(other);
    return explain([&](PDAclKey const& key, Packet const& packet) {
      return naiveLookup(other, layout, key, packet);
    });
  }
  /// The tables with changes in them explain it.
  bool changed(std::function<void(PDData&)> const& change) const {
    auto const copy = copyOf(data_);
    change(*copy);
    return tables(*copy);
  }
  void guilty(Rule rule, std::string words, std::optional<PDTable> table = {}) {
    if (found_.words.empty()) found_ = {rule, std::move(words), table};
  }

  void flags() {
    if (changed([](PDData& d) {
          entriesOf(d, [](PDAclKey const&, PDAclFilter& f, size_t) {
            f.matchTcpInitIs(false);
            f.matchTcpEstablishedIs(false);
            return true;
          });
        }))
      guilty(Rule::lookupFlags, "as if no entry asked for TCP flags", PDTable::aclEntries);
  }

  void order() {
    if (explain([&](PDAclKey const& key, Packet const& packet) { return last(key, packet); }))
      guilty(Rule::lookupOrder, "as if the last entry that matches decided", PDTable::aclEntries);
  }
  Verdict last(PDAclKey const& key, Packet const& packet) const {
    Verdict out;
    auto const acl = data_.pdAclColl()->pdAcl(key);
    if (!acl || key.af() != packet.af) return out;
    Labels const labels = naiveLabels(data_, layout_, packet);
    for (auto const& [index, rule] : acl->rule())
      for (PDAclFilter const& entry : rule->filter())
        if (Verify::matches(entry, labels, packet))
          out = {Verdict::Kind::rule, {}, index, 0, rule->action()};
    return out;
  }

  void prefixes() {
    auto const outermost = [&](PDData& d, PDTable table) {
      auto const prefix = data_.pdPrefixXformEntryColl(prefixKeyOf(table));
      prefixesOf(d, table, [&](PDPrefixXformEntry& e, size_t) {
        return std::ranges::none_of(prefix->entry(), [&](PDPrefixXformEntry const& outer) {
          return outer.key().length() < e.key().length() &&
                 outer.key().containsAddress(e.key().hi(), e.key().lo());
        });
      });
    };
    byTable(&isPrefixTable, outermost, Rule::lookupPrefix, "as if the shortest prefix counted");
  }
  /// A change of each table of a kind, and of all of them.
  void byTable(bool (*isOfKind)(PDTable), std::function<void(PDData&, PDTable)> const& change,
               Rule rule, std::string const& words) {
    for (PDTable table : allPDTables())
      if (isOfKind(table) && changed([&](PDData& d) { change(d, table); }))
        return guilty(rule, words, table);
    if (changed([&](PDData& d) {
          for (PDTable table : allPDTables())
            if (isOfKind(table)) change(d, table);
        }))
      guilty(rule, words);
  }

  void ranges() {
    struct Slip {
      int first;
      int last;
      char const* words;
    };
    for (Slip const& slip : {Slip{0, -1, "as if a range ended before its last value"},
                             Slip{0, 1, "as if a range ended behind its last value"},
                             Slip{1, 0, "as if a range began behind its first value"},
                             Slip{-1, 0, "as if a range began before its first value"},
                             Slip{1, 1, "as if ranges lay one value higher"},
                             Slip{-1, -1, "as if ranges lay one value lower"}}) {
      auto const slipped = [&](PDData& d, PDTable table) {
        rangesOf(d, table, [&](PDRangeXformEntry& e, size_t) {
          int const first = std::max(0, e.key().first() + slip.first);
          int const last = std::min(65535, e.key().last() + slip.last);
          if (first > last) return false;
          e = {RangeSetElem(static_cast<uint16_t>(first), static_cast<uint16_t>(last)), e.value()};
          return true;
        });
      };
      byTable(&isRangeTable, slipped, Rule::lookupRange, slip.words);
    }
  }

  /// What entries say about some fields, changed.
  bool fields(std::initializer_list<TcamFieldType> which,
              std::function<EncodedLabelWithMask(EncodedLabelWithMask const&)> const& change) {
    return changed([&](PDData& d) {
      entriesOf(d, [&](PDAclKey const&, PDAclFilter& f, size_t) {
        for (TcamFieldType field : which) f.labelFieldIs(field, change(f.labelField(field)));
        return true;
      });
    });
  }

  void masks() {
    if (changed([](PDData& d) {
          entriesOf(d, [](PDAclKey const&, PDAclFilter& f, size_t) {
            for (TcamFieldType field : allLabelFields())
              if (auto const& e = f.labelField(field); e.mask().value() != 0)
                f.labelFieldIs(field, {e.label(), LabelMask(65535)});
            return true;
          });
        }))
      guilty(Rule::lookupMask, "as if labels were compared without mask", PDTable::aclEntries);
  }

  void combos() {
    auto const any = [](EncodedLabelWithMask const&) { return EncodedLabelWithMask(); };
    if (fields({Verify::Fields::prefixCombo}, any))
      return guilty(Rule::lookupCombination, "as if combinations of prefixes always matched",
                    PDTable::v4PrefixCombo);
    if (fields({Verify::Fields::portCombo}, any))
      return guilty(Rule::lookupCombination, "as if combinations of ports always matched",
                    PDTable::portCombo);
    if (fields({Verify::Fields::prefixCombo, Verify::Fields::portCombo}, any))
      return guilty(Rule::lookupCombination, "as if combinations always matched");
    auto const emptied = [](PDData& d, PDTable table) {
      combosOf(d, table, [](PDComboEntry&, size_t) { return false; });
    };
    byTable(&isComboTable, emptied, Rule::lookupCombination, "as if combinations were not found");
  }

  /// The first entry for a packet with these labels.
  static Verdict first(PDAclRuleColl const& acl, Labels const& labels, Packet const& packet) {
    for (auto const& [index, rule] : acl.rule())
      for (PDAclFilter const& entry : rule->filter())
        if (Verify::matches(entry, labels, packet))
          return {Verdict::Kind::rule, {}, index, 0, rule->action()};
    return {};
  }
  /// Every field of a packet that has no label, filled in.
  Verdict filled(PDAclKey const& key, Packet const& packet, bool prefix, bool range,
                 bool combo) const {
    auto const acl = data_.pdAclColl()->pdAcl(key);
    if (!acl || key.af() != packet.af) return {};
    Labels labels = naiveLabels(data_, layout_, packet);
    namespace Fields = Verify::Fields;
    auto const isCombo = [](TcamFieldType f) {
      return f == Fields::prefixCombo || f == Fields::portCombo;
    };
    for (TcamFieldType f : allLabelFields()) {
      bool const fill = f == Fields::source || f == Fields::destination ? prefix : range;
      if (!isCombo(f) && fill && !labels[f]) labels[f] = 0;
    }
    // By the labels that the sides have now.
    auto const pair = [&](TcamFieldType f, ComboLabelSetType type, TcamFieldType src,
                          TcamFieldType dst) {
      if (labels[src] && labels[dst])
        if (auto const* const entry = data_.comboColl(type)->entry(
                EncodedComboLabel(EncodedLabel(*labels[src]), EncodedLabel(*labels[dst]))))
          labels[f] = entry->value().value();
      if (combo && !labels[f]) labels[f] = 0;
    };
    pair(Fields::prefixCombo, prefixComboType(packet.af), Fields::source, Fields::destination);
    pair(Fields::portCombo, ComboLabelSetType::srcDstL4Port, Fields::sport, Fields::dport);
    return first(*acl, labels, packet);
  }
  void missZero() {
    for (unsigned which : {1u, 2u, 4u, 3u, 7u})
      if (explain([&](PDAclKey const& key, Packet const& packet) {
            return filled(key, packet, which & 1, which & 2, which & 4);
          }))
        return guilty(Rule::lookupMissZero, std::string("as if a miss yielded label 0") +
                                                (which == 1   ? " in prefix tables"
                                                 : which == 2 ? " in range tables"
                                                 : which == 4 ? " in combination tables"
                                                              : ""));
  }

  void sides() {
    for (bool ports : {false, true})
      if (explain([&](PDAclKey const& key, Packet packet) {
            ports ? std::swap(packet.sport, packet.dport) : std::swap(packet.src, packet.dst);
            return naiveLookup(data_, layout_, key, packet);
          }))
        return guilty(Rule::lookupSides, ports ? "as if source and destination port were swapped"
                                               : "as if source and destination were swapped");
  }

  void family() {
    if (explain([&](PDAclKey const& key, Packet const& packet) {
          bool const v4 = key.af() == Lumox::ipv4();
          auto const other =
              data_.pdAclColl()->pdAcl(PDAclKey(v4 ? Lumox::ipv6() : Lumox::ipv4(), key.aclName()));
          if (!other || data_.pdAclColl()->pdAclHas(key))
            return naiveLookup(data_, layout_, key, packet);
          return first(*other, naiveLabels(data_, layout_, packet), packet);
        }))
      guilty(Rule::lookupFamily, "as if an ACL of one family decided on packets of the other one",
             PDTable::aclEntries);
  }

  void raw() {
    for (RangeField const& field : rangeFields)
      if (layout_.isRaw(field.type) && fields({field.tcamField}, [](EncodedLabelWithMask const&) {
            return EncodedLabelWithMask();
          }))
        return guilty(
            Rule::lookupRaw,
            "as if entries did not look at " + std::string(field.name) + ", which has no label",
            PDTable::aclEntries);
  }

  void leftAcl() {
    if (changed([&](PDData& d) {
          for (Output const& output : earlier_)
            for (auto const& [key, acl] : output->pdAclColl()->pdAcl())
              if (!data_.pdAclColl()->pdAclHas(key)) d.pdAclCollIs().pdAclIs(key, acl);
        }))
      guilty(Rule::writeAcl, "as if an ACL that is gone were still there", PDTable::aclEntries);
  }

  /// With what earlier outputs have in their ACLs besides: entries of rules, or whole rules.
  bool left(std::span<Output const> outputs, bool rules, bool entries, bool oldAction) const {
    return changed([&](PDData& d) {
      for (auto const& [key, acl] : data_.pdAclColl()->pdAcl()) {
        auto const all = Mox::makePtr<PDAclRuleColl>(key);
        auto const add = [&](PDAclRule const& from, bool action) {
          auto const to = all->ruleIs(from.aceIndex());
          if (action) to->actionIs(from.action());
          for (PDAclFilter const& filter : from.filter()) to->filterIs(filter);
        };
        for (auto const& [index, rule] : acl->rule()) add(*rule, true);
        for (Output const& output : outputs) {
          auto const before = output->pdAclColl()->pdAcl(key);
          if (!before) continue;
          for (auto const& [index, rule] : before->rule()) {
            bool const stays = acl->ruleHas(index);
            if (stays ? entries : rules) add(*rule, !stays || oldAction);
          }
        }
        d.pdAclCollIs().pdAclIs(key, all);
      }
    });
  }
  void leftEntries() {
    if (earlier_.empty()) return;
    for (auto const& outputs : {earlier_.last(1), earlier_})
      for (unsigned which : {1u, 2u, 3u, 6u, 7u})
        if (left(outputs, which & 1, which & 2, which & 4))
          return guilty(Rule::writeEntries,
                        which == 1   ? "as if rules that are gone were still there"
                        : which == 2 ? "as if entries of before were still there"
                                     : "as if rules and entries of before were still there",
                        PDTable::aclEntries);
  }

  void oneTable() {
    for (auto output = earlier_.rbegin(); output != earlier_.rend(); ++output)
      for (PDTable table : allPDTables())
        if (table != PDTable::tcpFlags &&
            changed([&](PDData& d) { tableFrom(d, table, **output); }))
          return guilty(Rule::writeTable, "as if the table were still an older one", table);
    for (PDTable table : allPDTables())
      if (changed([&](PDData& d) { merge(d, table); }))
        return guilty(Rule::writeTable, "as if rows that are gone were still there", table);
  }
  void merge(PDData& d, PDTable table) const {
    auto const both = [&](auto const& now, auto tableOf) {
      auto out = Mox::makePtr<std::decay_t<decltype(*now)>>();
      for (auto const& e : now->entry()) out->entryIs(e);
      for (Output const& output : earlier_)
        for (auto const& e : tableOf(*output)->entry())
          if (!now->entry(e.key())) out->entryIs(e);
      return out;
    };
    if (isPrefixTable(table)) {
      auto const of = [&](PDData const& o) { return o.pdPrefixXformEntryColl(prefixKeyOf(table)); };
      d.pdPrefixXformEntryCollIs(prefixKeyOf(table), both(of(data_), of));
    } else if (isRangeTable(table)) {
      auto const of = [&](PDData const& o) { return o.rangeColl(rangeTypeOf(table)); };
      d.rangeCollIs(rangeTypeOf(table), both(of(data_), of));
    } else if (isComboTable(table)) {
      auto const of = [&](PDData const& o) { return o.comboColl(comboTypeOf(table)); };
      d.comboCollIs(comboTypeOf(table), both(of(data_), of));
    }
  }

  void truncated() {
    constexpr size_t most = 64;
    for (PDTable table : allPDTables()) {
      size_t const entries = tableEntries(data_, table);
      size_t const least = entries > most ? entries - most : 0;
      for (size_t n = entries; n-- > least;) {
        auto const keep = [&](auto&, size_t nth) { return nth < n; };
        if (changed([&](PDData& d) {
              if (isPrefixTable(table)) prefixesOf(d, table, keep);
              if (isRangeTable(table)) rangesOf(d, table, keep);
              if (isComboTable(table)) combosOf(d, table, keep);
              if (table == PDTable::aclEntries)
                entriesOf(d, [&](PDAclKey const&, PDAclFilter&, size_t nth) { return nth < n; });
            }))
          return guilty(Rule::acquireReserves,
                        "as if only " + std::to_string(n) + " of its " + std::to_string(entries) +
                            " entries were there",
                        table);
      }
    }
  }

  /// Where no model explains all, something that is common to all that is wrong.
  void features() {
    auto const wrong = [&](auto const& property) {
      return std::ranges::all_of(
          all_, [&](Observation const& o) { return agrees(o.met, o.want) || property(o); });
    };
    if (wrong([](Observation const& o) {
          return o.want.kind == Verdict::Kind::rule && o.met.rule == o.want.rule;
        }))
      return guilty(Rule::lookupAction, "the rule is right, and its action another one",
                    PDTable::aclEntries);
    if (wrong([&](Observation const& o) {
          PDAclRule const* const rule = ruleOf(o);
          Labels const labels = naiveLabels(data_, layout_, o.packet);
          return rule && std::ranges::any_of(rule->filter(), [&](PDAclFilter const& f) {
                   return Verify::matches(f, labels, o.packet);
                 });
        }))
      return guilty(Rule::lookupOrder, "an entry that stands behind decides", PDTable::aclEntries);
    if (wrong([&](Observation const& o) {
          PDAclRule const* const rule = ruleOf(o);
          Labels const labels = naiveLabels(data_, layout_, o.packet);
          return rule && std::ranges::any_of(allLabelFields(), [&](TcamFieldType field) {
                   return !labels[field] &&
                          std::ranges::any_of(rule->filter(), [&](PDAclFilter const& f) {
                            return f.labelField(field).mask().value() != 0;
                          });
                 });
        }))
      guilty(Rule::lookupMiss, "an entry matches a field that has no label", PDTable::aclEntries);
  }
  PDAclRule const* ruleOf(Observation const& o) const {
    auto const acl = data_.pdAclColl()->pdAcl(o.key);
    return acl && o.met.rule ? acl->rule(*o.met.rule) : nullptr;
  }

  PDData const& data_;
  KeyLayout layout_;
  std::span<Output const> earlier_;
  std::vector<Observation> const& all_;
  Diagnosis found_;
};

}  // namespace

Diagnosis diagnose(PDData const& inForce, std::span<Output const> earlier,
                   std::vector<Observation> const& all) {
  return Detective(inForce, earlier, all).find();
}

}  // namespace Naxel::Testing
