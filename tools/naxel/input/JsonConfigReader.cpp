#include "input/JsonConfigReader.h"

#include "input/JsonRuleFields.h"

#include <set>

namespace NaxelTool {

namespace {

class RulesReader {
 public:
  explicit RulesReader(RuleReading& reading)
      : file_(reading.path(), reading.content(), "naxel-rules",
              {"schema", "version", "prefixLists", "acls"}),
        reading_(reading) {}

  void read() {
    if (JsonNode const* const lists = file_.root().find("prefixLists"))
      for (JsonMember const& m : file_.object(*lists, "'prefixLists'", {})) readList(m);
    for (JsonNode const& acl : file_.array(file_.need(file_.root(), "acls"), "acls")) readAcl(acl);
  }

 private:
  void readList(JsonMember const& m) try {
    NamedList list = readPrefixList(file_, m.value);
    list.file = reading_.file();
    list.at = m.at();
    NamedList const* const other = reading_.rules().lists().add(m.name, std::move(list));
    if (other)
      file_.fail(m.at(), "prefix list '" + m.name + "' stands in " +
                             reading_.rules().files()[other->file] + ":" +
                             std::to_string(other->at.line) + " already");
  } catch (InputError const& e) {
    reading_.error(e, "json");
    // What refers to it is not to be told as a fault of its own.
    broken_.insert(m.name);
  }

  void readAcl(JsonNode const& node) {
    JsonNode::Array const* rules = nullptr;
    Mox::Ptr<Naxel::AclConfig> acl;
    try {
      file_.object(node, "an ACL", {"name", "af", "description", "rules"});
      JsonNode const& name = file_.need(node, "name");
      JsonNode const& family = file_.need(node, "af");
      std::string const* const text = family.text();
      if (!text || (*text != "ipv4" && *text != "ipv6"))
        file_.fail(family, "'af' must be \"ipv4\" or \"ipv6\"");
      af_ = *text == "ipv4" ? Lumox::ipv4() : Lumox::ipv6();
      rules = &file_.array(file_.need(node, "rules"), "rules");
      acl = reading_.aclIs(file_.name(name, "name"), af_, name.at());
      if (JsonNode const* const about = node.find("description"))
        reading_.rules().descriptionIs(acl->name(), file_.text(*about, "description"));
    } catch (InputError const& e) {
      reading_.error(e, "json");
    }
    if (!acl) {
      JsonNode const* const all = node.find("rules");
      size_t const lost = all && all->items() ? all->items()->size() : 0;
      reading_.counts().read += lost;
      reading_.counts().reported += lost;
      return;
    }
    uint32_t entry = 0;
    for (JsonNode const& rule : *rules) {
      ++reading_.counts().read;
      try {
        readRule(rule, *acl, entry++);
        ++reading_.counts().compiled;
      } catch (InputError const& e) {
        ++reading_.counts().reported;
        reading_.error(e, "json");
      }
    }
  }

  void readRule(JsonNode const& node, Naxel::AclConfig& acl, uint32_t entry) {
    static std::vector<std::string_view> const fields = [] {
      std::vector<std::string_view> all = {
          "index",       "name",         "description",         "source",
          "destination", "matchTcpInit", "matchTcpEstablished", "continueRule",
          "action"};
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

    RuleDraft draft;
    readMatch(file_, node, draft);
    file_.ifFlag(node, "continueRule", [&](bool v) { draft.continueRule = v; });
    if (JsonNode const* const action = node.find("action"))
      draft.action = readAction(file_, *action);
    RuleOrigin origin{0, node.at(), entry, false, {}};
    if (JsonNode const* const about = node.find("description"))
      origin.description = file_.text(*about, "description");
    readOwnList(node, "source", draft.source);
    readOwnList(node, "destination", draft.destination);

    auto const rule = acl.ruleByNameIs(name);
    acl.ruleByIdIs(index, rule);
    reading_.originIs(acl, index, std::move(origin));
    draft.fill(*rule);
    for (bool const source : {true, false})
      if (JsonNode const* const side = node.find(source ? "source" : "destination"))
        if (std::string const* const list = side->text(); list && !broken_.contains(*list))
          reading_.rules().lists().want({rule, source, af_, *list, reading_.file(), side->at()});
  }

  /// The list of one side of a rule where it stands there; one that has a name comes later.
  void readOwnList(JsonNode const& rule, std::string_view field,
                   Mox::Ptr<Naxel::IpPrefixList>& to) {
    JsonNode const* const node = rule.find(field);
    if (!node || node->text()) return;
    NamedList const list = readPrefixList(file_, *node);
    if (list.af != af_)
      file_.fail(*node, "the prefixes are of " + Mox::stringValue(list.af) + ", the ACL is of " +
                            Mox::stringValue(af_));
    if (!list.everything) to = list.list;
  }

  JsonFile file_;
  RuleReading& reading_;
  std::set<std::string> broken_;
  Lumox::AddressFamily af_ = Lumox::ipv4();  // of the ACL that is being read
};

}  // namespace

void readJsonConfig(RuleReading& reading) { RulesReader(reading).read(); }

}  // namespace NaxelTool
