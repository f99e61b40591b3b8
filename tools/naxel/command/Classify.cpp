#include "command/Classify.h"

#include "input/Diagnostics.h"
#include "lumox/Ip6Addr.h"
#include "output/Verdicts.h"
#include "verify/RuleOracle.h"

#include <stdexcept>

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
  return out.empty() ? " anything" : out;
}

void explain(Session const& session, Naxel::AclConfig const& acl, Verify::Packet const& packet,
             Verify::Verdict const& verdict, std::ostream& out) {
  auto const rule = acl.ruleById(verdict.rule);
  std::vector<std::string> const reasons =
      rule->ruleFilter() ? Reasons(packet).of(*rule->ruleFilter())
                         : std::vector<std::string>{"the rule matches every packet"};
  for (size_t i = 0; i < reasons.size(); ++i)
    out << (i ? "           " : "  because  ") << reasons[i] << '\n';
  auto const table = session.data().pdAclColl()->pdAcl({packet.af, acl.name()});
  auto const& entries = table->rule(verdict.rule)->filter();
  out << "  entry    " << verdict.entry + 1 << " of " << entries.size() << ":"
      << entryText(entries[verdict.entry]) << '\n';
}

}  // namespace

std::pair<Lumox::AddressFamily, Verify::Address> addressFromText(std::string const& text) {
  try {
    if (text.find(':') != std::string::npos) {
      auto const a = Mox::valueFromText<Lumox::Ip6Addr>(text);
      return {Lumox::ipv6(), {a.hi(), a.lo()}};
    }
    Mox::TextCursor cursor(text);
    uint32_t const a = Lumox::readIp4(cursor);
    cursor.expectEnd();
    return {Lumox::ipv4(), Verify::ipv4Address(a)};
  } catch (Mox::ParseError const&) {
  } catch (Mox::RangeError const&) {
  }
  throw std::invalid_argument("'" + text + "' is not an address");
}

bool classify(Session& session, Verify::Packet const& packet, std::string const& acl,
              std::ostream& out) {
  out << "packet   " << packet << "\nlabels   " << Verify::text(session.softChip().labelsOf(packet))
      << '\n';
  bool agreed = true;
  for (auto const& [name, config] : session.acls()->acl()) {
    if (Verify::familyOf(*config) != packet.af || (!acl.empty() && acl != name)) continue;
    Verify::Verdict const found = session.softChip().lookup({packet.af, name}, packet);
    auto const expected = Verify::firstMatch(*config, packet);
    out << printable(name) << ": " << text(*config, found) << '\n';
    if (!agree(*config, expected, found)) {
      out << "  but the rules say: " << text(*config, expected) << '\n';
      agreed = false;
    } else if (expected) {
      explain(session, *config, packet, found, out);
    }
  }
  return agreed;
}

}  // namespace NaxelTool
