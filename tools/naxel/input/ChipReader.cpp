#include "input/ChipReader.h"

#include "input/JsonAccess.h"

namespace NaxelTool {

namespace {

constexpr uint8_t widest = 16;

class ChipFileReader {
 public:
  ChipFileReader(std::string const& path, std::string const& content)
      : file_(path, content, "naxel-chip",
              {"schema", "version", "chipId", "prefixXformWidth", "rangeXformWidth",
               "comboXformWidth", "tcpFlagsXformSupported", "tcpFlagsXformWidth",
               "permitDuringUpdate", "labelCode", "softChip"}) {}

  ChipSetup read() {
    JsonNode const& root = file_.root();
    ChipSetup out;
    uint64_t id = 0;
    file_.ifNumber(root, "chipId", 0, 255, [&](uint64_t v) { id = v; });
    auto const chip = Mox::makePtr<Naxel::ChipHwCapability>(Obel::ChipId(static_cast<uint8_t>(id)));
    readWidths(*chip);
    file_.ifFlag(root, "tcpFlagsXformSupported",
                 [&](bool v) { chip->tcpFlagsXformSupportedIs(v); });
    file_.ifNumber(root, "tcpFlagsXformWidth", 0, widest,
                   [&](uint64_t v) { chip->tcpFlagsXformWidthIs(static_cast<uint8_t>(v)); });
    out.capability = chip;
    file_.ifFlag(root, "permitDuringUpdate", [&](bool v) { out.permitDuringUpdate = v; });
    choice(root, "labelCode", {"aligned", "compact"}, out.labelCode);
    if (JsonNode const* const node = JsonFile::find(root, "softChip")) readSoftChip(*node, out);
    return out;
  }

 private:
  void readWidths(Naxel::ChipHwCapability& chip) {
    // A prefix always goes through its table; a width of 0 has no meaning there.
    forMembers(file_.root(), "prefixXformWidth", [&](JsonMember const& m) {
      for (Naxel::PrefixXformKey const& key : Naxel::PrefixXformKey::all())
        if (m.name == prefixKeyName(key)) return chip.prefixXformWidthIs(key, width(m, 1));
      unknown(m);
    });
    forMembers(file_.root(), "rangeXformWidth", [&](JsonMember const& m) {
      auto const type = Mox::instanceFromText<Naxel::RangeSetType>(m.name);
      if (!type || *type == Naxel::RangeSetType::rangeSetMax) unknown(m);
      chip.rangeXformWidthIs(*type, width(m, 0));
    });
    forMembers(file_.root(), "comboXformWidth", [&](JsonMember const& m) {
      auto const type = Mox::instanceFromText<Naxel::ComboLabelSetType>(m.name);
      if (!type || *type == Naxel::ComboLabelSetType::comboLabelSetMax) unknown(m);
      chip.comboXformWidthIs(*type, width(m, 0));
    });
  }

  void readSoftChip(JsonNode const& node, ChipSetup& out) {
    file_.object(
        node, "'softChip'",
        {"capacity", "answerAfterTicks", "pace", "order", "tcpFlags", "staleAnswers",
         "confirmPolicyAfterTicks", "forceHitful", "refuseTable", "refuseAcquires", "missYields"});
    SoftChip::Options& o = out.softChip;
    auto const number = [&](std::string_view field, uint32_t& to) {
      file_.ifNumber(node, field, 0, 1000000, [&](uint64_t v) { to = static_cast<uint32_t>(v); });
    };
    auto const flag = [&](std::string_view field, bool& to) {
      file_.ifFlag(node, field, [&](bool v) { to = v; });
    };
    forMembers(node, "capacity", [&](JsonMember const& m) {
      auto const table = Mox::instanceFromText<SoftChip::Table>(m.name);
      if (!table) unknown(m);
      o.capacity[*table] = file_.number(m.value, m.name, 0, ~uint64_t{0});
    });
    number("answerAfterTicks", o.answerAfterTicks);
    choice(node, "pace", {"together", "oneByOne"}, o.pace);
    choice(node, "order", {"standard", "reversed", "prefixTablesLast"}, o.order);
    choice(node, "tcpFlags", {"inTurn", "last", "never"}, o.tcpFlags);
    flag("staleAnswers", o.staleAnswers);
    number("confirmPolicyAfterTicks", o.confirmPolicyAfterTicks);
    flag("forceHitful", o.forceHitful);
    if (JsonNode const* const table = JsonFile::find(node, "refuseTable")) {
      auto const t = Mox::instanceFromText<SoftChip::Table>(file_.name(*table, "refuseTable"));
      if (!t) file_.fail(*table, "'refuseTable' must name a table");
      o.refuseTable = *t;
    }
    number("refuseAcquires", o.refuseAcquires);
    choice(node, "missYields", {"nothing", "highest"}, o.missYields);
  }

  /// The names stand for the enumerators in order.
  template <class E>
  void choice(JsonNode const& object, std::string_view field,
              std::initializer_list<std::string_view> names, E& to) {
    JsonNode const* const node = JsonFile::find(object, field);
    if (!node) return;
    std::string const* const text = node->text();
    std::string all;
    int number = 0;
    for (std::string_view const name : names) {
      if (text && *text == name) {
        to = static_cast<E>(number);
        return;
      }
      all += (number++ ? ", \"" : "\"") + std::string(name) + "\"";
    }
    file_.fail(*node, "'" + std::string(field) + "' must be one of " + all);
  }

  template <class F>
  void forMembers(JsonNode const& object, std::string_view field, F f) {
    if (JsonNode const* const node = JsonFile::find(object, field))
      for (JsonMember const& m : file_.object(*node, "'" + std::string(field) + "'", {})) f(m);
  }
  uint8_t width(JsonMember const& m, uint8_t least) {
    return static_cast<uint8_t>(file_.number(m.value, m.name, least, widest));
  }
  [[noreturn]] void unknown(JsonMember const& m) {
    file_.fail(m.at(), "unknown field '" + m.name + "'");
  }

  JsonFile file_;
};

}  // namespace

ChipSetup defaultChip() {
  auto const chip = Mox::makePtr<Naxel::ChipHwCapability>(Obel::ChipId(0));
  chip->rangeXformWidthIs(Naxel::RangeSetType::srcPort, 12);
  chip->rangeXformWidthIs(Naxel::RangeSetType::dstPort, 12);
  // "Any later fragment" would take 13 raw entries.
  chip->rangeXformWidthIs(Naxel::RangeSetType::fragment, 2);
  ChipSetup out;
  out.capability = chip;
  return out;
}

ChipSetup readChip(std::string const& path, std::string const& content) {
  return ChipFileReader(path, content).read();
}

std::string prefixKeyName(Naxel::PrefixXformKey const& key) {
  return Mox::stringValue(key.af()) + (key.src() ? "Src" : "Dst");
}

}  // namespace NaxelTool
