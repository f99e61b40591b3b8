#include "input/ConfigDbReader.h"

#include "input/ConfigDbRule.h"

#include <algorithm>
#include <map>

namespace NaxelTool {

namespace ConfigDb {
namespace {

struct Rule {
  std::string table;
  std::string name;
  JsonNode const* node;
  Position at;
  bool deleted = false;  ///< by a later object of the file
};

struct Table {
  std::string type;  ///< in capitals; empty where nothing is said
  std::string description;
  Position at;
};

class FileReader {
 public:
  explicit FileReader(RuleReading& reading)
      : reading_(reading),
        file_(reading.path()),
        root_(parseJson(reading.path(), reading.content(), JsonDuplicates::kept)) {}

  void read() {
    collect(root_, 0);
    if (!found_) throw InputError(reading_.path(), root_.at(), "there is no ACL_RULE in this file");
    std::map<std::string, std::vector<Rule const*>> byTable;
    for (Rule const& rule : rules_) byTable[rule.table].push_back(&rule);
    for (auto const& [name, rules] : byTable) readTable(name, rules);
    if (bindings_) reading_.note({*bindings_}, "bindings", "what tables are bound to is not read");
  }

 private:
  /// The tables stand at the top, in a wrapper, or in the objects of a list with an operation each.
  void collect(JsonNode const& node, int depth) {
    if (node.items())
      for (JsonNode const& item : *node.items()) collect(item, depth + 1);
    if (!node.members() || depth > 3) return;
    JsonNode const* const op = node.find("OP");
    bool const isDel = op && op->text() && upper(*op->text()) == "DEL";
    for (JsonMember const& m : *node.members()) try {
        collectMember(m, isDel, depth);
      } catch (InputError const& e) {
        reading_.error(e, "table");
      }
  }

  void collectMember(JsonMember const& m, bool isDel, int depth) {
    std::string const name = upper(m.name);
    bool const one = name.find_first_of(":|") != std::string::npos;
    std::string const key = one ? m.name.substr(m.name.find_first_of(":|") + 1) : std::string();
    if (name == "ACL_RULE" || name == "ACL_RULE_TABLE") {
      found_ = true;
      for (JsonMember const& rule : file_.object(m.value, m.name, {}))
        ruleIs(rule.name, rule.value, rule.at(), isDel);
    } else if (name == "ACL_TABLE" || name == "ACL_TABLE_TABLE") {
      found_ = true;
      for (JsonMember const& table : file_.object(m.value, m.name, {}))
        tableIs(table.name, table.value, table.at());
    } else if (name.starts_with("ACL_RULE_TABLE:") || name.starts_with("ACL_RULE|")) {
      found_ = true;
      ruleIs(key, m.value, m.at(), isDel);
    } else if (name.starts_with("ACL_TABLE_TABLE:") || name.starts_with("ACL_TABLE|")) {
      found_ = true;
      tableIs(key, m.value, m.at());
    } else {
      collect(m.value, depth + 1);
    }
  }

  void tableIs(std::string const& name, JsonNode const& node, Position at) {
    Table table;
    table.at = at;
    if (node.members())
      for (JsonMember const& m : *node.members()) {
        std::string const field = upper(m.name);
        if (field == "TYPE") table.type = upper(textOf(file_, m.value, "type"));
        if (field == "POLICY_DESC") table.description = textOf(file_, m.value, "policy_desc");
        if (field == "PORTS" || field == "PORTS@") bindings_ = bindings_.value_or(m.at());
      }
    tables_.insert_or_assign(name, std::move(table));
  }

  void ruleIs(std::string const& key, JsonNode const& node, Position at, bool isDel) {
    ++reading_.counts().read;
    size_t const bar = key.find_first_of("|:");
    if (bar == std::string::npos || bar == 0 || bar + 1 == key.size()) {
      ++reading_.counts().reported;
      reading_.error({at}, "entry", "'" + key + "' does not name a table and a rule");
      return;
    }
    auto const [known, isNew] = byKey_.try_emplace(key, rules_.size());
    if (!isNew && !rules_[known->second].deleted) {
      Rule& earlier = rules_[known->second];
      earlier.deleted = true;
      ++reading_.counts().reported;
      if (isDel) {
        reading_.note({earlier.at}, "deleted", "rule '" + key + "' is deleted further on");
      } else {
        ++reading_.counts().leftOut;
        reading_.unsupported({earlier.at},
                             "rule '" + key + "' stands again in line " + std::to_string(at.line) +
                                 ": only one of the two can count",
                             "the later one counts where this is left out");
      }
    }
    known->second = rules_.size();
    rules_.push_back({key.substr(0, bar), key.substr(bar + 1), &node, at, isDel});
    if (!isDel) return;
    ++reading_.counts().reported;
    reading_.note({at}, "deleted", "the object deletes rule '" + key + "'");
  }

  void readTable(std::string const& name, std::vector<Rule const*> const& rules) {
    auto const known = tables_.find(name);
    Table const table = known == tables_.end() ? Table{{}, {}, rules.front()->at} : known->second;
    if (table.type.starts_with("MIRROR") || table.type == "CTRLPLANE")
      return skip(name, table, rules);
    AclDraft acl;
    acl.name = name;
    acl.at = table.at;
    acl.description = table.description;
    if (table.type == "L3") acl.families = Families{true, false};
    if (table.type == "L3V6") acl.families = Families{false, true};
    if (table.type == "L3V4V6") acl.families = Families();
    if (!acl.families) acl.families = familiesOfAll(rules, !table.type.empty());
    std::vector<RuleFields> fields = readRules(rules, acl.families.value_or(untoldFamilies));
    std::stable_sort(fields.begin(), fields.end(), [](RuleFields const& a, RuleFields const& b) {
      return a.priority != b.priority ? a.priority > b.priority : a.entry.name < b.entry.name;
    });
    auto const tie = std::adjacent_find(
        fields.begin(), fields.end(),
        [](RuleFields const& a, RuleFields const& b) { return a.priority == b.priority; });
    if (tie != fields.end())
      reading_.warning(
          {std::next(tie)->entry.origin.at}, "same-priority",
          "rules '" + tie->entry.name + "' and '" + std::next(tie)->entry.name + "' of table '" +
              name + "' have the same PRIORITY " + std::to_string(tie->priority) +
              ": which of them decides is undefined; they are read in the order of names");
    acl.entries.reserve(fields.size());
    for (RuleFields& f : fields) acl.entries.push_back(std::move(f.entry));
    if (acl.entries.empty()) return;
    makeAcl(reading_, acl);
  }

  /// What any of the rules names, those that are left out included. Rules that name no family are about
  /// both in tables of types that we do not know.
  std::optional<Families> familiesOfAll(std::vector<Rule const*> const& rules, bool typed) const {
    Families found{false, false};
    for (Rule const* const rule : rules) {
      if (rule->deleted) continue;
      Families const left = familiesLeft(file_, *rule->node);
      if (!left.both() || typed) found = found | left;
    }
    return found.none() ? std::nullopt : std::optional(found);
  }

  std::vector<RuleFields> readRules(std::vector<Rule const*> const& rules, Families families) {
    std::vector<RuleFields> out;
    out.reserve(rules.size());
    uint32_t number = 0;
    for (Rule const* const rule : rules) {
      if (rule->deleted) continue;
      --reading_.counts().read;  // counted where the object was found, as readEntry() does
      readEntry(reading_, [&] {
        RuleFields f = readRule(file_, *rule->node, families);
        f.entry.name = rule->name;
        f.entry.origin.at = rule->at;
        f.entry.origin.entry = number;
        out.push_back(std::move(f));
      });
      ++number;
    }
    return out;
  }

  void skip(std::string const& name, Table const& table, std::vector<Rule const*> const& rules) {
    auto const n = static_cast<size_t>(
        std::count_if(rules.begin(), rules.end(), [](Rule const* rule) { return !rule->deleted; }));
    reading_.counts().reported += n;
    reading_.note({table.at}, "skipped-table",
                  "table '" + name + "' is of type " + table.type +
                      ", not about packets that are forwarded: " + std::to_string(n) +
                      (n == 1 ? " rule is" : " rules are") + " left out");
  }

  RuleReading& reading_;
  JsonFile file_;
  JsonNode root_;
  bool found_ = false;
  std::vector<Rule> rules_;
  std::map<std::string, size_t> byKey_;
  std::map<std::string, Table> tables_;
  std::optional<Position> bindings_;
};

}  // namespace
}  // namespace ConfigDb

bool looksLikeConfigDb(std::string_view content) {
  for (std::string_view const name : {"\"ACL_RULE", "\"ACL_TABLE", "\"acl_rule", "\"acl_table"})
    if (content.find(name) != std::string_view::npos) return true;
  return false;
}

void readConfigDb(RuleReading& reading) { ConfigDb::FileReader(reading).read(); }

}  // namespace NaxelTool
