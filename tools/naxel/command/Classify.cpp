#include "command/Classify.h"

#include "command/VerdictJson.h"
#include "input/Diagnostics.h"
#include "output/Verdicts.h"
#include "verify/RuleOracle.h"

#include <optional>

namespace NaxelTool {

namespace {

/// What each side or field of a rule demands and the packet fulfils, one sentence each.
class Reasons {
 public:
  explicit Reasons(Verify::Packet const& packet) : packet_(packet) {}

  std::vector<std::string> of(Naxel::RuleFilter const& filter) {
    side("source", filter.source(), packet_.src);
    side("destination", filter.destination(), packet_.dst);
    filter.forEachRangeColl(
        [&](Naxel::RangeSetType type, auto const& ranges) { field(type, ranges); });
    if (filter.matchTcpInit()) out_.push_back("it opens a TCP connection");
    if (filter.matchTcpEstablished()) out_.push_back("it belongs to a TCP connection");
    if (out_.empty()) out_.push_back("the rule matches every packet");
    return std::move(out_);
  }

 private:
  void side(char const* name, Mox::Ptr<Naxel::IpPrefixList> const& list,
            Verify::Address const& address) {
    if (!list) return;
    Lumox::IpGenPrefix const* longest = nullptr;
    for (Lumox::IpGenPrefix const& p : list->addr())
      if (p.containsAddress(address.hi, address.lo) && (!longest || p.length() > longest->length()))
        longest = &p;
    std::string text = std::string(name) + " lies in ";
    text += longest ? Mox::valueToStrep(*longest) : "no prefix";
    if (size_t const excepts = list->exceptAddrs())
      text += excepts == 1 ? " and not in the except prefix"
                           : " and in none of " + std::to_string(excepts) + " except prefixes";
    out_.push_back(std::move(text));
  }

  template <class Ranges>
  void field(Naxel::RangeSetType type, Ranges const& ranges) {
    uint16_t const value = packet_.value(type);
    for (auto const& r : ranges) {
      if (value < r.rangeStart() || value > r.rangeEnd()) continue;
      std::string text = std::string(Naxel::rangeField(type).name) + " " + std::to_string(value);
      if (r.rangeStart() != r.rangeEnd())
        text += " lies in " + std::to_string(r.rangeStart()) + "-" + std::to_string(r.rangeEnd());
      out_.push_back(std::move(text));
      return;
    }
  }

  Verify::Packet const& packet_;
  std::vector<std::string> out_;
};

/// The fields that an entry compares, "source 3/0xffff dport 8/0x0ff8".
std::string entryText(Naxel::PDAclFilter const& filter) {
  std::string out;
  auto const add = [&](char const* name, auto const& value) {
    if constexpr (std::is_same_v<std::remove_cvref_t<decltype(value)>, bool>) {
      if (value) out += " " + std::string(name);
    } else if (unsigned const mask = value.mask().value()) {
      char text[32];
      std::snprintf(text, sizeof text, "%u/0x%04x", unsigned{value.label().value()}, mask);
      out += " " + std::string(name) + " " + text;
    }
  };
  std::apply([&](auto const&... f) { (add(f.name, filter.*f.member), ...); },
             Naxel::PDAclFilter::fields());
  return out.empty() ? "anything" : out.substr(1);
}

/// Why the tables hit an entry.
struct Explanation {
  std::vector<std::string> reasons;  // at least one
  size_t entry = 0;                  // counted from 1
  size_t entries = 0;                // of the rule
  std::string compares;              // what the entry compares
};

Explanation explanationOf(Session const& session, Naxel::AclConfig const& acl,
                          Verify::Packet const& packet, Verify::Verdict const& verdict) {
  Explanation out;
  auto const rule = acl.ruleById(verdict.rule);
  out.reasons = rule->ruleFilter() ? Reasons(packet).of(*rule->ruleFilter())
                                   : std::vector<std::string>{"the rule matches every packet"};
  auto const table = session.data().pdAclColl()->pdAcl({packet.af, acl.name()});
  auto const& entries = table->rule(verdict.rule)->filter();
  out.entry = verdict.entry + 1;
  out.entries = entries.size();
  out.compares = entryText(entries[verdict.entry]);
  return out;
}

void print(std::ostream& out, Explanation const& e, std::string const& from) {
  if (!from.empty()) out << "  from     " << printable(from) << '\n';
  for (size_t i = 0; i < e.reasons.size(); ++i)
    out << (i ? "           " : "  because  ") << e.reasons[i] << '\n';
  out << "  entry    " << e.entry << " of " << e.entries << ": " << e.compares << '\n';
}

void printJson(std::ostream& out, Explanation const& e) {
  out << ",\n   \"because\":[";
  for (size_t i = 0; i < e.reasons.size(); ++i) out << (i ? "," : "") << jsonText(e.reasons[i]);
  out << "],\n   \"entry\":{\"number\":" << e.entry << ",\"of\":" << e.entries
      << ",\"compares\":" << jsonText(e.compares) << '}';
}

}  // namespace

bool classify(Session& session, RuleSet const& rules, Verify::Packet const& packet,
              std::string const& acl, bool json, std::ostream& out) {
  std::string const labels = Verify::text(session.softChip().labelsOf(packet));
  if (json)
    out << R"({"schema":"naxel-classify","version":1,)"
        << "\n \"packet\":" << jsonText(Verify::text(packet))
        << ",\n \"labels\":" << jsonText(labels) << ",\n \"verdicts\":[";
  else
    out << "packet   " << packet << "\nlabels   " << labels << '\n';
  size_t differences = 0;
  bool first = true;
  for (auto const& [name, config] : session.acls()->acl()) {
    if (Verify::familyOf(*config) != packet.af || (!acl.empty() && acl != name)) continue;
    Verify::Verdict const found = session.softChip().lookup({packet.af, name}, packet);
    auto const expected = Verify::firstMatch(*config, packet);
    bool const agrees = agree(*config, expected, found);
    differences += !agrees;
    std::optional<Explanation> why;
    if (agrees && expected) why = explanationOf(session, *config, packet, found);
    if (json) {
      out << (first ? "\n  {" : ",\n  {") << verdictMembers(rules, *config, expected, found);
      if (why) printJson(out, *why);
      out << '}';
    } else {
      out << printable(name) << ": " << text(*config, found) << '\n';
      if (!agrees) out << "  but the rules say: " << text(*config, expected) << '\n';
      if (why) print(out, *why, rules.originText(name, *expected));
    }
    first = false;
  }
  if (json) out << "],\n \"differences\":" << differences << "}\n";
  return differences == 0;
}

}  // namespace NaxelTool
