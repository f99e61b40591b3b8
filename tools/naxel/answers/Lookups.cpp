#include "answers/Lookups.h"

namespace NaxelTool {

namespace {

using Naxel::ComboLabelSetType;
using Naxel::RangeSetType;
using Verify::Field;
namespace Fields = Verify::Fields;

class LookupWalk {
 public:
  LookupWalk(Naxel::PDData const& data, Verify::Packet const& packet, Verify::Labels const& labels)
      : data_(data), packet_(packet), labels_(labels), layout_(Verify::KeyLayout::of(data)) {}

  std::vector<LookupStep> run() {
    side(Fields::source, packet_.src);
    side(Fields::destination, packet_.dst);
    for (RangeSetType const type : Naxel::allRangeSetTypes()) field(type);
    combine(Fields::prefixCombo, Naxel::prefixComboType(packet_.af), Fields::source,
            Fields::destination);
    // Raw ports are no labels, and there is nothing to look up by them.
    if (!layout_.isRaw(RangeSetType::srcPort) && !layout_.isRaw(RangeSetType::dstPort))
      combine(Fields::portCombo, ComboLabelSetType::srcDstL4Port, Fields::sport, Fields::dport);
    return std::move(out_);
  }

 private:
  void add(Field field, std::string input, bool raw, std::string matched) {
    out_.push_back({field, std::move(input), raw, std::move(matched), labels_[field]});
  }

  void side(Field field, Verify::Address const& address) {
    Lumox::IpGenPrefix const* longest = nullptr;
    auto const table =
        data_.pdPrefixXformEntryColl(Naxel::PrefixXformKey(packet_.af, field == Fields::source));
    for (auto const& e : table->entry())
      if (e.key().containsAddress(address.hi, address.lo) &&
          (!longest || e.key().length() > longest->length()))
        longest = &e.key();
    add(field, Verify::addressText(packet_.af, address), false,
        longest ? Mox::valueToStrep(*longest) : std::string());
  }

  void field(RangeSetType type) {
    uint16_t const value = packet_.value(type);
    std::string matched;
    for (auto const& e : data_.rangeColl(type)->entry()) {
      if (value < e.key().first() || value > e.key().last()) continue;
      matched = std::to_string(e.key().first());
      if (e.key().last() != e.key().first()) matched += "-" + std::to_string(e.key().last());
    }
    add(Naxel::rangeField(type).tcamField, std::to_string(value), layout_.isRaw(type),
        std::move(matched));
  }

  void combine(Field to, ComboLabelSetType type, Field src, Field dst) {
    if (layout_.combo[static_cast<size_t>(type)] == 0) return;
    std::string input;
    for (Field const f : {src, dst})
      input += (input.empty() ? "" : ", ") + std::string(Naxel::labelFieldName(f)) + " " +
               (labels_[f] ? std::to_string(*labels_[f]) : "-");
    std::string matched;
    for (auto const& e : data_.comboColl(type)->entry())
      if (labels_[src] && labels_[dst] && e.key().srcLabel().value() == *labels_[src] &&
          e.key().dstLabel().value() == *labels_[dst])
        matched = "(" + std::to_string(*labels_[src]) + ", " + std::to_string(*labels_[dst]) + ")";
    add(to, std::move(input), false, std::move(matched));
  }

  Naxel::PDData const& data_;
  Verify::Packet const& packet_;
  Verify::Labels const& labels_;
  Verify::KeyLayout layout_;
  std::vector<LookupStep> out_;
};

}  // namespace

std::vector<LookupStep> lookupsOf(Naxel::PDData const& data, Verify::Packet const& packet,
                                  Verify::Labels const& labels) {
  return LookupWalk(data, packet, labels).run();
}

}  // namespace NaxelTool
