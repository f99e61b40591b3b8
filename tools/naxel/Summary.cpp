#include "Summary.h"

#include "CrossProduct.h"
#include "RuleSet.h"
#include "TextTable.h"

namespace NaxelTool {

namespace {

using Row = std::vector<std::string>;

Row aclRow(std::string name, std::string family, size_t rules, size_t entries, uint64_t plain) {
  return {std::move(name),
          std::move(family),
          std::to_string(rules),
          std::to_string(entries),
          rules ? fixed(static_cast<double>(entries) / static_cast<double>(rules), 3) : "-",
          plain == ~uint64_t{0} ? "2^64 or more" : std::to_string(plain)};
}

void printAcls(std::ostream& out, Session const& session) {
  std::vector<Row> rows = {{"ACL", "family", "rules", "entries", "per rule", "cross product"}};
  CrossProduct plain;
  size_t rulesInAll = 0;
  uint64_t plainInAll = 0;
  Naxel::PDAclColl const& tables = *session.data().pdAclColl();
  for (auto const& [name, acl] : session.acls()->acl()) {
    Lumox::AddressFamily const af = acl->af().value_or(Lumox::ipv4());
    auto const table = tables.pdAcl({af, name});
    uint64_t const product = plain.entries(*acl);
    rows.push_back(aclRow(name, Mox::stringValue(af), acl->ruleById().size(),
                          table ? table->numFilters() : 0, product));
    rulesInAll += acl->ruleById().size();
    if (__builtin_add_overflow(plainInAll, product, &plainInAll)) plainInAll = ~uint64_t{0};
  }
  if (rows.size() != 2)
    rows.push_back(aclRow("all", "", rulesInAll, tables.numFilters(), plainInAll));
  printTable(out, rows, 2);
}

void printLabels(std::ostream& out, Session const& session) {
  std::vector<Row> rows = {{"labels", "width", "used", "of"}};
  for (LabelUse const& use : session.labelUse()) {
    // The highest label stays free: a chip may yield it where its tables hold nothing.
    rows.push_back(use.width ? Row{use.field, std::to_string(use.width), std::to_string(use.used),
                                   std::to_string((1u << use.width) - 1)}
                             : Row{use.field, "raw", "-", "-"});
  }
  printTable(out, rows, 1);
}

void printStages(std::ostream& out, Session const& session) {
  std::vector<Row> rows = {{"stage", "outcome", "ms"}};
  for (size_t i = 1; i < Mox::EnumNames<Naxel::NaxelActiveStage>::value.size(); ++i) {
    auto const stage = static_cast<Naxel::NaxelActiveStage>(i);
    StageTimes::Stage const& times = session.stageTimes().stage(stage);
    std::string outcome;
    for (auto const& [status, count] : times.outcome) {
      if (!outcome.empty()) outcome += ", ";
      if (times.outcome.size() > 1) outcome += std::to_string(count) + " ";
      outcome += Naxel::stringValue(status);
    }
    rows.push_back({Naxel::stringValue(stage), outcome, fixed(times.seconds * 1e3, 2)});
  }
  rows.push_back({"kick", Naxel::stringValue(session.rootStatus().kickProgress()),
                  fixed(session.kickSeconds() * 1e3, 2)});
  printTable(out, rows, 2);
}

}  // namespace

void printSummary(std::ostream& out, Session const& session) {
  printAcls(out, session);
  out << '\n';
  printLabels(out, session);
  out << '\n';
  printStages(out, session);
  out << '\n';
  if (auto const policy = session.temporaryPolicy())
    out << "handshake: hitful, policy " << Naxel::stringValue(*policy)
        << " while loading; loaded\n";
  else
    out << "handshake: hitless, loaded\n";
}

}  // namespace NaxelTool
