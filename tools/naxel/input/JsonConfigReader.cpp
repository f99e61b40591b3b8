#include "input/JsonConfigReader.h"

#include "input/Intervals.h"
#include "input/JsonAccess.h"

#include <charconv>
#include <map>
#include <optional>
#include <stdexcept>

namespace NaxelTool {

namespace {

/// A prefix list of the file and what rules need to know of it.
struct NamedList {
  Mox::Ptr<Naxel::IpPrefixList> list;
  Lumox::AddressFamily af = Lumox::ipv4();
  bool everything = false;
};

class RulesReader {
 public:
  explicit RulesReader(RuleReading& reading)
      : file_(reading.path(), reading.content(), "naxel-rules",
              {"schema", "version", "prefixLists", "acls"}),
        reading_(reading) {}

  void read() {
    if (JsonNode const* const lists = JsonFile::find(file_.root(), "prefixLists"))
      for (JsonMember const& m : file_.object(*lists, "'prefixLists'", {}))
        named_.emplace(m.name, readList(m.value));
    for (JsonNode const& acl : file_.array(file_.need(file_.root(), "acls"), "acls")) readAcl(acl);
  }

 private:
  void readAcl(JsonNode const& node) {
    file_.object(node, "an ACL", {"name", "af", "rules"});
    JsonNode const& name = file_.need(node, "name");
    JsonNode const& family = file_.need(node, "af");
    auto const* const text = std::get_if<std::string>(&family.value);
    if (!text || (*text != "ipv4" && *text != "ipv6"))
      file_.fail(family, "'af' must be \"ipv4\" or \"ipv6\"");
    af_ = *text == "ipv4" ? Lumox::ipv4() : Lumox::ipv6();
    auto const acl = reading_.aclIs(file_.name(name, "name"), af_, name.at);
    uint32_t entry = 0;
    for (JsonNode const& rule : file_.array(file_.need(node, "rules"), "rules"))
      readRule(rule, *acl, entry++);
  }

  void readRule(JsonNode const& node, Naxel::AclConfig& acl, uint32_t entry) {
    static std::vector<std::string_view> const fields = [] {
      std::vector<std::string_view> all = {"index",        "name",         "source",
                                           "destination",  "matchTcpInit", "matchTcpEstablished",
                                           "continueRule", "action"};
      for (Naxel::RangeField const& field : Naxel::rangeFields) all.push_back(field.name);
      return all;
    }();
    file_.object(node, "a rule", fields);
    JsonNode const& indexNode = file_.need(node, "index");
    Naxel::AceIndex const index(
        static_cast<uint32_t>(file_.number(indexNode, "index", 0, Naxel::AceIndex::null)));
    if (acl.ruleByIdHas(index))
      file_.fail(indexNode, "duplicate rule index " + std::to_string(index.value()));
    JsonNode const& nameNode = file_.need(node, "name");
    std::string const& name = file_.name(nameNode, "name");
    if (acl.ruleByName(name)) file_.fail(nameNode, "duplicate rule name '" + name + "'");

    ++reading_.counts().read;
    ++reading_.counts().compiled;
    auto const rule = acl.ruleByNameIs(name);
    acl.ruleByIdIs(index, rule);
    reading_.originIs(acl, index, {0, node.at, entry, false, {}});
    readFilter(node, *rule->ruleFilterIs());
    file_.ifFlag(node, "continueRule", [&](bool v) { rule->continueRuleIs(v); });
    if (JsonNode const* const action = JsonFile::find(node, "action"))
      rule->actionIs(readAction(*action));
  }

  void readFilter(JsonNode const& node, Naxel::RuleFilter& f) {
    if (auto const list = readSide(node, "source")) f.sourceIs(list);
    if (auto const list = readSide(node, "destination")) f.destinationIs(list);
    for (Naxel::RangeField const& field : Naxel::rangeFields)
      for (Naxel::Range const& r : readRanges(node, field))
        f.rangeIs(field.type, r.rangeStart(), r.rangeEnd());
    file_.ifFlag(node, "matchTcpInit", [&](bool v) { f.matchTcpInitIs(v); });
    file_.ifFlag(node, "matchTcpEstablished", [&](bool v) { f.matchTcpEstablishedIs(v); });
  }

  Naxel::NaxelActionValue readAction(JsonNode const& node) {
    file_.object(node, "'action'",
                 {"dropEnabled", "logEnabled", "dscp", "setDscpEnabled", "tc", "setTcEnabled",
                  "sflowEnabled"});
    Naxel::NaxelActionValue a;
    file_.ifFlag(node, "dropEnabled", [&](bool v) { a.dropEnabledIs(v); });
    file_.ifFlag(node, "logEnabled", [&](bool v) { a.logEnabledIs(v); });
    file_.ifNumber(node, "dscp", 0, Naxel::DscpRange::bound,
                   [&](uint64_t v) { a.dscpIs(Lumox::DscpValue(static_cast<uint8_t>(v))); });
    file_.ifFlag(node, "setDscpEnabled", [&](bool v) { a.setDscpEnabledIs(v); });
    file_.ifNumber(node, "tc", 0, Naxel::NaxelTrafficClass::null,
                   [&](uint64_t v) { a.tcIs(Naxel::NaxelTrafficClass(static_cast<uint8_t>(v))); });
    file_.ifFlag(node, "setTcEnabled", [&](bool v) { a.setTcEnabledIs(v); });
    file_.ifFlag(node, "sflowEnabled", [&](bool v) { a.sflowEnabledIs(v); });
    return a;
  }

  /// The list of one side of a rule; null where the side does not matter.
  Mox::Ptr<Naxel::IpPrefixList> readSide(JsonNode const& rule, std::string_view field) {
    JsonNode const* const node = JsonFile::find(rule, field);
    if (!node) return nullptr;
    NamedList list;
    if (auto const* const name = std::get_if<std::string>(&node->value)) {
      auto const at = named_.find(*name);
      if (at == named_.end()) file_.fail(*node, "there is no prefix list '" + *name + "'");
      list = at->second;
    } else {
      list = readList(*node);
    }
    if (list.af != af_)
      file_.fail(*node, "the prefixes are of " + Mox::stringValue(list.af) + ", the ACL is of " +
                            Mox::stringValue(af_));
    return list.everything ? nullptr : list.list;
  }

  /// Either an array of prefixes, or an object of two such arrays.
  NamedList readList(JsonNode const& node) {
    NamedList out;
    out.list = Mox::makePtr<Naxel::IpPrefixList>();
    std::optional<Lumox::AddressFamily> af;
    if (std::holds_alternative<JsonNode::Array>(node.value)) {
      readPrefixes(node, "prefix list", af,
                   [&](Lumox::IpGenPrefix const& p) { out.list->addrIs(p); });
    } else {
      file_.object(node, "a prefix list", {"addr", "except"});
      if (JsonNode const* const addr = JsonFile::find(node, "addr"))
        readPrefixes(*addr, "addr", af, [&](Lumox::IpGenPrefix const& p) { out.list->addrIs(p); });
      if (JsonNode const* const except = JsonFile::find(node, "except"))
        readPrefixes(*except, "except", af,
                     [&](Lumox::IpGenPrefix const& p) { out.list->exceptAddrIs(p); });
      if (!af) file_.fail(node, "the prefix list is empty");
    }
    out.af = *af;
    out.everything = matchesEverything(*out.list);
    return out;
  }

  template <class Add>
  void readPrefixes(JsonNode const& node, std::string_view what,
                    std::optional<Lumox::AddressFamily>& af, Add add) {
    for (JsonNode const& item : file_.list(node, what)) {
      auto const* const text = std::get_if<std::string>(&item.value);
      if (!text) file_.fail(item, "a prefix must be a text such as \"192.0.2.0/24\"");
      try {
        Lumox::IpGenPrefix const prefix = prefixFromText(*text);
        if (af && prefix.af() != *af) file_.fail(item, "both address families in one prefix list");
        af = prefix.af();
        add(prefix);
      } catch (std::invalid_argument const& e) {
        file_.fail(item, e.what());
      }
    }
  }

  /// One range or an array of them; none where together they contain every value.
  std::vector<Naxel::Range> readRanges(JsonNode const& rule, Naxel::RangeField const& field) {
    JsonNode const* const node = JsonFile::find(rule, field.name);
    if (!node) return {};
    std::vector<Naxel::Range> ranges;
    if (std::holds_alternative<JsonNode::Array>(node->value)) {
      for (JsonNode const& item : file_.list(*node, field.name))
        ranges.push_back(readRange(item, field));
    } else {
      ranges.push_back(readRange(*node, field));
    }
    if (isEverything(valuesOf(ranges), field.bits)) return {};
    return ranges;
  }

  /// A number, or a text "first-last".
  Naxel::Range readRange(JsonNode const& node, Naxel::RangeField const& field) {
    std::string const quoted = "'" + std::string(field.name) + "'";
    uint64_t first = 0;
    uint64_t last = 0;
    if (auto const* const number = std::get_if<uint64_t>(&node.value)) {
      first = last = *number;
    } else {
      auto const* const text = std::get_if<std::string>(&node.value);
      if (!text || !splitRange(*text, first, last))
        file_.fail(node, quoted + " takes numbers and texts such as \"10-20\"");
    }
    if (first > last)
      file_.fail(node, quoted + ": the range starts at " + std::to_string(first) +
                           ", above its end " + std::to_string(last));
    if (last > field.bound())
      file_.fail(node, quoted + " goes from 0 to " + std::to_string(field.bound()));
    return {static_cast<uint32_t>(first), static_cast<uint32_t>(last)};
  }

  static bool splitRange(std::string const& text, uint64_t& first, uint64_t& last) {
    char const* const end = text.data() + text.size();
    auto const low = std::from_chars(text.data(), end, first);
    if (low.ec != std::errc() || low.ptr == end || *low.ptr != '-') return false;
    auto const high = std::from_chars(low.ptr + 1, end, last);
    return high.ec == std::errc() && high.ptr == end;
  }

  JsonFile file_;
  RuleReading& reading_;
  std::map<std::string, NamedList> named_;
  Lumox::AddressFamily af_ = Lumox::ipv4();  // of the ACL that is being read
};

}  // namespace

void readJsonConfig(RuleReading& reading) { RulesReader(reading).read(); }

}  // namespace NaxelTool
