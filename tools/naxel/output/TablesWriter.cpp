#include "output/TablesWriter.h"

#include "input/ChipReader.h"

#include <nlohmann/json.hpp>

namespace NaxelTool {

namespace {

using Json = nlohmann::ordered_json;

/// One line of JSON. Names may hold any bytes; what is not UTF-8 is replaced.
std::string text(Json const& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/// Writes the separators between the members of an array or object, each on a line of its own.
class Lines {
 public:
  Lines(std::ostream& out, int indent) : out_(out), indent_(indent) {}

  std::ostream& next() {
    out_ << (any_ ? ",\n" : "\n") << std::string(static_cast<size_t>(indent_), ' ');
    any_ = true;
    return out_;
  }

 private:
  std::ostream& out_;
  int indent_;
  bool any_ = false;
};

template <class Coll, class Row>
void writeTable(std::ostream& out, std::string const& name, Coll const& coll, Row row) {
  out << text(name) << ":[";
  Lines lines(out, 4);
  for (auto const& entry : coll.entry()) lines.next() << text(row(entry));
  out << "]";
}

Json widths(Naxel::ChipHwCapability const& chip) {
  auto const perKey = [](auto const& map, auto nameOf) {
    Json out = Json::object();
    for (auto const& [key, width] : map)
      if (width) out[nameOf(key)] = width;
    return out;
  };
  auto const enumName = [](auto key) { return Naxel::stringValue(key); };
  Json out;
  out["prefix"] = Json::object();
  for (Naxel::PrefixXformKey const& key : Naxel::PrefixXformKey::all())
    if (chip.prefixXformWidth(key)) out["prefix"][prefixKeyName(key)] = chip.prefixXformWidth(key);
  out["range"] = perKey(chip.rangeXformWidth(), enumName);
  out["combo"] = perKey(chip.comboXformWidth(), enumName);
  return out;
}

void writeXformTables(std::ostream& out, Naxel::PDData const& data) {
  out << "  \"prefix\":{";
  Lines prefixes(out, 3);
  for (Naxel::PrefixXformKey const& key : Naxel::PrefixXformKey::all())
    writeTable(prefixes.next(), prefixKeyName(key), *data.pdPrefixXformEntryColl(key),
               [](Naxel::PDPrefixXformEntry const& e) {
                 return Json{{"prefix", Mox::valueToStrep(e.key())}, {"label", e.value().value()}};
               });
  out << "},\n  \"range\":{";
  Lines ranges(out, 3);
  for (Naxel::RangeSetType const type : Naxel::allRangeSetTypes())
    writeTable(ranges.next(), Naxel::stringValue(type), *data.rangeColl(type),
               [](Naxel::PDRangeXformEntry const& e) {
                 return Json{{"first", e.key().first()},
                             {"last", e.key().last()},
                             {"label", e.value().value()}};
               });
  out << "},\n  \"combo\":{";
  Lines combos(out, 3);
  for (Naxel::ComboLabelSetType const type : Naxel::allComboLabelSetTypes())
    writeTable(combos.next(), Naxel::stringValue(type), *data.comboColl(type),
               [](Naxel::PDComboEntry const& e) {
                 return Json{{"src", e.key().srcLabel().value()},
                             {"dst", e.key().dstLabel().value()},
                             {"label", e.value().value()}};
               });
  out << "},\n";
}

Json actionJson(Naxel::NaxelActionValue const& a) {
  return Json{{"dropEnabled", a.dropEnabled()},
              {"logEnabled", a.logEnabled()},
              {"dscp", a.dscp().value()},
              {"setDscpEnabled", a.setDscpEnabled()},
              {"tc", a.tc().value()},
              {"setTcEnabled", a.setTcEnabled()},
              {"sflowEnabled", a.sflowEnabled()}};
}

/// The fields that constrain, under the names and in the order of the filter's own list.
Json entryJson(Naxel::PDAclFilter const& filter) {
  Json out = Json::object();
  auto const add = [&](char const* name, auto const& value) {
    if constexpr (std::is_same_v<std::remove_cvref_t<decltype(value)>, bool>) {
      if (value) out[name] = true;
    } else if (value.mask().value()) {
      out[name] = {{"label", value.label().value()}, {"mask", value.mask().value()}};
    }
  };
  std::apply([&](auto const&... f) { (add(f.name, filter.*f.member), ...); },
             Naxel::PDAclFilter::fields());
  return out;
}

void writeRule(std::ostream& out, Naxel::PDAclRule const& rule, std::string const& name) {
  out << "{\"index\":" << rule.aceIndex().value() << ",\"name\":" << text(name)
      << ",\"action\":" << text(actionJson(rule.action())) << ",\"entries\":[";
  Lines entries(out, 5);
  for (Naxel::PDAclFilter const& filter : rule.filter()) entries.next() << text(entryJson(filter));
  out << "]}";
}

void writeAcls(std::ostream& out, Naxel::PDAclColl const& data, Naxel::AclConfigColl const& acls) {
  out << "  \"acl\":[";
  Lines lines(out, 3);
  for (auto const& [key, acl] : data.pdAcl()) {
    auto const config = acls.acl(key.aclName());
    lines.next() << "{\"name\":" << text(key.aclName())
                 << ",\"af\":" << text(Naxel::stringValue(key.af())) << ",\"rules\":[";
    Lines rules(out, 4);
    for (auto const& [index, rule] : acl->rule()) {
      auto const named = config ? config->ruleById(index) : nullptr;
      writeRule(rules.next(), *rule, named ? named->name() : std::string());
    }
    out << "]}";
  }
  out << "]";
}

}  // namespace

void writeTables(std::ostream& out, Naxel::RootStatus const& kick, Naxel::PDData const& data,
                 Naxel::AclConfigColl const& acls, ReadCounts const& source) {
  Json const outcome{{"progress", Naxel::stringValue(kick.kickProgress())},
                     {"message", kick.kickMessage()},
                     {"count", kick.kickCount()}};
  Json const read{{"read", source.read},
                  {"compiled", source.compiled},
                  {"reported", source.reported},
                  {"leftOut", source.leftOut}};
  out << R"({"schema":"naxel-tables","version":1,"chip":)" << Mox::valueToStrep(kick.chipId())
      << ",\n \"source\":" << text(read) << ",\n \"kick\":" << text(outcome)
      << ",\n \"widths\":" << text(widths(*data.hwCapability()))
      << ",\n \"labelCode\":" << text(Naxel::stringValue(data.labelCode())) << ",\n \"tables\":{\n";
  writeXformTables(out, data);
  writeAcls(out, *data.pdAclColl(), acls);
  out << "}}\n";
}

}  // namespace NaxelTool
