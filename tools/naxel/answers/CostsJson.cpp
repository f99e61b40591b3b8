#include "answers/Costs.h"

#include <nlohmann/json.hpp>

namespace NaxelTool {

namespace {

using Json = nlohmann::ordered_json;

template <class T>
void put(Json& to, char const* name, std::optional<T> const& value) {
  if (value) to[name] = *value;
}

void put(Json& to, std::optional<Saving> const& saving) {
  if (saving) to["removalSaves"] = {{"entries", saving->entries}, {"rows", saving->rows}};
}

Json lacksJson(CostReport const& report) {
  Json out = Json::array();
  for (Lack const& lack : report.lacks) {
    Json item{{"text", lack.text}};
    if (!lack.member.empty()) item["member"] = lack.member;
    put(item, "enough", lack.enough);
    out.push_back(std::move(item));
  }
  return out;
}

Json tablesJson(CostReport const& report) {
  Json out = Json::array();
  for (TableCost const& t : report.tables) {
    Json item{{"table", Mox::stringValue(t.table)}, {"rows", t.rows}, {"bits", t.bits}};
    put(item, "capacity", t.capacity);
    out.push_back(std::move(item));
  }
  return out;
}

Json fieldsJson(CostReport const& report) {
  Json out = Json::array();
  for (FieldCost const& f : report.fields) {
    Json item{{"field", f.name}, {"width", f.width}, {"sets", f.sets}};
    if (f.width) {
      item["labels"] = f.labels;
      item["room"] = (uint64_t{1} << f.width) - 1;
      item["code"] = Mox::stringValue(f.code);
    }
    if (f.keyBits) item["keyBits"] = f.keyBits;
    out.push_back(std::move(item));
  }
  return out;
}

Json aclsJson(CostReport const& report) {
  Json out = Json::array();
  for (AclCost const& a : report.acls)
    out.push_back({{"name", a.name},
                   {"af", Mox::stringValue(a.af)},
                   {"rules", a.rules},
                   {"entries", a.entries},
                   {"keyBits", a.keyBits},
                   {"plainEntries", a.plainEntries},
                   {"plainKeyBits", a.plainKeyBits}});
  return out;
}

Json rulesJson(CostReport const& report) {
  Json out = Json::array();
  for (RuleCost const& c : report.costs) {
    Json item{{"acl", c.acl}, {"rules", Json::array()}, {"name", c.name}};
    for (Naxel::AceIndex const index : c.rules) item["rules"].push_back(index.value());
    if (!c.from.empty()) item["from"] = c.from;
    item["text"] = c.text;
    item["entries"] = c.entries;
    item["plainEntries"] = c.plainEntries;
    item["factors"] = Json::array();
    for (CostFactor const& f : c.factors)
      item["factors"].push_back(
          {{"field", f.field}, {"what", f.what}, {"cubes", f.cubes}, {"plain", f.plain}});
    put(item, c.without);
    out.push_back(std::move(item));
  }
  return out;
}

Json listsJson(CostReport const& report) {
  Json out = Json::array();
  for (ListCost const& l : report.lists) {
    Json item{{"field", l.field}, {"what", l.text},     {"members", l.members},
              {"plain", l.plain}, {"labels", l.labels}, {"cubes", l.cubes},
              {"rules", l.rules}, {"users", l.users},   {"entries", l.entries},
              {"extra", l.extra}};
    put(item, l.without);
    out.push_back(std::move(item));
  }
  return out;
}

Json trialsJson(CostReport const& report) {
  Json out = Json::array();
  for (ChipTrial const& t : report.trials) {
    Json item{{"member", t.member}, {"from", t.from}, {"to", t.to}};
    if (t.failure.empty()) {
      item["entries"] = t.entries;
      item["bits"] = t.bits;
    } else {
      item["failure"] = t.failure;
    }
    out.push_back(std::move(item));
  }
  return out;
}

}  // namespace

void printJson(CostReport const& report, ReadCounts const& counts, std::ostream& out) {
  Json json{{"schema", "naxel-cost"},
            {"version", 1},
            {"fits", report.fits()},
            {"counted", report.counted},
            {"source",
             {{"read", counts.read},
              {"compiled", counts.compiled},
              {"reported", counts.reported},
              {"leftOut", counts.leftOut}}},
            {"rules", report.rules},
            {"entries", report.entries},
            {"plainEntries", report.plainEntries},
            {"bits", report.allBits()},
            {"plainBits", report.plainBits()},
            {"worseThanPlain", report.worseThanPlain},
            {"kicks", report.kicks},
            {"untried", report.untried}};
  json["lacks"] = lacksJson(report);
  json["tables"] = tablesJson(report);
  json["fields"] = fieldsJson(report);
  json["acls"] = aclsJson(report);
  json["costs"] = rulesJson(report);
  json["lists"] = listsJson(report);
  json["trials"] = trialsJson(report);
  out << json.dump(1, ' ', true, Json::error_handler_t::replace) << '\n';
}

}  // namespace NaxelTool
