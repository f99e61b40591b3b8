#include "softchip/LoadedTables.h"

#include <algorithm>

namespace SoftChip {

using Naxel::AceIndex;
using Naxel::ComboLabelSetType;
using Naxel::PDAclKey;
using Naxel::PrefixXformKey;
using Naxel::RangeSetType;
namespace Fields = Verify::Fields;
using Verify::Interval;
using Verify::intervalOf;

LoadedTables::LoadedTables(Mox::Ptr<Naxel::PDData const> data, KeyLayout const& layout)
    : data_(std::move(data)), layout_(layout) {
  for (size_t i = 0; i < prefix_.size(); ++i)
    prefix_[i] = cutsOf(*data_->pdPrefixXformEntryColl(PrefixXformKey::all()[i]));
  for (RangeSetType type : Naxel::allRangeSetTypes())
    range_[static_cast<size_t>(type)] = cutsOf(*data_->rangeColl(type));
  for (ComboLabelSetType type : Naxel::allComboLabelSetTypes())
    combo_[static_cast<size_t>(type)] = pairsOf(*data_->comboColl(type));
  for (auto const& [key, rules] : data_->pdAclColl()->pdAcl()) acl_.emplace(key, aclOf(*rules));
}

Cuts<Address> LoadedTables::cutsOf(Naxel::PDPrefixXformEntryColl const& table) {
  struct Piece {
    Interval in;
    uint16_t label;
  };
  std::vector<Piece> pieces;
  for (auto const& e : table.entry()) pieces.push_back({intervalOf(e.key()), e.value().value()});
  // An enclosing prefix comes before those within it.
  std::stable_sort(pieces.begin(), pieces.end(), [](Piece const& a, Piece const& b) {
    return a.in.first != b.in.first ? a.in.first < b.in.first : b.in.last < a.in.last;
  });

  Cuts<Address> out;
  std::vector<Piece const*> open;  // the prefixes around the present place, innermost last
  auto const closeOne = [&] {
    Address const last = open.back()->in.last;
    open.pop_back();
    // Behind the last address there is nothing to cut; the next one wraps to 0.
    if (nextAddress(last) == Address{}) return;  // the end of the number line
    out.cut(nextAddress(last), open.empty() ? std::nullopt : std::optional(open.back()->label));
  };
  for (Piece const& p : pieces) {
    while (!open.empty() && open.back()->in.last < p.in.first) closeOne();
    // Of equal prefixes the first counts, as in a search from the first entry on.
    if (!open.empty() && open.back()->in == p.in) continue;
    out.cut(p.in.first, p.label);
    open.push_back(&p);
  }
  while (!open.empty()) closeOne();
  return out;
}

Cuts<uint16_t> LoadedTables::cutsOf(Naxel::PDRangeXformEntryColl const& table) {
  Cuts<uint16_t> out;
  for (auto const& e : table.entry()) {
    out.cut(e.key().first(), e.value().value());
    // A cut at the end says that no label holds from there on; a range that follows at once replaces it.
    if (e.key().last() < 65535) out.cut(static_cast<uint16_t>(e.key().last() + 1), std::nullopt);
  }
  return out;
}

LoadedTables::Pairs LoadedTables::pairsOf(Naxel::PDComboEntryColl const& table) {
  Pairs out;  // the order of the keys is that of the pairs
  for (auto const& e : table.entry())
    out.emplace_back(uint32_t{e.key().srcLabel().value()} << 16 | e.key().dstLabel().value(),
                     e.value().value());
  return out;
}

LoadedTables::Acl LoadedTables::aclOf(Naxel::PDAclRuleColl const& rules) {
  Acl out;
  for (auto const& [index, rule] : rules.rule()) {
    out.rule.push_back({rule.get(), static_cast<uint32_t>(out.entry.size())});
    for (Naxel::PDAclFilter const& filter : rule->filter()) {
      Entry& e = out.entry.emplace_back();
      for (Field field : Naxel::allLabelFields()) {
        auto const& match = filter.labelField(field);
        auto const i = static_cast<size_t>(field);
        e.mask[i] = match.mask().value();
        // Bits that are not compared are cleared once, and need no mask in the index.
        e.value[i] = match.label().value() & e.mask[i];
      }
      // Kept among the entries, so that hits are counted under the numbers that the output gives.
      e.never = Verify::matchesNothing(filter);
      e.tcpInit = filter.matchTcpInit();
      e.tcpEstablished = filter.matchTcpEstablished();
      e.rule = static_cast<uint32_t>(out.rule.size() - 1);
    }
  }
  out.hits.resize(out.entry.size());
  if (out.entry.size() > fewEntries) buildIndex(out);
  return out;
}

void LoadedTables::buildIndex(Acl& acl) {
  for (Field field : Naxel::allLabelFields()) {
    uint16_t used = 0;
    // A byte that no entry looks at would cost every lookup one row and turn nobody away.
    for (Entry const& e : acl.entry) used |= e.mask[static_cast<size_t>(field)];
    for (uint8_t shift : {uint8_t{8}, uint8_t{0}})
      if (used >> shift & 255) acl.keyByte.push_back({field, shift});
  }
  acl.index = FirstMatchIndex(acl.entry.size(), acl.keyByte.size());
  for (size_t d = 0; d < acl.keyByte.size(); ++d) {
    auto const [field, shift] = acl.keyByte[d];
    size_t const i = static_cast<size_t>(field);
    for (size_t at = 0; at < acl.entry.size(); ++at) {
      Entry const& e = acl.entry[at];
      unsigned const mask = e.mask[i] >> shift & 255;
      unsigned const value = e.value[i] >> shift & 255;
      if (mask == 0) {
        // A packet without label is turned away by the field's other byte, if at all.
        acl.index.allowAll(d, at);
        continue;
      }
      // Every byte that agrees under the mask: count through the bits that are free.
      unsigned const free = ~mask & 255;
      for (unsigned bits = free;; bits = (bits - 1) & free) {
        acl.index.allow(d, at, static_cast<uint8_t>(value | bits));
        if (bits == 0) break;
      }
    }
  }
  acl.index.finish();
}

Labels LoadedTables::labelsOf(Packet const& packet) const {
  Labels out;
  size_t const prefixes = packet.af == Lumox::ipv4() ? 0 : 2;
  out[Fields::source] = prefix_[prefixes].label(packet.src);
  out[Fields::destination] = prefix_[prefixes + 1].label(packet.dst);
  if (!out[Fields::source]) out[Fields::source] = layout_.miss(layout_.prefix[prefixes]);
  if (!out[Fields::destination])
    out[Fields::destination] = layout_.miss(layout_.prefix[prefixes + 1]);
  for (size_t i = 0; i < range_.size(); ++i) {
    RangeSetType const type = static_cast<RangeSetType>(i);
    auto& label = out[Naxel::rangeField(type).tcamField];
    if (layout_.isRaw(type)) {
      label = packet.value(type);
      continue;
    }
    label = range_[i].label(packet.value(type));
    if (!label) label = layout_.miss(layout_.range[i]);
  }
  combine(out, Fields::prefixCombo, Naxel::prefixComboType(packet.af), Fields::source,
          Fields::destination);
  if (!layout_.isRaw(RangeSetType::srcPort) && !layout_.isRaw(RangeSetType::dstPort))
    combine(out, Fields::portCombo, ComboLabelSetType::srcDstL4Port, Fields::sport, Fields::dport);
  return out;
}

void LoadedTables::combine(Labels& labels, Field to, ComboLabelSetType type, Field src,
                           Field dst) const {
  uint8_t const width = layout_.combo[static_cast<size_t>(type)];
  if (width == 0) return;
  labels[to] = layout_.miss(width);
  if (!labels[src] || !labels[dst]) return;
  uint32_t const key = uint32_t{*labels[src]} << 16 | *labels[dst];
  Pairs const& pairs = combo_[static_cast<size_t>(type)];
  // The pair of the key and the least label comes before every entry of that key.
  auto const found = std::lower_bound(pairs.begin(), pairs.end(), std::pair(key, uint16_t{0}));
  if (found != pairs.end() && found->first == key) labels[to] = found->second;
}

bool LoadedTables::Entry::flagsMatch(Packet const& packet) const {
  return !never && (!tcpInit || packet.tcpInit()) && (!tcpEstablished || packet.tcpEstablished());
}

bool LoadedTables::matches(Entry const& entry, Labels const& labels, Packet const& packet) {
  for (Field field : Naxel::allLabelFields()) {
    auto const i = static_cast<size_t>(field);
    if (entry.mask[i] == 0) continue;
    auto const& label = labels[field];
    if (!label || (*label & entry.mask[i]) != entry.value[i]) return false;
  }
  return entry.flagsMatch(packet);
}

size_t LoadedTables::firstEntry(Acl const& acl, Labels const& labels, Packet const& packet) {
  if (acl.entry.size() <= fewEntries) {
    for (size_t i = 0; i < acl.entry.size(); ++i)
      if (matches(acl.entry[i], labels, packet)) return i;
    return FirstMatchIndex::noItem;
  }
  std::array<uint16_t, maxKeyBytes> query;
  for (size_t d = 0; d < acl.keyByte.size(); ++d) {
    auto const& label = labels[acl.keyByte[d].field];
    query[d] =
        label ? static_cast<uint16_t>(*label >> acl.keyByte[d].shift & 255) : FirstMatchIndex::none;
  }
  return acl.index.first(query.data(), [&](size_t i) { return acl.entry[i].flagsMatch(packet); });
}

Verdict LoadedTables::lookup(PDAclKey const& key, Packet const& packet) {
  auto const found = acl_.find(key);
  // An ACL decides on packets of its family alone.
  if (found == acl_.end() || key.af() != packet.af) return {};
  Acl& acl = found->second;
  size_t const at = firstEntry(acl, labelsOf(packet), packet);
  // No entry of the ACL matches, and what becomes of the packet then is for the agent to say.
  if (at == FirstMatchIndex::noItem) return {};
  ++acl.hits[at];
  Rule const& rule = acl.rule[acl.entry[at].rule];
  Verdict out;
  out.kind = Verdict::Kind::rule;
  out.rule = rule.rule->aceIndex();
  out.entry = static_cast<uint32_t>(at) - rule.firstEntry;
  out.action = rule.rule->action();
  return out;
}

uint64_t LoadedTables::hits(PDAclKey const& key, AceIndex index, uint32_t entry) const {
  auto const found = acl_.find(key);
  if (found == acl_.end()) return 0;
  Acl const& acl = found->second;
  auto const rule =
      std::lower_bound(acl.rule.begin(), acl.rule.end(), index,
                       [](Rule const& r, AceIndex i) { return r.rule->aceIndex() < i; });
  if (rule == acl.rule.end() || rule->rule->aceIndex() != index) return 0;
  // Behind the entries of the rule stand those of the next one.
  if (entry >= rule->rule->filters()) return 0;
  return acl.hits[rule->firstEntry + entry];
}

}  // namespace SoftChip
