#include "output/IosEntries.h"
#include "output/RuleWriters.h"

#include <algorithm>
#include <set>

namespace NaxelTool {

namespace {

using Naxel::RangeSetType;

bool sameList(Naxel::IpPrefixList const* a, Naxel::IpPrefixList const* b) {
  return a == b || (a && b && a->isEqual(*b));
}

/// Which permits by layer 4 have a rule beside them that lets their later fragments through, as a reader
/// of the text makes it of the one entry: among the rules around that do the same, where the order does
/// not matter.
class LaterParts {
 public:
  explicit LaterParts(std::vector<RuleView> const& rules) : rules_(rules) {
    run_.reserve(rules.size());
    same_.reserve(rules.size());
    for (size_t i = 0; i < rules.size(); ++i) {
      bool const goesOn = i && rules[i].rule.action() == rules[i - 1].rule.action();
      run_.push_back(goesOn ? run_.back() : i);
      same_.push_back(none);
      if (!isLater(rules[i])) continue;
      same_[i] = partLike(i);
      if (same_[i] != none) continue;
      same_[i] = i;
      parts_[keyOf(i)].push_back(i);
    }
  }

  static constexpr size_t none = ~size_t{0};

  /// The part of a rule, or none.
  size_t of(size_t i) const {
    RuleView const& rule = rules_[i];
    if (!rule.looksAtLayer4() || rule.rule.action().dropEnabled()) return none;
    return partLike(i);
  }
  /// The first of the parts around that are the same as this rule, or none if it is no part.
  size_t firstLike(size_t i) const { return same_[i]; }

 private:
  struct Key {
    size_t run;
    uint64_t lists;
    std::array<IntervalSet, 3> sets;
    friend bool operator<(Key const& a, Key const& b) {
      if (a.run != b.run) return a.run < b.run;
      if (a.lists != b.lists) return a.lists < b.lists;
      return std::lexicographical_compare(a.sets.begin(), a.sets.end(), b.sets.begin(),
                                          b.sets.end(), less);
    }
    static bool less(IntervalSet const& a, IntervalSet const& b) {
      return std::lexicographical_compare(
          a.begin(), a.end(), b.begin(), b.end(), [](Interval const& x, Interval const& y) {
            return x.first != y.first ? x.first < y.first : x.last < y.last;
          });
    }
  };

  /// The part around with the addresses and whatever else is not of layer 4, or none.
  size_t partLike(size_t i) const {
    auto const found = parts_.find(keyOf(i));
    if (found == parts_.end()) return none;
    for (size_t const part : found->second)
      if (sameList(rules_[part].source, rules_[i].source) &&
          sameList(rules_[part].destination, rules_[i].destination))
        return part;
    return none;
  }

  static bool isLater(RuleView const& rule) {
    IntervalSet const later = {{1, Naxel::FragmentRange::bound}};
    return !rule.looksAtLayer4() && rule.of(RangeSetType::fragment) == later;
  }
  Key keyOf(size_t i) const {
    RuleView const& rule = rules_[i];
    uint64_t const source = rule.source ? rule.source->contentHash() : 0;
    uint64_t const destination = rule.destination ? rule.destination->contentHash() : 0;
    return {run_[i],
            source * 31 + destination,
            {iosProtocols(rule), rule.of(RangeSetType::dscp), rule.of(RangeSetType::length)}};
  }

  std::vector<RuleView> const& rules_;
  std::vector<size_t> run_;  // first rule of those in a row that do the same
  std::vector<size_t> same_;
  std::map<Key, std::vector<size_t>> parts_;
};

class IosWriter {
 public:
  IosWriter(std::ostream& out, RuleSet const& rules, WriteOptions const& options,
            Diagnostics& diagnostics)
      : out_(out),
        rules_(rules),
        options_(options),
        diagnostics_(diagnostics),
        names_(rules.lists(), "networks") {}

  void write() {
    std::string lists;
    for (auto const& [name, acl] : rules_.acls()->acl()) lists += "!\n" + listText(*acl);
    if (options_.plainFragments || !options_.implicitEnd)
      out_ << "! to be read with" << (options_.plainFragments ? " --fragments=plain" : "")
           << (options_.implicitEnd ? "" : " --no-implicit") << '\n';
    for (auto const& [name, list] : groups_) writeGroup(name, *list);
    out_ << lists;
  }

 private:
  static bool isWord(std::string const& name) {
    return !name.empty() && name.front() != '!' &&
           std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < 0x7f; });
  }

  std::string listText(Naxel::AclConfig const& acl) {
    bool const isV4 = acl.af().value_or(Lumox::ipv4()) == Lumox::ipv4();
    std::vector<RuleView> rules = viewsOf(rules_, acl);
    if (!isWord(acl.name())) return fail(acl, rules, "its name is not a word of printed letters");
    if (rules.empty())
      return fail(acl, rules, "an ACL without rules, which would permit everything");
    bool const closed = rules.back().matchesAll();
    if (options_.implicitEnd && !closed)
      return fail(acl, rules,
                  "what becomes of packets that no rule matches: the text would drop them",
                  "end it in a rule that matches everything, or leave the end open with "
                  "--no-implicit, here and where the text is read");
    std::string const tail = takeImplied(rules, isV4);
    return (isV4 ? "ip access-list extended " : "ipv6 access-list ") + acl.name() + "\n" +
           remarks(rules_.description(acl.name())) + entriesText(rules, isV4) + tail;
  }

  /// Takes away what the text implies at its end, and returns what is said about it.
  std::string takeImplied(std::vector<RuleView>& rules, bool isV4) const {
    if (!options_.implicitEnd) return {};
    size_t const length = isV4 ? 1 : 3;
    if (rules.size() <= length) return {};
    for (size_t i = rules.size() - length; i < rules.size(); ++i)
      if (!rules[i].origin || !rules[i].origin->implied) return {};
    if (!isPlainDeny(rules.back())) return {};
    if (!isV4 &&
        !(isNdPermit(rules[rules.size() - 3], 136) && isNdPermit(rules[rules.size() - 2], 135)))
      return {};
    std::string said = remarks(rules.back().description());
    for (size_t i = 0; i < length; ++i) rules.pop_back();
    return said;
  }
  static bool isPlainDeny(RuleView const& rule) {
    Naxel::NaxelActionValue drop;
    drop.dropEnabledIs(true);
    return rule.matchesAll() && rule.rule.action() == drop;
  }
  static bool isNdPermit(RuleView const& rule, uint32_t type) {
    return rule.rule.action() == Naxel::NaxelActionValue() && !rule.source && !rule.destination &&
           onlyValue(rule.of(RangeSetType::icmp)) == type &&
           onlyValue(rule.of(RangeSetType::proto)) == 58;
  }

  std::string entriesText(std::vector<RuleView> const& rules, bool isV4) {
    FragmentRule const fragments =
        isV4 && !options_.plainFragments ? FragmentRule::layered : FragmentRule::plain;
    LaterParts const parts(rules);
    std::vector<std::vector<std::string>> entries(rules.size());
    std::vector<bool> joined(rules.size());
    bool oneEach = rules.front().index.value() > 0;
    GroupNamer const namer = [&](Naxel::IpPrefixList const& list) { return groupOf(list); };
    for (size_t i = 0; i < rules.size(); ++i) try {
        size_t const part = fragments == FragmentRule::layered ? parts.of(i) : LaterParts::none;
        entries[i] = iosEntries(rules[i], fragments, part != LaterParts::none, namer);
        if (part != LaterParts::none) joined[part] = true;
        oneEach = oneEach && entries[i].size() <= 1;
        if ((made_ += entries[i].size()) > mostEntries)
          throw CannotSay("rules that take more than " + std::to_string(mostEntries) +
                          " entries in all");
      } catch (CannotSay const& e) {
        cannotSay(rules_, rules[i], std::string("the text of IOS cannot say ") + e.what(), e.help(),
                  diagnostics_);
      }
    std::string out;
    for (size_t i = 0; i < rules.size(); ++i) {
      size_t const part = parts.firstLike(i);
      if (part != LaterParts::none && joined[part] && rules[i].description().empty()) continue;
      // A number for each keeps those of the source; without any they are given from 10 on.
      std::string const number = oneEach ? " " + std::to_string(rules[i].index.value()) + " " : " ";
      if (!entries[i].empty()) out += remarks(rules[i].about());
      for (std::string const& e : entries[i]) out.append(number).append(e).append("\n");
    }
    return out;
  }

  /// A line each, without what a line cannot hold.
  static std::string remarks(std::string const& text) {
    std::string out;
    std::string line;
    for (char const c : text + "\n") {
      if (c != '\n') {
        line += static_cast<unsigned char>(c) < ' ' || c == 0x7f ? ' ' : c;
        continue;
      }
      size_t const first = line.find_first_not_of(' ');
      size_t const last = line.find_last_not_of(' ');
      if (first != std::string::npos)
        out += " remark " + line.substr(first, last + 1 - first) + "\n";
      line.clear();
    }
    return out;
  }

  std::string fail(Naxel::AclConfig const& acl, std::vector<RuleView> const& rules,
                   std::string const& what, std::string help = {}) {
    RuleOrigin const* const from = rules.empty() ? nullptr : rules.back().origin;
    diagnostics_.say({Severity::error,
                      "cannot-say",
                      from ? rules_.files()[from->file] : std::string(),
                      {from ? from->at : Position()},
                      "ACL '" + acl.name() + "': the text of IOS cannot say " + what,
                      std::move(help),
                      {}});
    return {};
  }

  /// A word for a list, of which the text has a group then.
  std::string groupOf(Naxel::IpPrefixList const& list) {
    auto const [at, isNew] = group_.try_emplace(names_.nameOf(list));
    if (!isNew) return at->second;
    std::string word = at->first;
    for (char& c : word)
      if (c <= ' ' || c >= 0x7f || c == '!') c = '_';
    std::string tried = word;
    for (size_t n = 2; groups_.contains(tried); ++n) tried = word + "-" + std::to_string(n);
    groups_.emplace(tried, &list);
    return at->second = tried;
  }

  void writeGroup(std::string const& name, Naxel::IpPrefixList const& list) {
    bool const isV4 = !list.families().ipv6;
    out_ << "!\nobject-group " << (isV4 ? "network " : "v6-network ") << name << '\n';
    if (NamedList const* const known = rules_.lists().find(name);
        known && !known->description.empty())
      out_ << " description " << printable(known->description) << '\n';
    for (Lumox::IpGenPrefix const& p :
         prefixesOf(addressesOf(list), isV4 ? Lumox::ipv4() : Lumox::ipv6()))
      out_ << " " << iosAddress(p, true) << '\n';
  }

  static constexpr size_t mostEntries = 1'000'000;

  std::ostream& out_;
  RuleSet const& rules_;
  WriteOptions const& options_;
  Diagnostics& diagnostics_;
  size_t made_ = 0;  // entries of all lists
  ListNames names_;
  std::map<std::string, std::string> group_;                  // word by name of the list
  std::map<std::string, Naxel::IpPrefixList const*> groups_;  // by word
};

}  // namespace

void writeRulesAsIos(std::ostream& out, RuleSet const& rules, WriteOptions const& options,
                     Diagnostics& diagnostics) {
  IosWriter(out, rules, options, diagnostics).write();
}

}  // namespace NaxelTool
