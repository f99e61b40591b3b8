#include "answers/Costs.h"
#include "input/Diagnostics.h"
#include "mox/Bounded.h"
#include "output/TextTable.h"

#include <algorithm>

namespace NaxelTool {

namespace {

using Row = std::vector<std::string>;

constexpr size_t widestText = 48;

std::string amountText(uint64_t n) {
  return n == Mox::unbounded ? "2^64 or more" : std::to_string(n);
}

/// A text of a file, cut where a column would get too wide.
std::string cell(std::string const& text) {
  std::string const shown = printable(text);
  return shown.size() <= widestText ? shown : shown.substr(0, widestText - 3) + "...";
}

std::string shareText(uint64_t part, uint64_t all) {
  if (!all || all == Mox::unbounded || part == Mox::unbounded) return "-";
  return fixed(100.0 * static_cast<double>(part) / static_cast<double>(all), 1) + " %";
}

std::string quantity(uint64_t n, char const* one, char const* many) {
  return amountText(n) + " " + (n == 1 ? one : many);
}

std::string ruleLabel(RuleCost const& cost) {
  std::string const index = std::to_string(cost.rules.front().value());
  std::string out = printable(cost.acl) + " ";
  if (cost.rules.size() > 1)
    out += index + "-" + std::to_string(cost.rules.back().value());
  else
    out +=
        index + (cost.name == index || cost.name.empty() ? "" : " '" + printable(cost.name) + "'");
  if (!cost.from.empty()) out += " (" + printable(cost.from) + ")";
  return out;
}

/// "3 source x 2 dport"; what has one cube is left out.
std::string productText(RuleCost const& cost) {
  std::string out;
  for (CostFactor const& f : cost.factors)
    if (f.cubes != 1) out += (out.empty() ? "" : " x ") + amountText(f.cubes) + " " + f.field;
  if (cost.rules.size() > 1)
    out += (out.empty() ? "" : ", ") + ("in " + std::to_string(cost.rules.size())) + " rules";
  return out.empty() ? "one cube each" : out;
}

std::string savingText(std::optional<Saving> const& s) {
  return s ? std::to_string(s->entries) : "-";
}

class CostText {
 public:
  CostText(CostReport const& report, CostView const& view, std::ostream& out)
      : report_(report), view_(view), out_(out) {}

  void print() {
    printHead();
    printLacks();
    printAcls();
    if (!report_.tables.empty()) printTables();
    printFields();
    printRules();
    printLists();
    printWorse();
    printTrials();
  }

 private:
  size_t shown(size_t limit, size_t all) const { return view_.all ? all : std::min(limit, all); }
  bool isOne() const { return report_.rules == 1; }
  /// Of things of that name, which takes an s where they are several.
  void printMore(size_t shown, size_t all, std::string const& what) {
    if (shown < all)
      out_ << "... " << all - shown << " more " << what << (all - shown == 1 ? "" : "s")
           << "; --all shows all\n";
  }

  void printHead() {
    out_ << quantity(report_.rules, "rule", "rules");
    if (report_.sourceEntries != report_.rules)
      out_ << " from " << quantity(report_.sourceEntries, "entry", "entries") << " of the source";
    if (report_.counted)
      out_ << (isOne() ? " takes " : " take ") << quantity(report_.entries, "entry", "entries")
           << "; ";
    else
      out_ << ": their entries are not known, because labels are missing; ";
    out_ << "without labels " << (isOne() ? "it" : "they") << " would take "
         << amountText(report_.plainEntries) << '\n';
  }

  void printLacks() {
    if (report_.lacks.empty()) {
      out_ << (isOne() ? "it fits into the chip\n" : "they fit into the chip\n");
      return;
    }
    out_ << (isOne() ? "it does" : "they do") << " not fit into the chip:\n";
    for (Lack const& lack : report_.lacks) {
      out_ << "  " << printable(lack.text);
      if (lack.enough && *lack.enough == 0)
        out_ << "; no width is enough, 0 (raw values) is";
      else if (lack.enough && !lack.member.starts_with("softChip."))
        out_ << "; " << *lack.enough << " is enough for " << lack.member;
      out_ << '\n';
    }
    if (std::ranges::any_of(report_.lacks, [](Lack const& l) {
          return l.enough && !l.member.starts_with("softChip.");
        }))
      out_ << "everything below is measured with what is enough\n";
  }

  void printAcls() {
    if (!report_.counted) return;
    std::vector<Row> rows = {{"ACL", "family", "rules", "entries", "key", "bits", "plain entries",
                              "plain key", "plain bits", "share"}};
    auto const add = [&](std::string name, std::string family, uint64_t rules, uint64_t entries,
                         unsigned key, uint64_t bits, uint64_t plain, unsigned plainKey,
                         uint64_t plainBits) {
      bool const known = !report_.tables.empty();
      rows.push_back({std::move(name), std::move(family), std::to_string(rules),
                      amountText(entries), key ? std::to_string(key) : "",
                      known ? amountText(bits) : "-", amountText(plain),
                      plainKey ? std::to_string(plainKey) : "", amountText(plainBits),
                      known ? shareText(bits, plainBits) : "-"});
    };
    std::vector<AclCost const*> acls;
    acls.reserve(report_.acls.size());
    for (AclCost const& acl : report_.acls) acls.push_back(&acl);
    std::ranges::stable_sort(
        acls, [](AclCost const* a, AclCost const* b) { return a->bits() > b->bits(); });
    size_t const n = shown(view_.rules, acls.size());
    for (size_t i = 0; i < n; ++i) {
      AclCost const& a = *acls[i];
      add(cell(a.name), Mox::stringValue(a.af), a.rules, a.entries, a.keyBits, a.bits(),
          a.plainEntries, a.plainKeyBits, a.plainBits());
    }
    if (acls.size() > 1)
      add("all", "", report_.rules, report_.entries, 0, report_.aclBits(), report_.plainEntries, 0,
          report_.plainBits());
    if (!report_.tables.empty())
      add("all, with tables of labels", "", report_.rules, report_.entries, 0, report_.allBits(),
          report_.plainEntries, 0, report_.plainBits());
    out_ << '\n';
    printTable(out_, rows, 2);
    printMore(n, acls.size(), "ACL");
  }

  void printTables() {
    std::vector<Row> rows = {{"table", "rows", "capacity", "used", "bits"}};
    for (TableCost const& t : report_.tables)
      rows.push_back({Mox::stringValue(t.table), amountText(t.rows),
                      t.capacity ? amountText(*t.capacity) : "any",
                      t.capacity ? shareText(t.rows, *t.capacity) : "-", amountText(t.bits)});
    out_ << '\n';
    printTable(out_, rows, 1);
  }

  void printFields() {
    if (report_.fields.empty()) return;
    std::vector<Row> rows = {
        {"field", "code", "width", "labels", "of", "used", "bits needed", "sets"}};
    for (FieldCost const& f : report_.fields) {
      uint64_t const room = (uint64_t{1} << f.width) - 1;
      std::string const bits = f.keyBits ? std::to_string(f.keyBits) : "-";
      if (f.width)
        rows.push_back({f.name, Mox::stringValue(f.code), std::to_string(f.width),
                        std::to_string(f.labels), amountText(room), shareText(f.labels, room), bits,
                        std::to_string(f.sets)});
      else
        rows.push_back({f.name, "raw", "-", "-", "-", "-", bits, std::to_string(f.sets)});
    }
    out_ << '\n';
    printTable(out_, rows, 2);
  }

  void printRules() {
    // Rules of one entry are all alike.
    auto const alike = [this](RuleCost const& c) {
      return report_.counted && c.entries <= 1 && !c.without;
    };
    size_t const dear =
        static_cast<size_t>(std::ranges::find_if(report_.costs, alike) - report_.costs.begin());
    size_t const n = shown(std::min(view_.rules, dear), report_.costs.size());
    if (n > 0) {
      std::vector<Row> rows = {
          {"most expensive rules", "cubes", "entries", "plain entries", "removal saves"}};
      for (size_t i = 0; i < n; ++i) {
        RuleCost const& c = report_.costs[i];
        rows.push_back({ruleLabel(c), report_.counted ? productText(c) : "-",
                        report_.counted ? amountText(c.entries) : "-", amountText(c.plainEntries),
                        savingText(c.without)});
      }
      out_ << '\n';
      printTable(out_, rows, 2);
    }
    if (n < dear) return printMore(n, report_.costs.size(), "rule");
    if (n < report_.costs.size())
      out_ << (n ? "" : "\n") << quantity(report_.costs.size() - n, "rule takes", "rules take")
           << (n ? " one entry at most\n" : " one entry at most; none is expensive\n");
  }

  void printLists() {
    size_t const n = shown(view_.lists, report_.lists.size());
    if (n == 0) return;
    std::vector<Row> rows = {{"most expensive lists", "field", "members", "labels", "cubes",
                              "prefixes", "rules", "entries", "extra", "removal saves"}};
    for (size_t i = 0; i < n; ++i) {
      ListCost const& l = report_.lists[i];
      rows.push_back({cell(l.text), l.field, std::to_string(l.members),
                      l.labels ? std::to_string(l.labels) : "raw",
                      report_.counted ? amountText(l.cubes) : "-", amountText(l.plain),
                      std::to_string(l.rules), report_.counted ? amountText(l.entries) : "-",
                      report_.counted ? amountText(l.extra) : "-", savingText(l.without)});
    }
    out_ << '\n';
    printTable(out_, rows, 2);
    printMore(n, report_.lists.size(), "list");
  }

  void printWorse() {
    if (!report_.counted) return;
    if (report_.worseThanPlain) {
      out_ << '\n'
           << "labels take more entries than plain prefixes for "
           << quantity(report_.worseThanPlain, "rule", "rules") << ":\n";
      printWorstRules();
    }
    if (!report_.tables.empty() && report_.allBits() > report_.plainBits())
      out_ << "\nlabels take more bits in all than plain prefixes: "
           << amountText(report_.allBits()) << " with their tables, "
           << amountText(report_.plainBits()) << " without labels\n";
  }

  /// Those that lose most.
  void printWorstRules() {
    std::vector<RuleCost const*> worse;
    for (RuleCost const& c : report_.costs)
      if (c.entries > c.plainEntries) worse.push_back(&c);
    std::ranges::stable_sort(worse, [](RuleCost const* a, RuleCost const* b) {
      return a->entries - a->plainEntries > b->entries - b->plainEntries;
    });
    size_t const n = shown(3, worse.size());
    for (size_t i = 0; i < n; ++i) {
      out_ << "  " << ruleLabel(*worse[i]) << ": " << amountText(worse[i]->entries) << " for "
           << amountText(worse[i]->plainEntries) << ", " << productText(*worse[i]) << '\n';
    }
    printMore(n, worse.size(), "rule");
  }

  /// Fewer entries, or bits that are worth a word.
  bool helps(ChipTrial const& t) const {
    uint64_t const bits = report_.allBits();
    return t.failure.empty() && (t.entries < report_.entries ||
                                 (t.entries == report_.entries && t.bits < bits - bits / 50));
  }

  void printTrials() {
    std::vector<Row> rows = {{"what would help", "from", "to", "entries", "bits in all"}};
    size_t useless = 0;
    for (ChipTrial const& t : report_.trials) {
      if (!helps(t) && !view_.all) {
        ++useless;
        continue;
      }
      rows.push_back({t.member, t.from, t.to, t.failure.empty() ? amountText(t.entries) : "-",
                      t.failure.empty() ? amountText(t.bits) : "does not fit"});
    }
    out_ << '\n';
    if (rows.size() > 1) printTable(out_, rows, 1);
    if (useless)
      out_ << (rows.size() > 1 ? "" : "no other setting of the chip would help: ") << useless
           << (rows.size() > 1 ? " other settings do not help\n" : " were tried\n");
    out_ << "measured by compiling " << quantity(report_.kicks, "time", "times");
    if (report_.untried)
      out_ << "; " << quantity(report_.untried, "trial was", "trials were")
           << " left out, --trials N allows more";
    out_ << '\n';
  }

  CostReport const& report_;
  CostView const& view_;
  std::ostream& out_;
};

}  // namespace

void print(CostReport const& report, CostView const& view, std::ostream& out) {
  CostText(report, view, out).print();
}

}  // namespace NaxelTool
