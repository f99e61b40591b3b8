#include "output/JsonText.h"
#include "output/RuleView.h"
#include "output/RuleWriters.h"

namespace NaxelTool {

namespace {

using Json = nlohmann::ordered_json;

Json prefixesJson(Naxel::IpPrefixList::PrefixColl const& prefixes) {
  Json out = Json::array();
  for (Lumox::IpGenPrefix const& p : sorted(prefixes)) out.push_back(Mox::valueToStrep(p));
  return out;
}

Json listJson(Naxel::IpPrefixList const& list, std::string const& description) {
  if (list.exceptAddr().empty() && description.empty()) return prefixesJson(list.addr());
  Json out = Json::object();
  if (!description.empty()) out["description"] = utf8(description);
  if (!list.addr().empty()) out["addr"] = prefixesJson(list.addr());
  if (!list.exceptAddr().empty()) out["except"] = prefixesJson(list.exceptAddr());
  return out;
}

class RulesWriter {
 public:
  RulesWriter(std::ostream& out, RuleSet const& rules)
      : out_(out), rules_(rules), names_(rules.lists(), "list") {
    // A list that is used in many places stands once.
    for (auto const& [name, list] : rules.lists().all()) names_.nameOf(*list.list);
    for (auto const& [name, acl] : rules.acls()->acl())
      for (RuleView const& rule : viewsOf(rules, *acl))
        for (auto const* list : {rule.source, rule.destination})
          if (list) ++uses_[list];
  }

  void write() {
    std::string acls;
    for (auto const& [name, acl] : rules_.acls()->acl())
      acls += (acls.empty() ? "" : ",") + aclText(*acl);
    out_ << R"({"schema":"naxel-rules","version":1)";
    if (!names_.all().empty()) {
      out_ << ",\n \"prefixLists\":{";
      char const* comma = "";
      for (auto const& [name, list] : names_.all()) {
        NamedList const* const known = rules_.lists().find(name);
        out_ << comma << "\n  " << jsonLine(utf8(name)) << ":"
             << jsonLine(listJson(*list, known ? known->description : ""));
        comma = ",";
      }
      out_ << "}";
    }
    out_ << ",\n \"acls\":[" << acls << "]}\n";
  }

 private:
  std::string aclText(Naxel::AclConfig const& acl) {
    Json head{{"name", utf8(acl.name())},
              {"af", Mox::stringValue(acl.af().value_or(Lumox::ipv4()))}};
    if (std::string const& about = rules_.description(acl.name()); !about.empty())
      head["description"] = utf8(about);
    std::string text = jsonLine(head);
    text.back() = ',';
    std::string rules;
    for (RuleView const& rule : viewsOf(rules_, acl))
      rules += std::string(rules.empty() ? "" : ",") + "\n   " + jsonLine(ruleJson(rule));
    return "\n  " + text + "\"rules\":[" + rules + "]}";
  }

  Json ruleJson(RuleView const& rule) {
    Json out{{"index", rule.index.value()}, {"name", utf8(rule.rule.name())}};
    if (!rule.description().empty()) out["description"] = utf8(rule.description());
    if (rule.source) out["source"] = sideJson(*rule.source);
    if (rule.destination) out["destination"] = sideJson(*rule.destination);
    for (Naxel::RangeField const& field : Naxel::rangeFields)
      if (IntervalSet const& set = rule.of(field.type); !set.empty())
        out[std::string(field.name)] = valuesJson(set);
    if (rule.tcpInit) out["matchTcpInit"] = true;
    if (rule.tcpEstablished) out["matchTcpEstablished"] = true;
    if (rule.rule.continueRule()) out["continueRule"] = true;
    if (Json const action = ruleActionJson(rule.rule.action()); !action.empty())
      out["action"] = action;
    return out;
  }

  Json sideJson(Naxel::IpPrefixList const& list) {
    bool const isLong = list.addrs() + list.exceptAddrs() > 1;
    if (rules_.lists().nameOf(list) || (isLong && uses_[&list] > 1))
      return utf8(names_.nameOf(list));
    return listJson(list, "");
  }

  std::ostream& out_;
  RuleSet const& rules_;
  ListNames names_;
  std::unordered_map<Naxel::IpPrefixList const*, size_t> uses_;
};

}  // namespace

nlohmann::ordered_json valuesJson(IntervalSet const& set) {
  Json out = Json::array();
  for (Interval const& i : set)
    if (i.first == i.last)
      out.push_back(static_cast<uint64_t>(i.first));
    else
      out.push_back(rangeText(i));
  return out.size() == 1 ? out.front() : out;
}

nlohmann::ordered_json ruleActionJson(Naxel::NaxelActionValue const& a) {
  Json out = Json::object();
  if (a.dropEnabled()) out["dropEnabled"] = true;
  if (a.logEnabled()) out["logEnabled"] = true;
  if (a.dscp().value()) out["dscp"] = a.dscp().value();
  if (a.setDscpEnabled()) out["setDscpEnabled"] = true;
  if (a.tc().value() != Naxel::NaxelTrafficClass::null) out["tc"] = a.tc().value();
  if (a.setTcEnabled()) out["setTcEnabled"] = true;
  if (a.sflowEnabled()) out["sflowEnabled"] = true;
  return out;
}

std::string jsonLine(Json const& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string utf8(std::string const& text) {
  try {
    static_cast<void>(Json(text).dump());
    return text;
  } catch (Json::type_error const&) {
    std::string out;
    for (char const c : text) {
      auto const byte = static_cast<unsigned char>(c);
      if (byte >= 0x80) out += static_cast<char>(0xc0 | byte >> 6);
      out += static_cast<char>(byte >= 0x80 ? 0x80 | (byte & 0x3f) : byte);
    }
    return out;
  }
}

void writeRulesAsJson(std::ostream& out, RuleSet const& rules) { RulesWriter(out, rules).write(); }

}  // namespace NaxelTool
