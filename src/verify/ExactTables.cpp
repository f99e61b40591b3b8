#include "verify/ExactTables.h"

#include "mox/Assert.h"
#include "verify/ExactRules.h"

#include <algorithm>
#include <optional>

namespace Verify::Exact {

using Lumox::AddressFamily;
using Naxel::ComboLabelSetType;
using Naxel::PDAclFilter;
using Naxel::RangeSetType;
using Label = std::optional<uint16_t>;

namespace {

/// The fields in the order of their variables, combinations beside their destinations.
constexpr auto columns = [] {
  std::array<Field, Naxel::labelFieldCount> order{};
  size_t at = 0;
  for (RangeSetType type : rangeOrder) {
    order[at++] = Naxel::rangeField(type).tcamField;
    if (type == RangeSetType::dstPort) order[at++] = Fields::portCombo;
  }
  order[at++] = Fields::destination;
  order[at++] = Fields::source;
  order[at] = Fields::prefixCombo;
  return order;
}();

/// The functions of one entry, by their nodes: of the TCP flags, then by column.
using Row = std::array<int, columns.size() + 1>;

/// The union of products; the rows are sorted. Rows that are equal behind a column are joined in that
/// column first. As the entries of a rule are all choices of one pair per field, there is mostly one
/// such group, and what comes out is built as a single product.
Bdd anyRow(std::span<Row const> rows, size_t column) {
  if (rows.empty()) return Bdd(false);
  if (column == rows.front().size()) return Bdd(true);
  struct Group {
    Bdd rest;
    std::vector<Bdd> heads;
  };
  std::map<int, Group> groups;
  while (!rows.empty()) {
    int const head = rows.front()[column];
    size_t count = 1;
    while (count < rows.size() && rows[count][column] == head) ++count;
    Bdd const rest = anyRow(rows.first(count), column + 1);
    Group& group = groups[rest.node()];
    group.rest = rest;
    group.heads.push_back(Bdd::ofNode(head));
    // Rows are sorted, so those of equal heads stand together.
    rows = rows.subspan(count);
  }
  std::vector<Bdd> all;
  all.reserve(groups.size());
  for (auto& [node, group] : groups) all.push_back(Bdd::anyOf(std::move(group.heads)) & group.rest);
  return Bdd::anyOf(std::move(all));
}

/// A value is compared bit by bit. A packet's has no bits above those of the field.
Bdd rawMatched(Bits bits, uint16_t value, uint16_t mask) {
  // The entry asks for a bit that no value of the field has.
  if ((value & mask) >> bits.count) return Bdd(false);
  Bdd f(true);
  for (int i = bits.count - 1; i >= 0; --i, value >>= 1, mask >>= 1) {
    if (!(mask & 1)) continue;
    f = value & 1 ? Bdd::choice(bits.first + i, f, Bdd(false))
                  : Bdd::choice(bits.first + i, Bdd(false), f);
  }
  return f;
}

bool isAddress(Field field) { return field == Fields::source || field == Fields::destination; }

ComboLabelSetType comboOf(Field field, AddressFamily af) {
  return field == Fields::portCombo ? ComboLabelSetType::srcDstL4Port : Naxel::prefixComboType(af);
}

/// The bit behind the first `depth` ones.
Address bitAt(int depth) {
  return depth < 64 ? Address{uint64_t{1} << (63 - depth), 0}
                    : Address{0, uint64_t{1} << (127 - depth)};
}

}  // namespace

Partition::Partition(Bits bits, Naxel::PDPrefixXformEntryColl const& table, AddressFamily af)
    : bits_(bits) {
  struct Line {
    Interval in;
    uint16_t label;
  };
  std::vector<Line> lines;
  for (auto const& e : table.entry())
    if (e.key().af() == af) lines.push_back({intervalOf(e.key()), e.value().value()});
  // A prefix before those that lie in it; of two equal ones the first counts.
  std::stable_sort(lines.begin(), lines.end(), [](Line const& a, Line const& b) {
    return a.in.first != b.in.first ? a.in.first < b.in.first : b.in.last < a.in.last;
  });
  std::vector<Line const*> open;  // the prefixes that contain the place, innermost last
  Address next;                   // where the next piece begins
  bool full = false;              // it would begin behind the last address
  auto const write = [&](Address last, Label label) {
    // Nothing is left of the prefix: those inside of it have taken it all.
    if (full || last < next) return;
    if (label)
      piece_.add(*label, {next, last});
    else
      miss_.push_back({next, last});
    next = nextAddress(last);
    full = next == Address{};
  };
  auto const close = [&] {
    write(open.back()->in.last, open.back()->label);
    open.pop_back();
  };
  for (Line const& line : lines) {
    while (!open.empty() && open.back()->in.last < line.in.first) close();
    if (!open.empty() && open.back()->in == line.in) continue;
    if (line.in.first != Address{})
      write(previousAddress(line.in.first), open.empty() ? Label() : Label(open.back()->label));
    open.push_back(&line);
  }
  while (!open.empty()) close();
  write({~uint64_t{0}, ~uint64_t{0}}, std::nullopt);
}

Partition::Partition(Bits bits, Naxel::PDRangeXformEntryColl const& table) : bits_(bits) {
  MOX_ASSERT(bits.count > 0 && bits.count < 64);
  int const shift = 64 - bits.count;
  uint64_t const end = uint64_t{1} << bits.count;
  auto const values = [&](uint64_t first, uint64_t behind) {
    return Interval{{first << shift, 0}, {(behind << shift) - 1, ~uint64_t{0}}};
  };
  // In the order of their first values. Ranges of a table are disjoint; if not, the first one counts.
  uint64_t next = 0;
  for (auto const& e : table.entry()) {
    uint64_t const first = std::max<uint64_t>(e.key().first(), next);
    uint64_t const behind = std::min<uint64_t>(uint64_t{e.key().last()} + 1, end);
    if (first >= behind) continue;
    if (first > next) miss_.push_back(values(next, first));
    piece_.add(e.value().value(), values(first, behind));
    next = behind;
  }
  if (next < end) miss_.push_back(values(next, end));
}

Bdd Partition::of(LabelSet const& labels, bool misses) const {
  std::vector<Interval> all;
  if (misses) all = miss_;
  for (uint16_t const label : labels)
    if (auto const* pieces = piece_.of(label))
      all.insert(all.end(), pieces->begin(), pieces->end());
  std::sort(all.begin(), all.end());
  std::vector<Interval> joined;
  for (Interval const& i : all) {
    if (!joined.empty() && nextAddress(joined.back().last) == i.first)
      joined.back().last = i.last;
    else
      joined.push_back(i);
  }
  return tree(0, {}, joined);
}

/// The values that begin with the first `depth` bits of `block`; `all` are the intervals that touch
/// them.
Bdd Partition::tree(int depth, Address block, std::span<Interval const> all) const {
  if (all.empty()) return Bdd(false);
  Address const last = block | ~networkMask(static_cast<unsigned>(depth));
  if (all.front().first <= block && last <= all.front().last) return Bdd(true);
  Address const middle = block | bitAt(depth);
  auto const count = [&](auto isBefore) {
    return static_cast<size_t>(std::partition_point(all.begin(), all.end(), isBefore) -
                               all.begin());
  };
  size_t const beginLow = count([&](Interval const& i) { return i.first < middle; });
  size_t const endLow = count([&](Interval const& i) { return i.last < middle; });
  Bdd const low = tree(depth + 1, block, all.first(beginLow));
  Bdd const high = tree(depth + 1, middle, all.subspan(endLow));
  return Bdd::choice(bits_.first + depth, high, low);
}

Bdd EntryFunctions::matched(Naxel::PDAclRule const& rule) {
  std::vector<Row> rows;
  rows.reserve(rule.filters());
  for (PDAclFilter const& entry : rule.filter()) {
    if (matchesNothing(entry)) continue;
    Row& row = rows.emplace_back();
    row[0] = flagsMatched(entry).node();
    for (size_t i = 0; i < columns.size(); ++i)
      row[i + 1] = matched(columns[i], entry.labelField(columns[i])).node();
  }
  std::sort(rows.begin(), rows.end());
  return anyRow(rows, 0);
}

Bdd const& EntryFunctions::flagsMatched(PDAclFilter const& entry) {
  auto const [at, isNew] = flags_.try_emplace({entry.matchTcpInit(), entry.matchTcpEstablished()});
  if (isNew) at->second = Exact::flagsMatched(entry.matchTcpInit(), entry.matchTcpEstablished());
  return at->second;
}

Bdd const& EntryFunctions::matched(Field field, Naxel::EncodedLabelWithMask const& match) {
  uint16_t const value = match.label().value();
  uint16_t const mask = match.mask().value();
  uint64_t const key =
      uint64_t{static_cast<uint8_t>(field)} << 32 | uint64_t{value} << 16 | uint64_t{mask};
  auto const [at, isNew] = matched_.try_emplace(key);
  if (isNew) at->second = made(field, value, mask);
  return at->second;
}

Bdd EntryFunctions::made(Field field, uint16_t value, uint16_t mask) {
  if (mask == 0) return Bdd(true);
  if (field == Fields::prefixCombo || field == Fields::portCombo)
    return combined(field, value, mask);
  if (!isAddress(field) && layout_.isRaw(Naxel::rangeTypeOf(field)))
    return rawMatched(bitsOf(Naxel::rangeTypeOf(field)), value, mask);
  return labelled(field, partition(field).matching(value, mask),
                  ((highestLabel(field) ^ value) & mask) == 0);
}

/// The values that have one of the labels; `highest` is true if the highest label is meant as well,
/// whether it occurs or not.
Bdd EntryFunctions::labelled(Field field, LabelSet const& labels, bool highest) {
  bool const misses = highest && partition(field).hasMisses();
  missMatters_ = missMatters_ || misses;
  return partition(field).of(labels, misses && layout_.missYields == MissYields::highest);
}

Bdd EntryFunctions::combined(Field field, uint16_t value, uint16_t mask) {
  uint8_t const width = layout_.combo[static_cast<size_t>(comboOf(field, af_))];
  if (width == 0) return Bdd(false);
  // Raw ports are no labels, and there is nothing to look up by them.
  if (field == Fields::portCombo &&
      (layout_.isRaw(RangeSetType::srcPort) || layout_.isRaw(RangeSetType::dstPort)))
    return Bdd(false);
  Bdd found = paired(field, pairs(field).matching(value, mask));
  if (((KeyLayout::highestLabel(width) ^ value) & mask) != 0) return found;
  // A pair that is not in the table is a miss as well; whether there is one is not looked into.
  missMatters_ = true;
  if (layout_.missYields == MissYields::nothing) return found;
  return found | (Bdd(true) - paired(field, pairs(field).matching(0, 0)));
}

/// The packets whose pair of labels has one of the labels of the combination.
Bdd EntryFunctions::paired(Field field, LabelSet const& labels) {
  bool const ports = field == Fields::portCombo;
  Field const source = ports ? Fields::sport : Fields::source;
  Field const destination = ports ? Fields::dport : Fields::destination;
  std::map<uint16_t, LabelSet> destinations;
  for (uint16_t const label : labels)
    for (LabelPair const& p : *pairs(field).of(label))
      destinations[p.source].push_back(p.destination);
  // Sources with the same destinations are one product: as many as there are sources would be multiplied
  // otherwise.
  std::map<LabelSet, LabelSet> sources;
  for (auto& [s, d] : destinations) {
    std::sort(d.begin(), d.end());
    sources[d].push_back(s);
  }
  auto const packets = [&](Field side, LabelSet const& of) {
    return labelled(side, of, std::binary_search(of.begin(), of.end(), highestLabel(side)));
  };
  std::vector<Bdd> all;
  all.reserve(sources.size());
  for (auto const& [d, s] : sources) all.push_back(packets(destination, d) & packets(source, s));
  return Bdd::anyOf(std::move(all));
}

Partition const& EntryFunctions::partition(Field field) {
  auto& slot = partition_[static_cast<size_t>(field)];
  if (slot) return *slot;
  bool const source = field == Fields::source;
  if (isAddress(field))
    slot = std::make_unique<Partition>(
        bitsOf(af_, source), *data_.pdPrefixXformEntryColl(Naxel::PrefixXformKey(af_, source)),
        af_);
  else
    slot = std::make_unique<Partition>(bitsOf(Naxel::rangeTypeOf(field)),
                                       *data_.rangeColl(Naxel::rangeTypeOf(field)));
  return *slot;
}

auto EntryFunctions::pairs(Field field) -> ByLabel<LabelPair> const& {
  auto& slot = pairs_[static_cast<size_t>(field)];
  if (slot) return *slot;
  slot = std::make_unique<ByLabel<LabelPair>>();
  for (auto const& e : data_.comboColl(comboOf(field, af_))->entry())
    slot->add(e.value().value(), {e.key().srcLabel().value(), e.key().dstLabel().value()});
  return *slot;
}

uint16_t EntryFunctions::highestLabel(Field field) const {
  return KeyLayout::highestLabel(
      isAddress(field) ? layout_.prefixWidth(af_, field == Fields::source)
                       : layout_.range[static_cast<size_t>(Naxel::rangeTypeOf(field))]);
}

}  // namespace Verify::Exact
