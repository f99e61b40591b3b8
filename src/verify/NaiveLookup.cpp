#include "verify/NaiveLookup.h"

#include <bit>

namespace Verify {

using Naxel::ComboLabelSetType;
using Naxel::PDAclFilter;
using Naxel::PDAclKey;
using Naxel::PDComboEntryColl;
using Naxel::PDData;
using Naxel::PDPrefixXformEntryColl;
using Naxel::PDRangeXformEntryColl;
using Naxel::PrefixXformKey;
using Naxel::RangeSetType;
using Label = std::optional<uint16_t>;

namespace {

Label labelOf(PDPrefixXformEntryColl const& table, Address a) {
  Label found;
  int longest = -1;
  for (auto const& e : table.entry()) {
    if (!e.key().containsAddress(a.hi, a.lo) || e.key().length() <= longest) continue;
    longest = e.key().length();
    found = e.value().value();
  }
  return found;
}

Label labelOf(PDRangeXformEntryColl const& table, uint16_t v) {
  for (auto const& e : table.entry())
    // Ranges of one table are disjoint, so the first that holds the value is the only one.
    if (e.key().first() <= v && v <= e.key().last()) return e.value().value();
  return std::nullopt;
}

Label labelOf(PDComboEntryColl const& table, Label src, Label dst) {
  // A side without label is no key of the table.
  if (!src || !dst) return std::nullopt;
  for (auto const& e : table.entry())
    if (*src == e.key().srcLabel().value() && *dst == e.key().dstLabel().value())
      return e.value().value();
  return std::nullopt;
}

/// Width of a field for entries of one family; 0 for a field that cannot be matched.
unsigned widthOf(KeyLayout const& layout, Lumox::AddressFamily af, Field field) {
  switch (field) {
    case Fields::source: return layout.prefixWidth(af, true);
    case Fields::destination: return layout.prefixWidth(af, false);
    case Fields::prefixCombo: return layout.combo[static_cast<size_t>(Naxel::prefixComboType(af))];
    case Fields::portCombo:
      return layout.combo[static_cast<size_t>(ComboLabelSetType::srcDstL4Port)];
    default: break;
  }
  RangeSetType const type = Naxel::rangeTypeOf(field);
  return layout.isRaw(type) ? Naxel::rangeField(type).bits
                            : layout.range[static_cast<size_t>(type)];
}

bool isRaw(KeyLayout const& layout, Field field) {
  RangeSetType const type = Naxel::rangeTypeOf(field);
  return type != RangeSetType::rangeSetMax && layout.isRaw(type);
}

/// Collects sentences up to a number.
class Findings {
 public:
  explicit Findings(size_t limit) : limit_(limit) {}
  void add(std::string sentence) {
    if (found_.size() < limit_) found_.push_back(std::move(sentence));
  }
  std::vector<std::string> take() { return std::move(found_); }

 private:
  size_t limit_;
  std::vector<std::string> found_;
};

void checkLabels(auto const& table, unsigned width, std::string const& name, Findings& to) {
  for (auto const& e : table.entry())
    if (e.value().value() >> width)
      to.add(name + ": label " + std::to_string(e.value().value()) + " of " +
             Mox::valueToStrep(e.key()) + " is wider than " + std::to_string(width) + " bits");
}

/// `name()` is asked for only where there is something to say.
template <class Name>
void checkEntry(PDAclFilter const& entry, KeyLayout const& layout, Lumox::AddressFamily af,
                Name name, Findings& to) {
  auto const describe = [&](std::string_view field, auto const& match, std::string const& what) {
    to.add(name() + ": " + std::string(field) + " " + std::to_string(match.label().value()) + "/" +
           std::to_string(match.mask().value()) + what);
  };
  if (matchesNothing(entry))
    describe("headFragment", entry.headFragment(), " is a field that no packet has");
  for (Field field : Naxel::allLabelFields()) {
    auto const& match = entry.labelField(field);
    uint16_t const mask = match.mask().value();
    if (mask == 0) continue;
    auto const add = [&](std::string const& what) {
      describe(Naxel::labelFieldName(field), match, what);
    };
    unsigned const width = widthOf(layout, af, field);
    // A label beyond the width is a fault also where the mask does not compare it: a chip has no room for
    // it.
    if ((mask | match.label().value()) >> width)
      add(" is wider than " + std::to_string(width) + " bits");
    else if (!isRaw(layout, field) &&
             match.matches(KeyLayout::highestLabel(static_cast<uint8_t>(width))))
      add(" matches what a miss may yield");
  }
}

}  // namespace

Labels naiveLabels(PDData const& data, KeyLayout const& layout, Packet const& packet) {
  Labels out;
  auto const orMiss = [&](Label label, uint8_t width) {
    return label ? label : layout.miss(width);
  };

  for (bool source : {true, false}) {
    auto const table = data.pdPrefixXformEntryColl(PrefixXformKey(packet.af, source));
    out[source ? Fields::source : Fields::destination] = orMiss(
        labelOf(*table, source ? packet.src : packet.dst), layout.prefixWidth(packet.af, source));
  }
  for (RangeSetType type : Naxel::allRangeSetTypes()) {
    uint16_t const v = packet.value(type);
    out[Naxel::rangeField(type).tcamField] =
        layout.isRaw(type)
            ? Label(v)
            : orMiss(labelOf(*data.rangeColl(type), v), layout.range[static_cast<size_t>(type)]);
  }
  auto const combine = [&](Field to, ComboLabelSetType type, Field src, Field dst) {
    uint8_t const width = layout.combo[static_cast<size_t>(type)];
    if (width > 0) out[to] = orMiss(labelOf(*data.comboColl(type), out[src], out[dst]), width);
  };
  combine(Fields::prefixCombo, Naxel::prefixComboType(packet.af), Fields::source,
          Fields::destination);
  // Two raw ports are no labels, and there is nothing to look up by them.
  if (!layout.isRaw(RangeSetType::srcPort) && !layout.isRaw(RangeSetType::dstPort))
    combine(Fields::portCombo, ComboLabelSetType::srcDstL4Port, Fields::sport, Fields::dport);
  return out;
}

bool matches(PDAclFilter const& entry, Labels const& labels, Packet const& packet) {
  if (matchesNothing(entry)) return false;
  for (Field field : Naxel::allLabelFields()) {
    auto const& match = entry.labelField(field);
    if (match.mask().value() == 0) continue;
    // What has no label is matched by mask 0 alone.
    if (!labels[field] || !match.matches(*labels[field])) return false;
  }
  if (entry.matchTcpInit() && !packet.tcpInit()) return false;
  if (entry.matchTcpEstablished() && !packet.tcpEstablished()) return false;
  return true;
}

Verdict naiveLookup(PDData const& data, KeyLayout const& layout, PDAclKey const& acl,
                    Packet const& packet) {
  auto const rules = data.pdAclColl()->pdAcl(acl);
  if (!rules || acl.af() != packet.af) return {};
  Labels const labels = naiveLabels(data, layout, packet);
  for (auto const& [index, rule] : rules->rule()) {
    uint32_t number = 0;
    for (PDAclFilter const& entry : rule->filter()) {
      if (matches(entry, labels, packet))
        return {Verdict::Kind::rule, {}, index, number, rule->action()};
      ++number;
    }
  }
  return {};
}

std::vector<std::string> outputBreaches(PDData const& data, KeyLayout const& layout, size_t limit) {
  Findings to(limit);
  for (PrefixXformKey const& key : PrefixXformKey::all()) {
    std::string const name = "prefixes " + Mox::valueToStrep(key);
    auto const table = data.pdPrefixXformEntryColl(key);
    checkLabels(*table, layout.prefixWidth(key.af(), key.src()), name, to);
    for (auto const& e : table->entry())
      if (e.key().af() != key.af()) to.add(name + ": foreign " + Mox::valueToStrep(e.key()));
  }
  for (RangeSetType type : Naxel::allRangeSetTypes()) {
    std::string const name = "ranges " + Mox::stringValue(type);
    auto const& table = *data.rangeColl(type);
    checkLabels(table, layout.range[static_cast<size_t>(type)], name, to);
    for (size_t i = 1; i < table.entry().size(); ++i)
      if (table.entry()[i].key().first() <= table.entry()[i - 1].key().last())
        to.add(name + ": " + Mox::valueToStrep(table.entry()[i].key()) +
               " overlaps the one before");
  }
  for (ComboLabelSetType type : Naxel::allComboLabelSetTypes())
    checkLabels(*data.comboColl(type), layout.combo[static_cast<size_t>(type)],
                "combinations " + Mox::stringValue(type), to);
  for (auto const& [key, acl] : data.pdAclColl()->pdAcl())
    for (auto const& [index, rule] : acl->rule())
      for (PDAclFilter const& entry : rule->filter())
        checkEntry(
            entry, layout, key.af(),
            [&name = key.aclName(), number = index.value()] {
              return name + " rule " + std::to_string(number);
            },
            to);
  return to.take();
}

}  // namespace Verify
