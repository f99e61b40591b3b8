#include "output/Summary.h"

#include "input/Diagnostics.h"
#include "input/RuleSet.h"
#include "mox/Bounded.h"
#include "output/CrossProduct.h"
#include "output/TcamBits.h"
#include "output/TextTable.h"

#include <map>

namespace NaxelTool {

namespace {

using Row = std::vector<std::string>;

std::string countText(uint64_t n) {
  return n == Mox::unbounded ? "2^64 or more" : std::to_string(n);
}

Row aclRow(std::string name, std::string family, size_t rules, size_t entries, uint64_t plain) {
  return {std::move(name),
          std::move(family),
          std::to_string(rules),
          std::to_string(entries),
          rules ? fixed(static_cast<double>(entries) / static_cast<double>(rules), 3) : "-",
          countText(plain)};
}

void printAcls(std::ostream& out, Session const& session, CrossProduct& plain) {
  std::vector<Row> rows = {{"ACL", "family", "rules", "entries", "per rule", "cross product"}};
  size_t rulesInAll = 0;
  uint64_t plainInAll = 0;
  Naxel::PDAclColl const& tables = *session.data().pdAclColl();
  for (auto const& [name, acl] : session.acls()->acl()) {
    Lumox::AddressFamily const af = acl->af().value_or(Lumox::ipv4());
    auto const table = tables.pdAcl({af, name});
    uint64_t const product = plain.entries(*acl);
    rows.push_back(aclRow(printable(name), Mox::stringValue(af), acl->ruleById().size(),
                          table ? table->numFilters() : 0, product));
    rulesInAll += acl->ruleById().size();
    plainInAll = Mox::boundedSum(plainInAll, product);
  }
  if (rows.size() != 2)
    rows.push_back(aclRow("all", "", rulesInAll, tables.numFilters(), plainInAll));
  printTable(out, rows, 2);
}

/// Bits of the entries with labels and of those without, of one ACL or several.
struct AclBits {
  uint64_t labels = 0;
  uint64_t plain = 0;
  size_t acls = 0;

  void add(AclBits const& other) {
    labels = Mox::boundedSum(labels, other.labels);
    plain = Mox::boundedSum(plain, other.plain);
    acls += other.acls;
  }
};

Row bitsRow(std::string name, std::string family, std::string key, AclBits const& bits) {
  bool const known = bits.plain && bits.plain != Mox::unbounded;
  return {std::move(name),
          std::move(family),
          std::move(key),
          countText(bits.labels),
          countText(bits.plain),
          known
              ? fixed(100.0 * static_cast<double>(bits.labels) / static_cast<double>(bits.plain), 1)
              : "-"};
}

void printBits(std::ostream& out, Session const& session, CrossProduct& plain) {
  std::vector<Row> rows = {{"TCAM bits", "family", "key", "bits", "cross product", "percent"}};
  KeyBits const keyBits(session.data());
  std::map<Lumox::AddressFamily, AclBits> sums;
  for (auto const& [name, acl] : session.acls()->acl()) {
    Lumox::AddressFamily const af = acl->af().value_or(Lumox::ipv4());
    AclBits bits;
    bits.acls = 1;
    unsigned key = 0;
    if (auto const table = session.data().pdAclColl()->pdAcl({af, name})) {
      key = keyBits.of(*table);
      bits.labels = uint64_t{key} * table->numFilters();
    }
    bits.plain = Mox::boundedProduct(plain.entries(*acl), plainKeyBits(af));
    rows.push_back(bitsRow(printable(name), Mox::stringValue(af), std::to_string(key), bits));
    sums[af].add(bits);
  }
  AclBits all;
  for (auto const& [af, sum] : sums) {
    // The sum over a single ACL stands there already.
    if (sums.size() > 1 && sum.acls > 1)
      rows.push_back(bitsRow("all", Mox::stringValue(af), "", sum));
    all.add(sum);
  }
  if (all.acls > 1) rows.push_back(bitsRow("all", "", "", all));
  printTable(out, rows, 2);
}

void printLabels(std::ostream& out, Naxel::Metrics const& metrics) {
  std::vector<Row> rows = {{"labels", "code", "width", "used", "of"}};
  for (Naxel::LabelUse const& use : metrics.labels) {
    rows.push_back(use.width ? Row{use.field, Mox::stringValue(use.code), std::to_string(use.width),
                                   std::to_string(use.used), std::to_string(use.available())}
                             : Row{use.field, "raw", "-", "-", "-"});
  }
  printTable(out, rows, 2);
}

void printStages(std::ostream& out, Session const& session, Naxel::Metrics const& metrics) {
  std::vector<Row> rows = {{"stage", "outcome", "ms"}};
  for (size_t i = 1; i < Naxel::stageCount; ++i) {
    auto const stage = static_cast<Naxel::NaxelActiveStage>(i);
    Naxel::StageMetrics const& times = metrics.stages[i];
    std::string outcome;
    for (auto const& [status, count] : times.outcome) {
      if (!outcome.empty()) outcome += ", ";
      if (times.outcome.size() > 1) outcome += std::to_string(count) + " ";
      outcome += Naxel::stringValue(status);
    }
    rows.push_back({Naxel::stringValue(stage), outcome, fixed(times.seconds * 1e3, 2)});
  }
  rows.push_back({"kick", Naxel::stringValue(session.rootStatus().kickProgress()),
                  fixed(metrics.kickSeconds * 1e3, 2)});
  printTable(out, rows, 2);
}

}  // namespace

void printLeftOut(std::ostream& out, ReadCounts const& counts, char const* what) {
  if (counts.leftOut)
    out << counts.leftOut << " of " << counts.read << " " << what << " "
        << (counts.leftOut == 1 ? "is" : "are")
        << " left out: the verdicts are not those of the source\n";
}

void printSummary(std::ostream& out, Session const& session) {
  CrossProduct plain;
  printAcls(out, session, plain);
  out << '\n';
  printBits(out, session, plain);
  out << '\n';
  Naxel::Metrics const metrics = session.metrics();
  printLabels(out, metrics);
  out << '\n';
  printStages(out, session, metrics);
  out << '\n';
  if (auto const policy = session.temporaryPolicy())
    out << "handshake: hitful, policy " << Naxel::stringValue(*policy)
        << " while loading; loaded\n";
  else
    out << "handshake: hitless, loaded\n";
}

}  // namespace NaxelTool
