#include "command/VerifyReport.h"

#include "input/Diagnostics.h"
#include "output/Summary.h"

#include <nlohmann/json.hpp>

namespace NaxelTool {

namespace {

std::string reachedText(size_t reached, size_t rules) {
  return std::to_string(reached) + " of " + std::to_string(rules) +
         (rules == 1 ? " rule" : " rules") + " reached";
}

std::string count(size_t n, char const* one, char const* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many) + ", ";
}

void print(Difference const& difference, std::ostream& out) {
  out << printable(difference.text) << '\n';
  if (!difference.packet.empty()) out << "  packet: " << difference.packet << '\n';
  if (!difference.rules.empty())
    out << "  rules:  " << difference.rules << "\n  tables: " << difference.tables
        << "\n  labels: " << difference.labels << '\n';
}

void printAcls(VerifyReport const& report, std::ostream& out) {
  size_t reached = 0;
  size_t rules = 0;
  for (VerifiedAcl const& acl : report.acls) {
    out << printable(acl.name) << ": " << acl.packets << " packets, " << acl.matched
        << " matched a rule, 0 differences, " << reachedText(acl.reached, acl.rules) << '\n';
    reached += acl.reached;
    rules += acl.rules;
  }
  out << "total: " << report.packets << " packets, 0 differences, " << reachedText(reached, rules)
      << '\n';
}

}  // namespace

void print(VerifyReport const& report, std::ostream& out) {
  // A proof may find what packets did not.
  if (!report.difference || !report.acls.empty()) printAcls(report, out);
  printFindings(report, out);
  printLeftOut(out, report.source);
}

void printFindings(VerifyReport const& report, std::ostream& out) {
  if (report.difference) print(*report.difference, out);
  if (report.proof)
    out << "proved for every packet: " << count(report.proof->acls, "ACL", "ACLs")
        << count(report.proof->rules, "rule", "rules")
        << count(report.proof->entries, "entry", "entries") << "0 differences\n";
}

void printJson(VerifyReport const& report, std::ostream& out) {
  using Json = nlohmann::ordered_json;
  Json json{{"schema", "naxel-verify"},
            {"version", 1},
            {"packets", report.packets},
            {"seed", report.seed},
            {"differences", report.difference ? 1 : 0},
            {"leftOut", report.source.leftOut},
            {"acls", Json::array()}};
  for (VerifiedAcl const& acl : report.acls)
    json["acls"].push_back({{"name", acl.name},
                            {"packets", acl.packets},
                            {"matched", acl.matched},
                            {"reached", acl.reached},
                            {"rules", acl.rules}});
  if (report.difference) {
    Json& difference = json["difference"] = {{"text", report.difference->text}};
    if (!report.difference->packet.empty()) difference["packet"] = report.difference->packet;
    if (!report.difference->rules.empty()) {
      difference["rules"] = report.difference->rules;
      difference["tables"] = report.difference->tables;
      difference["labels"] = report.difference->labels;
    }
  }
  if (report.proof)
    json["proof"] = {{"acls", report.proof->acls},
                     {"rules", report.proof->rules},
                     {"entries", report.proof->entries}};
  out << json.dump(1, ' ', true, Json::error_handler_t::replace) << '\n';
}

}  // namespace NaxelTool
