#include "ovs/LabelFlows.h"

#include <algorithm>
#include <array>
#include <map>

namespace NaxelOvs {

namespace {

using Lumox::AddressFamily;
using Naxel::ComboLabelSetType;
using Naxel::PDData;
using Naxel::PrefixXformKey;
using Naxel::RangeSetType;
using Naxel::TcamFieldType;

constexpr uint8_t protoTcp = 6;
constexpr uint8_t protoUdp = 17;
constexpr uint8_t protoSctp = 132;

constexpr uint8_t icmpOf(AddressFamily af) { return af == Lumox::ipv4() ? 1 : 58; }

uint16_t highestLabel(unsigned width) {
  return static_cast<uint16_t>((uint32_t{1} << std::min(width, 16u)) - 1);
}

/// The label that the most of some values have; of several the least.
template <class Labels>
uint16_t commonest(Labels const& labels) {
  std::map<uint16_t, size_t> count;
  for (uint16_t label : labels) ++count[label];
  return std::max_element(count.begin(), count.end(),
                          [](auto const& a, auto const& b) { return a.second < b.second; })
      ->first;
}

class LabelTables {
 public:
  LabelTables(PDData const& data, Layout const& layout, std::vector<AddressFamily> const& of)
      : data_(data), layout_(layout), families_(of) {}

  std::vector<Flow> run() {
    prefixes(Stage::source, TcamFieldType::tcamFieldTypeSrcIp, true);
    prefixes(Stage::destination, TcamFieldType::tcamFieldTypeDstIp, false);
    prefixCombos();
    ports(Stage::sport, RangeSetType::srcPort,
          {MatchField::tcpSrc, MatchField::udpSrc, MatchField::sctpSrc});
    ports(Stage::dport, RangeSetType::dstPort,
          {MatchField::tcpDst, MatchField::udpDst, MatchField::sctpDst});
    portCombos();
    values(Stage::proto, RangeSetType::proto, MatchField::ipProto);
    icmpTypes();
    fragments();
    values(Stage::dscp, RangeSetType::dscp, MatchField::ipDscp);
    return std::move(flows_);
  }

 private:
  void add(Stage stage, TcamFieldType field, unsigned priority, MatchBuilder const& match,
           uint16_t label) {
    uint8_t const table = layout_.table(stage);
    flows_.push_back({table, static_cast<uint16_t>(priority), match.bytes(),
                      loadAndGo(layout_.slot(field), label, static_cast<uint8_t>(table + 1))});
  }
  static MatchBuilder ether(AddressFamily af) {
    return MatchBuilder().add(MatchField::ethType, etherType(af));
  }

  void prefixes(Stage stage, TcamFieldType field, bool source) {
    for (AddressFamily af : families_) {
      PrefixXformKey const key(af, source);
      MatchField const address = af == Lumox::ipv4()
                                     ? (source ? MatchField::ipv4Src : MatchField::ipv4Dst)
                                     : (source ? MatchField::ipv6Src : MatchField::ipv6Dst);
      add(stage, field, 0, ether(af), highestLabel(data_.hwCapability()->prefixXformWidth(key)));
      auto const& table = data_.pdPrefixXformEntryColl(key)->entry();
      flows_.reserve(flows_.size() + table.size());
      for (auto const& e : table)
        add(stage, field, e.key().length() + 1u, ether(af).add(address, e.key()),
            e.value().value());
    }
  }

  void combos(Stage stage, TcamFieldType field, ComboLabelSetType type, TcamFieldType first,
              MatchBuilder const& family) {
    add(stage, field, 0, family, highestLabel(data_.hwCapability()->comboXformWidth(type)));
    // Both sides of a combination stand in one register.
    Slot const src = layout_.slot(first);
    auto const& table = data_.comboColl(type)->entry();
    flows_.reserve(flows_.size() + table.size());
    for (auto const& e : table)
      add(stage, field, 1,
          MatchBuilder(family).add(
              registerField(src.reg),
              uint32_t{e.key().srcLabel().value()} << 16 | e.key().dstLabel().value()),
          e.value().value());
  }
  void prefixCombos() {
    for (AddressFamily af : families_)
      combos(Stage::prefixCombo, TcamFieldType::tcamFieldTypeSrcDstIp, Naxel::prefixComboType(af),
             TcamFieldType::tcamFieldTypeSrcIp, ether(af));
  }
  void portCombos() {
    combos(Stage::portCombo, TcamFieldType::tcamFieldTypeSrcDstPort,
           ComboLabelSetType::srcDstL4Port, TcamFieldType::tcamFieldTypeSrcPort, MatchBuilder());
  }

  void ports(Stage stage, RangeSetType type, std::array<MatchField, 3> const& fields) {
    TcamFieldType const field = Naxel::rangeField(type).tcamField;
    auto const pieces = labelPieces(data_, type);
    add(stage, field, 0, MatchBuilder(), labelAt(pieces, 0));
    auto const cover = coverPorts(pieces);
    constexpr std::array<uint8_t, 3> protocols = {protoTcp, protoUdp, protoSctp};
    flows_.reserve(flows_.size() + cover.size() * protocols.size() * families_.size());
    for (AddressFamily af : families_)
      for (size_t i = 0; i < protocols.size(); ++i)
        for (PortCover const& c : cover)
          add(stage, field, c.length + 1u,
              ether(af).add(MatchField::ipProto, protocols[i]).add(fields[i], c.value, c.mask()),
              c.label);
  }

  /// Labels of all values, by value.
  std::vector<uint16_t> labelsOf(RangeSetType type) const {
    auto const pieces = labelPieces(data_, type);
    std::vector<uint16_t> out;
    out.reserve(Naxel::rangeField(type).bound() + size_t{1});
    for (uint32_t v = 0; v <= Naxel::rangeField(type).bound(); ++v)
      out.push_back(labelAt(pieces, static_cast<uint16_t>(v)));
    return out;
  }

  /// A field that every packet has, one flow per value.
  void values(Stage stage, RangeSetType type, MatchField match) {
    TcamFieldType const field = Naxel::rangeField(type).tcamField;
    auto const labels = labelsOf(type);
    uint16_t const usual = commonest(labels);
    add(stage, field, 0, MatchBuilder(), usual);
    for (AddressFamily af : families_)
      for (uint32_t v = 0; v < labels.size(); ++v)
        if (labels[v] != usual) add(stage, field, 1, ether(af).add(match, v), labels[v]);
  }

  void icmpTypes() {
    TcamFieldType const field = TcamFieldType::tcamFieldTypeIcmp;
    auto const labels = labelsOf(RangeSetType::icmp);
    uint16_t const usual = commonest(labels);
    add(Stage::icmpType, field, 0, MatchBuilder(), labels[0]);
    for (AddressFamily af : families_) {
      auto const icmp = [&] { return ether(af).add(MatchField::ipProto, icmpOf(af)); };
      MatchField const type = af == Lumox::ipv4() ? MatchField::icmpv4Type : MatchField::icmpv6Type;
      if (usual != labels[0]) add(Stage::icmpType, field, 1, icmp(), usual);
      for (uint32_t v = 0; v < labels.size(); ++v)
        if (labels[v] != usual) add(Stage::icmpType, field, 2, icmp().add(type, v), labels[v]);
      // Where the usual label is that of type 0, what is not ICMP has it as well.
    }
  }

  void fragments() {
    TcamFieldType const field = TcamFieldType::tcamFieldTypeFragOffset;
    auto const pieces = labelPieces(data_, RangeSetType::fragment);
    add(Stage::fragment, field, 0, MatchBuilder(), labelAt(pieces, 0));
    for (AddressFamily af : families_)
      add(Stage::fragment, field, 1, ether(af).add(MatchField::ipFrag, laterFragment),
          labelAt(pieces, 1));
  }

  PDData const& data_;
  Layout const& layout_;
  std::vector<AddressFamily> const& families_;
  std::vector<Flow> flows_;
};

}  // namespace

std::vector<LabelPiece> labelPieces(PDData const& data, RangeSetType type) {
  uint16_t const miss = highestLabel(data.hwCapability()->rangeXformWidth(type));
  uint32_t const bound = Naxel::rangeField(type).bound();
  std::vector<LabelPiece> out;
  uint32_t next = 0;  // the first value that has no piece yet
  auto const add = [&](uint32_t first, uint16_t label) {
    if (out.empty() || out.back().label != label)
      out.push_back({static_cast<uint16_t>(first), label});
  };
  for (auto const& e : data.rangeColl(type)->entry()) {
    if (e.key().first() > bound) break;
    if (e.key().first() > next) add(next, miss);
    add(e.key().first(), e.value().value());
    next = e.key().last() + uint32_t{1};
  }
  if (next <= bound) add(next, miss);
  return out;
}

uint16_t labelAt(std::vector<LabelPiece> const& pieces, uint16_t value) {
  auto const behind = std::upper_bound(pieces.begin(), pieces.end(), value,
                                       [](uint16_t v, LabelPiece const& p) { return v < p.first; });
  return std::prev(behind)->label;
}

std::vector<Flow> labelFlows(PDData const& data, Layout const& layout,
                             std::vector<AddressFamily> const& families) {
  return LabelTables(data, layout, families).run();
}

}  // namespace NaxelOvs
