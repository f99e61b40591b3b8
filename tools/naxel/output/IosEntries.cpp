#include "output/IosEntries.h"

#include <algorithm>

namespace NaxelTool {

using Naxel::RangeSetType;

CannotSay::~CannotSay() = default;

namespace {

constexpr size_t mostEntries = 4096;
constexpr uint32_t icmpOf4 = 1;
constexpr uint32_t icmpOf6 = 58;

/// Words for one entry, and whether it asks for layer 4 there and would match a packet that lacks it.
struct Clause {
  std::string words;
  bool asks = false;
  bool matchesZero = true;
};
using Clauses = std::vector<Clause>;

std::string numberText(Wide v) { return std::to_string(static_cast<uint64_t>(v)); }

std::string rangeWords(Interval const& i) {
  return i.first == i.last ? "eq " + numberText(i.first)
                           : "range " + numberText(i.first) + " " + numberText(i.last);
}

Clauses portClauses(IntervalSet const& ports) {
  constexpr size_t mostInOne = 10;
  if (ports.empty()) return {{}};
  bool const single =
      std::all_of(ports.begin(), ports.end(), [](Interval const& i) { return i.first == i.last; });
  Clauses out;
  if (single && ports.size() <= mostInOne) {
    Clause all{" eq", true, ports.front().first == 0};
    for (Interval const& i : ports) all.words += " " + numberText(i.first);
    return {all};
  }
  for (Interval const& i : ports) out.push_back({" " + rangeWords(i), true, i.first == 0});
  return out;
}

/// A clause for each value.
Clauses valueClauses(IntervalSet const& set, std::string const& before, bool asks) {
  if (set.empty()) return {{}};
  Clauses out;
  for (Interval const& i : set)
    for (Wide v = i.first; v <= i.last; ++v)
      out.push_back({before + " " + numberText(v), asks, v == 0});
  return out;
}

/// Eight values from a multiple of 8 on are one precedence.
Clauses dscpClauses(IntervalSet const& set) {
  if (set.empty()) return {{}};
  Clauses out;
  for (Interval const& i : set)
    for (Wide v = i.first; v <= i.last;) {
      bool const precedence = v % 8 == 0 && v + 7 <= i.last;
      out.push_back({precedence ? " precedence " + numberText(v / 8) : " dscp " + numberText(v)});
      v += precedence ? 8 : 1;
    }
  return out;
}

Clauses lengthClauses(IntervalSet const& set) {
  if (set.empty()) return {{}};
  Clauses out;
  for (Interval const& i : set) out.push_back({" packet-length " + rangeWords(i)});
  return out;
}

Clauses protocolClauses(IntervalSet const& set, bool isV4) {
  if (set.empty()) return {{isV4 ? "ip" : "ipv6"}};
  Clauses out;
  for (Interval const& i : set)
    for (Wide v = i.first; v <= i.last; ++v) {
      std::string name = numberText(v);
      if (v == 6) name = "tcp";
      if (v == 17) name = "udp";
      if (v == (isV4 ? icmpOf4 : icmpOf6)) name = "icmp";
      out.push_back({name});
    }
  return out;
}

bool isWithin(IntervalSet const& set, std::initializer_list<Wide> values) {
  std::vector<Interval> all;
  for (Wide const v : values) all.push_back({v, v});
  return !set.empty() && without(set, united(all)).empty();
}

class EntriesOf {
 public:
  EntriesOf(RuleView const& rule, FragmentRule fragments, bool hasLaterPart,
            GroupNamer const& groupOf)
      : rule_(rule), fragments_(fragments), hasLaterPart_(hasLaterPart), groupOf_(groupOf) {
    isV4_ = rule.acl.af().value_or(Lumox::ipv4()) == Lumox::ipv4();
  }

  std::vector<std::string> make() {
    check();
    auto const source = side(rule_.source);
    auto const destination = side(rule_.destination);
    if (!source || !destination) return {};
    Clauses all = {{rule_.rule.action().dropEnabled() ? "deny " : "permit "}};
    multiply(all, protocolClauses(iosProtocols(rule_), isV4_));
    multiply(all, {{" " + *source}});
    multiply(all, portClauses(rule_.of(RangeSetType::srcPort)));
    multiply(all, {{" " + *destination}});
    multiply(all, portClauses(rule_.of(RangeSetType::dstPort)));
    multiply(all, valueClauses(rule_.of(RangeSetType::icmp), "", true));
    if (rule_.tcpEstablished) multiply(all, {{" established", true, false}});
    if (rule_.tcpInit) multiply(all, {{" match-all +syn -ack", true, false}});
    for (Clause& c : all) c.words += fragmentWords(c);
    multiply(all, dscpClauses(rule_.of(RangeSetType::dscp)));
    multiply(all, lengthClauses(rule_.of(RangeSetType::length)));
    std::vector<std::string> out;
    out.reserve(all.size());
    for (Clause& c : all)
      out.push_back(std::move(c.words) + (rule_.rule.action().logEnabled() ? " log" : ""));
    return out;
  }

 private:
  void check() const {
    if (!rule_.isPlainVerdict()) throw CannotSay("an action besides dropping and logging");
    if (rule_.rule.continueRule()) throw CannotSay("'continueRule'");
    if (rule_.tcpInit && rule_.tcpEstablished)
      throw CannotSay("both tests of TCP flags in one rule");
    IntervalSet const protocols = iosProtocols(rule_);
    bool const ports =
        !rule_.of(RangeSetType::srcPort).empty() || !rule_.of(RangeSetType::dstPort).empty();
    if (ports && !isWithin(protocols, {6, 17, 132}))
      throw CannotSay("ports of other protocols than TCP, UDP and SCTP");
    if ((rule_.tcpInit || rule_.tcpEstablished) && !isWithin(protocols, {6}))
      throw CannotSay("TCP flags of other protocols than TCP");
    if (!rule_.of(RangeSetType::icmp).empty() && !isWithin(protocols, {icmpOf4, icmpOf6}))
      throw CannotSay("ICMP types of other protocols than ICMP");
  }

  /// Each of `all` with each of `more` behind it.
  static void multiply(Clauses& all, Clauses const& more) {
    if (all.size() * more.size() > mostEntries)
      throw CannotSay("values that would take more than " + std::to_string(mostEntries) +
                      " entries");
    Clauses out;
    out.reserve(all.size() * more.size());
    for (Clause const& a : all)
      for (Clause const& b : more)
        out.push_back(
            {a.words + b.words, a.asks || b.asks, a.matchesZero && (!b.asks || b.matchesZero)});
    all = std::move(out);
  }

  /// None for a list that matches nothing.
  std::optional<std::string> side(Naxel::IpPrefixList const* list) const {
    if (!list) return "any";
    std::vector<Lumox::IpGenPrefix> const prefixes =
        prefixesOf(addressesOf(*list), isV4_ ? Lumox::ipv4() : Lumox::ipv6());
    if (prefixes.empty()) return std::nullopt;
    if (prefixes.size() == 1) return iosAddress(prefixes.front(), false);
    return "object-group " + groupOf_(*list);
  }

  std::string fragmentWords(Clause const& clause) const {
    IntervalSet const& wanted = rule_.of(RangeSetType::fragment);
    IntervalSet const first = {{0, 0}};
    IntervalSet const later = {{1, Naxel::FragmentRange::bound}};
    if (!clause.asks) {
      if (wanted.empty()) return {};
      if (wanted == later) return " fragments";
      throw CannotSay("these fragment offsets without ports, ICMP types or TCP flags");
    }
    std::string const plain =
        "with --fragments=plain such entries are read, and written, to "
        "match no later fragments";
    if (fragments_ == FragmentRule::plain) {
      if (wanted == (clause.matchesZero ? first : IntervalSet())) return {};
      throw CannotSay("these fragment offsets with ports, ICMP types or TCP flags");
    }
    if (rule_.rule.action().dropEnabled()) {
      if (wanted == first) return {};
      throw CannotSay(
          "a drop by ports, ICMP types or TCP flags that is not for first fragments only", plain);
    }
    if (wanted.empty() && hasLaterPart_) return {};
    throw CannotSay("a permit by ports, ICMP types or TCP flags without its later fragments",
                    plain);
  }

  RuleView const& rule_;
  FragmentRule fragments_;
  bool hasLaterPart_;
  GroupNamer const& groupOf_;
  bool isV4_;
};

}  // namespace

std::vector<std::string> iosEntries(RuleView const& rule, FragmentRule fragments, bool hasLaterPart,
                                    GroupNamer const& groupOf) {
  return EntriesOf(rule, fragments, hasLaterPart, groupOf).make();
}

std::string iosAddress(Lumox::IpGenPrefix const& prefix, bool netmask) {
  bool const isV4 = prefix.af() == Lumox::ipv4();
  if (prefix.length() == (isV4 ? 32 : 128)) return "host " + prefix.addressText();
  if (!isV4) return Mox::valueToStrep(prefix.masked());
  uint32_t const wildcard = prefix.length() ? ~uint32_t{0} >> prefix.length() : ~uint32_t{0};
  return prefix.masked().addressText() + " " +
         Lumox::IpGenPrefix::v4(netmask ? ~wildcard : wildcard, 32).addressText();
}

IntervalSet iosProtocols(RuleView const& rule) {
  IntervalSet const& said = rule.of(RangeSetType::proto);
  if (said.empty() && (rule.tcpInit || rule.tcpEstablished)) return {{6, 6}};
  return said;
}

}  // namespace NaxelTool
