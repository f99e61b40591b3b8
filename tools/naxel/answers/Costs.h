#pragma once

/// What rules cost in the tables of a chip, and why: by rule, by list, by field and by table, against what the same
/// rules would take without labels, and what would make them cheaper.
///
/// Idea. The rules are compiled for a chip whose tables take everything, and what they take is held against the room
/// of the real one. Where labels do not fit into a field, the field is widened and the rules are compiled again, so
/// that rules which do not fit are accounted for as well. Entries are counted as the product of the value/mask
/// pairs of a rule's fields, which is what the expander makes, so they are known even where there are too many to
/// be made. What the removal of rules or another chip would save is found by compiling (answers/Trials.h).
///
/// Cost. A pass over the rules, and at most `trials` kicks besides those that it takes to have everything fit.

#include "answers/ChipMembers.h"
#include "input/RuleReading.h"
#include "session/Session.h"
#include "softchip/Table.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace NaxelTool {

/// Something that the chip has too little of. Where labels do not fit into a field, everything else is measured
/// with the least width that is enough, or without labels where none is.
struct Lack {
  std::string text;                ///< "srcPort: 12 entries needed, 8 available"
  std::string member;              ///< of the chip's description; empty where none says it
  std::optional<uint64_t> enough;  ///< a value of it that is enough, found by compiling
};

struct TableCost {
  SoftChip::Table table;
  uint64_t rows = 0;
  uint64_t bits = 0;
  std::optional<uint64_t> capacity;  ///< none: without limit
};

/// A field of the key, as the chip matches it.
struct FieldCost {
  std::string name;  ///< "ipv4Src", "dstPort", "srcDstL4Port"
  std::string member;
  unsigned width = 0;  ///< 0: raw values
  size_t labels = 0;
  unsigned keyBits = 0;  ///< needed; 0 where no entry could be made
  Acl::LabelCode code = Acl::LabelCode::aligned;
  size_t sets = 0;  ///< different lists or sets of ranges
  /// How many labels have their codes in each part of the code space that `keyBits` span; the parts are equal and at
  /// most 64. Empty for raw values.
  std::vector<size_t> map;
};

/// A stage of the kick that the costs are those of.
struct StageCost {
  std::string name;
  std::string outcome;
  double seconds = 0;
};

/// Entries and bits of them, with labels and without. Keys have the fields that the rules of the ACL look at.
struct AclCost {
  std::string name;
  Lumox::AddressFamily af;
  size_t rules = 0;
  uint64_t entries = 0;
  uint64_t plainEntries = 0;
  unsigned keyBits = 0;  ///< 0 where no entry could be made
  unsigned plainKeyBits = 0;
  uint64_t bits() const;
  uint64_t plainBits() const;
};

/// What a field of a rule multiplies its entries by.
struct CostFactor {
  std::string field;  ///< as entries name it: "source", "dport", "prefixCombo"
  std::string what;   ///< the list, or the values
  uint64_t cubes = 0;
  uint64_t plain = 0;  ///< prefixes without labels
};

/// What something takes less where rules are taken out.
struct Saving {
  int64_t entries = 0;
  int64_t rows = 0;  ///< of all other tables; 0 where they could not be made
};

/// An entry of the rule files, with all rules that it was expanded to.
struct RuleCost {
  std::string acl;
  std::vector<Naxel::AceIndex> rules;
  std::string name;  ///< of the first one
  std::string from;  ///< "edge.cfg:12"; may be empty
  std::string text;  ///< the first one in one line
  uint64_t entries = 0;
  uint64_t plainEntries = 0;
  /// Of the one that takes most, in the order of the entry's fields; those that have one cube with labels and
  /// without are left out.
  std::vector<CostFactor> factors;
  std::optional<Saving> without;  ///< measured for the first few
};

/// A prefix list, or the ranges of a field, that rules share.
struct ListCost {
  std::string field;  ///< "ipv4Src", "dstPort"
  std::string text;
  size_t members = 0;  ///< prefixes with exceptions, or ranges
  uint64_t plain = 0;  ///< prefixes that cover it
  size_t labels = 0;   ///< 0 for raw values
  uint64_t cubes = 0;
  size_t rules = 0;                ///< that look at it
  std::vector<std::string> users;  ///< the first few of them
  uint64_t entries = 0;            ///< of these rules
  /// What they take more than if it had one cube.
  uint64_t extra = 0;
  std::optional<Saving> without;  ///< without these rules; measured for the first few
};

/// Another chip, tried.
struct ChipTrial {
  std::string member;
  std::string from;
  std::string to;
  std::string failure;  ///< why the rules do not fit then; empty where they do
  uint64_t entries = 0;
  uint64_t bits = 0;  ///< of all tables
};

struct CostReport {
  /// The rules cannot be compiled for any chip: nothing below is known.
  bool unusable = false;
  /// How many entries the rules take is known. It is not where the labels of addresses are too many for any chip.
  bool counted = false;
  std::vector<Lack> lacks;  ///< empty: they fit
  size_t rules = 0;
  size_t sourceEntries = 0;
  uint64_t entries = 0;
  uint64_t plainEntries = 0;
  std::vector<TableCost> tables;  ///< empty where no tables could be made
  std::vector<FieldCost> fields;  ///< those that rules look at
  std::vector<AclCost> acls;      ///< by name
  std::vector<RuleCost> costs;    ///< most expensive first
  std::vector<ListCost> lists;    ///< most expensive first
  std::vector<ChipTrial> trials;  ///< most helpful first
  std::vector<StageCost> stages;  ///< differ from run to run
  size_t worseThanPlain = 0;  ///< source entries that take more entries with labels than without
  size_t kicks = 0;
  size_t untried = 0;  ///< trials that the limit left out

  bool fits() const { return lacks.empty() && !unusable; }
  uint64_t aclBits() const;
  uint64_t allBits() const;
  uint64_t plainBits() const;
};

struct CostOptions {
  size_t removals = 5;           ///< how many rules and how many lists are taken out
  std::optional<size_t> trials;  ///< most kicks to try things; by default defaultTrials()
};
/// 40, and fewer where there are more than 10,000 rules or 100,000 entries, so that trials take a few seconds.
size_t defaultTrials(size_t rules, uint64_t entries);

/// Compiles rules and accounts for them. They are as before in the end. Where they are unusable, `onUnusable` is
/// told the session that says why. `tell` is told before each kick what it is for.
CostReport costsOf(RuleSet const& rules, ChipSetup const& chip, CostOptions const& options,
                   std::function<void(Session const&)> const& onUnusable,
                   std::function<void(std::string const&)> const& tell);

/// The first screen, or with `all` everything; `rules` and `lists` lines of these.
struct CostView {
  size_t rules = 5;
  size_t lists = 5;
  bool all = false;
};
void print(CostReport const& report, CostView const& view, std::ostream& out);
void printJson(CostReport const& report, ReadCounts const& counts, std::ostream& out);

}  // namespace NaxelTool
