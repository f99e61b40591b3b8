#include "input/OpenConfigEntry.h"

#include "input/JsonRuleFields.h"
#include "input/OpenConfigFamilies.h"
#include "input/OpenConfigNames.h"

#include <algorithm>
#include <set>

namespace NaxelTool::OpenConfig {

using Lumox::AddressFamily;
using Naxel::RangeSetType;

namespace {

constexpr size_t mostPortRanges = 4'194'304;
constexpr uint64_t headerOf6 = 40;

class EntryReader {
 public:
  EntryReader(Context& context, Families families, bool old)
      : context_(context), values_(context.values), file_(values_.file()), old_(old) {
    entry_.families = families;
  }

  EntryDraft read(JsonNode const& node) {
    at_ = node.at();
    for (JsonMember const& m : file_.object(node, "an entry", {})) readMember(m);
    if (entry_.families.none())
      throw NeverMatches(file_.path(), at_, "no IP packet of this ACL matches the entry");
    if (!verdict_) throw UnsupportedError(file_.path(), at_, "the entry has no forwarding-action");
    if (builtin_ && detailMode_.empty())
      file_.fail(*builtin_, "'builtin-detail' needs the detail-mode BUILTIN");
    if (explicitFlags_ && detailMode_ == "BUILTIN") explicitFlags_ = nullptr;
    if (builtin_ && detailMode_ == "BUILTIN") readBuiltin(*builtin_);
    if (explicitFlags_) readExplicit(*explicitFlags_);
    if (icmpTypeNode_) readIcmpType();
    if (old_ && icmpByName_) settleIcmp(*icmpByName_);
    readOurs();
    if (!fragmentSaid_ && !keepToFirstFragments(entry_.rule))
      throw NeverMatches(
          file_.path(), at_,
          "later fragments have no ports and no ICMP type, so the entry matches none");
    return std::move(entry_);
  }

 private:
  [[noreturn]] void unsupported(Position at, std::string const& what) const {
    throw UnsupportedError(file_.path(), at, "a rule cannot say '" + what + "'");
  }

  void readMember(JsonMember const& m) {
    std::string_view const name = baseName(m.name);
    if (name == "sequence-id" || name == "state") return;
    if (name == "config") return readConfig(m.value);
    if (name == "ipv4" || name == "ipv6") return readIp(m, name == "ipv4", name == "ipv6");
    if (name == "ip") return readIp(m, true, true);
    if (name == "icmp") return readIcmp(m.value);
    if (name == "transport") return readTransport(m.value);
    if (name == "actions") return readActions(m.value);
    if (name == "l2") return readL2(m.value);
    if (name.starts_with("naxel:")) return ours_.push_back(&m);
    unsupported(m.at(), m.name);
  }

  /// Calls `f(name, node)` for each leaf of the container's configuration, and `inner(name, node)` for
  /// each container within.
  template <class F, class Inner>
  void forEachLeaf(JsonNode const& container, std::string_view what, F f, Inner inner) {
    for (JsonMember const& m : file_.object(container, what, {})) {
      std::string_view const name = baseName(m.name);
      if (name == "state") continue;
      if (name == "config")
        for (JsonMember const& leaf : file_.object(m.value, "'config'", {}))
          f(baseName(leaf.name), leaf);
      else
        inner(name, m);
    }
  }
  template <class F>
  void forEachLeaf(JsonNode const& container, std::string_view what, F f) {
    forEachLeaf(container, what, f,
                [&](std::string_view, JsonMember const& m) { unsupported(m.at(), m.name); });
  }

  void readConfig(JsonNode const& node) {
    for (JsonMember const& m : file_.object(node, "'config'", {})) {
      std::string_view const name = baseName(m.name);
      if (name == "description")
        entry_.origin.description = file_.text(m.value, "description");
      else if (name != "sequence-id")
        unsupported(m.at(), m.name);
    }
  }

  void only(Families families, JsonNode const& node) {
    Families const before = entry_.families;
    entry_.families = before & families;
    if (entry_.families.none() && !before.none())
      file_.fail(node, "the address family is not that of the rest of the entry and its ACL");
  }

  void readIp(JsonMember const& container, bool v4, bool v6) {
    only({v4, v6}, container.value);
    forEachLeaf(
        container.value, container.name,
        [&](std::string_view name, JsonMember const& leaf) { readIpLeaf(name, leaf); },
        [&](std::string_view name, JsonMember const& m) {
          if (name != "icmpv4" && name != "icmpv6") unsupported(m.at(), m.name);
          only({name == "icmpv4", name == "icmpv6"}, m.value);
          readIcmp(m.value);
        });
  }

  void readIpLeaf(std::string_view name, JsonMember const& leaf) {
    JsonNode const& value = leaf.value;
    if (name == "source-address" || name == "source-ip-address")
      return readAddress(value, entry_.rule.source, sourceSaid_);
    if (name == "destination-address" || name == "destination-ip-address")
      return readAddress(value, entry_.rule.destination, destinationSaid_);
    if (name == "source-address-prefix-set")
      return readPrefixSet(value, entry_.rule.source, sourceSaid_);
    if (name == "destination-address-prefix-set")
      return readPrefixSet(value, entry_.rule.destination, destinationSaid_);
    if (name == "dscp" || name == "dscp-set")
      return narrow(RangeSetType::dscp, values_.numbers(value, name, Naxel::DscpRange::bound));
    if (name == "length") return readLength(value);
    if (name == "fragment-offsets")
      return narrow(RangeSetType::fragment,
                    values_.numbers(value, name, Naxel::FragmentRange::bound));
    if (name == "protocol") return readProtocol(value);
    unsupported(leaf.at(), leaf.name);
  }

  /// That of the payload in IPv6; a rule goes by the whole packet.
  void readLength(JsonNode const& node) {
    uint64_t const length = values_.number(node, "length", 0, Naxel::LengthRange::bound) +
                            (entry_.families.ipv4 ? 0 : headerOf6);
    if (length > Naxel::LengthRange::bound)
      throw UnsupportedError(
          file_.path(), node.at(),
          "a rule cannot say the length of a packet of " + std::to_string(length) + " bytes");
    narrow(RangeSetType::length, {{static_cast<uint32_t>(length), static_cast<uint32_t>(length)}});
  }

  void readAddress(JsonNode const& node, Mox::Ptr<Naxel::IpPrefixList>& side, bool& said) {
    once(node, said);
    Lumox::IpGenPrefix const prefix = values_.prefix(node);
    only(Families::only(prefix.af()), node);
    if (prefix.length() == 0) return;
    side = Mox::makePtr<Naxel::IpPrefixList>();
    side->addrIs(prefix);
  }

  void readPrefixSet(JsonNode const& node, Mox::Ptr<Naxel::IpPrefixList>& side, bool& said) {
    once(node, said);
    std::string const& name = file_.text(node, "prefix set");
    if (entry_.families.both()) file_.fail(node, "a prefix set needs an address family");
    NamedList const* const set =
        context_.sets.prefixes(entry_.families.ipv4 ? Lumox::ipv4() : Lumox::ipv6(), name);
    if (!set) file_.fail(node, "there is no prefix set '" + name + "'");
    if (!set->list) file_.fail(node, "prefix set '" + name + "' could not be read");
    if (!set->everything) side = set->list;
  }

  void once(JsonNode const& node, bool& said) {
    if (said) file_.fail(node, "the entry names this side twice");
    said = true;
  }

  /// The values that are in these ranges and in those that were said before.
  void narrow(RangeSetType type, RuleDraft::Ranges const& ranges) {
    RuleDraft::Ranges& all = entry_.rule.of(type);
    all = all.empty() ? ranges : common(all, ranges);
    if (all.empty())
      throw NeverMatches(file_.path(), at_, "the parts of the entry exclude each other");
  }

  void readProtocol(JsonNode const& node) {
    uint32_t number = 0;
    std::string const* const text = node.text();
    bool const isName = text && text->find_first_not_of("0123456789") != std::string::npos;
    if (isName) {
      auto const found = protocolOf(baseName(*text));
      if (!found)
        file_.fail(node, "there is no protocol '" + *text + "'",
                   didYouMean(baseName(*text), protocolNames()));
      number = *found;
      if (number == 1) icmpByName_ = node.at();
    } else {
      number = static_cast<uint32_t>(values_.number(node, "protocol", 0, old_ ? 255 : 254));
    }
    if (old_ && number == 0) return;
    narrow(RangeSetType::proto, {{number, number}});
  }

  /// The older dialect has one name for the ICMP of both families. What is of both might mean either: the
  /// number of the name is what it says.
  void settleIcmp(Position at) {
    if (!entry_.families.ipv6) return;
    std::optional<Position>& first = entry_.families.ipv4 ? context_.icmpOfAny : context_.icmpOf6;
    first = first.value_or(at);
    if (!entry_.families.ipv4) entry_.rule.valueIs(RangeSetType::proto, 58);
  }

  void readIcmp(JsonNode const& container) {
    forEachLeaf(container, "icmp", [&](std::string_view name, JsonMember const& leaf) {
      if (name != "type") unsupported(leaf.at(), "ICMP " + leaf.name);
      icmpTypeNode_ = &leaf.value;
    });
  }

  /// The names depend on the family, which may be said behind the type.
  void readIcmpType() {
    JsonNode const& node = *icmpTypeNode_;
    std::string const* const text = node.text();
    bool const isName = text && text->find_first_not_of("0123456789") != std::string::npos;
    if (!isName) {
      auto const type = static_cast<uint32_t>(values_.number(node, "ICMP type", 0, 255));
      return narrow(RangeSetType::icmp, {{type, type}});
    }
    if (baseName(*text) == "ANY") return;
    if (entry_.families.both())
      file_.fail(node, "the name of an ICMP type needs an address family");
    AddressFamily const af = entry_.families.ipv4 ? Lumox::ipv4() : Lumox::ipv6();
    auto const type = icmpTypeOf(af, baseName(*text));
    if (!type)
      file_.fail(node, "there is no ICMP type '" + *text + "' in " + Mox::stringValue(af),
                 didYouMean(baseName(*text), icmpTypeNames(af)));
    narrow(RangeSetType::icmp, {{*type, *type}});
  }

  void readTransport(JsonNode const& container) {
    forEachLeaf(container, "'transport'", [&](std::string_view name, JsonMember const& leaf) {
      JsonNode const& value = leaf.value;
      if (name == "source-port") return readPort(RangeSetType::srcPort, value);
      if (name == "destination-port") return readPort(RangeSetType::dstPort, value);
      if (name == "source-port-set") return readPortSet(RangeSetType::srcPort, value);
      if (name == "destination-port-set") return readPortSet(RangeSetType::dstPort, value);
      if (name == "detail-mode") {
        detailMode_ = values_.identity(value, name);
      } else if (name == "explicit-detail-match-mode") {
        matchMode_ = values_.identity(value, name);
      } else if (name == "builtin-detail") {
        builtin_ = &value;
      } else if (name == "explicit-tcp-flags" || name == "tcp-flags") {
        explicitFlags_ = &value;
      } else {
        unsupported(leaf.at(), leaf.name);
      }
    });
  }

  void readPort(RangeSetType type, JsonNode const& node) {
    Naxel::Range const port = values_.port(node);
    if (old_ && port.rangeEnd() == 0) return;
    if (port.rangeStart() == 0 && port.rangeEnd() == Naxel::L4PortRange::bound) return;
    narrow(type, {port});
  }

  void readPortSet(RangeSetType type, JsonNode const& node) {
    std::string const& name = file_.text(node, "port set");
    RuleDraft::Ranges const* const set = context_.sets.ports(name);
    if (!set) file_.fail(node, "there is no port set '" + name + "'");
    if (set->empty()) file_.fail(node, "port set '" + name + "' could not be read");
    if ((context_.portRanges += set->size()) > mostPortRanges)
      file_.fail(node, "the port sets of this file stand for more than " +
                           std::to_string(mostPortRanges) + " port ranges");
    if (set->size() == 1 && set->front() == Naxel::Range(0, Naxel::L4PortRange::bound)) return;
    if (!entry_.rule.of(type).empty()) file_.fail(node, "the entry names these ports twice");
    narrow(type, *set);
  }

  void readBuiltin(JsonNode const& node) {
    std::string_view const what = values_.identity(node, "builtin-detail");
    if (what == "TCP_INITIAL")
      entry_.rule.tcpInit = true;
    else if (what == "TCP_ESTABLISHED")
      entry_.rule.tcpEstablished = true;
    else if (what == "FRAGMENT")
      narrow(RangeSetType::fragment, {{1, Naxel::FragmentRange::bound}});
    else
      file_.fail(node, "there is no builtin-detail '" + std::string(what) + "'",
                 didYouMean(what, {"TCP_INITIAL", "TCP_ESTABLISHED", "FRAGMENT"}));
  }

  /// Any of ACK and RST is an established connection; a rule can say no other flags by name.
  void readExplicit(JsonNode const& node) {
    std::set<std::string_view> flags;
    values_.forEach(
        node, [&](JsonNode const& item) { flags.insert(values_.identity(item, "TCP flag")); });
    using Flags = std::set<std::string_view>;
    if (flags.empty()) return;
    if (matchMode_ == "ANY" && flags == Flags{"TCP_ACK", "TCP_RST"})
      entry_.rule.tcpEstablished = true;
    else if (old_ && flags == Flags{"TCP_SYN", "TCP_NOT_ACK"})
      entry_.rule.tcpInit = true;
    else
      throw UnsupportedError(file_.path(), node.at(), "a rule cannot say these TCP flags",
                             "TCP_INITIAL and TCP_ESTABLISHED can be said");
  }

  void readL2(JsonNode const& container) {
    forEachLeaf(container, "'l2'", [&](std::string_view name, JsonMember const& leaf) {
      if (name != "ethertype") unsupported(leaf.at(), leaf.name);
      entry_.families = entry_.families & familiesOfEthertype(leaf.value);
    });
  }

  void readActions(JsonNode const& container) {
    forEachLeaf(container, "'actions'", [&](std::string_view name, JsonMember const& leaf) {
      if (name != "forwarding-action" && name != "log-action") unsupported(leaf.at(), leaf.name);
      std::string_view const what = values_.identity(leaf.value, name);
      if (name == "log-action") {
        if (what != "LOG_SYSLOG" && what != "LOG_NONE")
          file_.fail(leaf.value, "there is no log-action '" + std::string(what) + "'");
        return entry_.rule.action.logEnabledIs(what == "LOG_SYSLOG");
      }
      if (what != "ACCEPT" && what != "DROP" && what != "REJECT")
        file_.fail(leaf.value, "there is no forwarding-action '" + std::string(what) + "'",
                   didYouMean(what, {"ACCEPT", "DROP", "REJECT"}));
      entry_.rule.action.dropEnabledIs(what != "ACCEPT");
      if (verdict_) file_.fail(leaf.value, "the entry has two forwarding-actions");
      if (what == "REJECT") ++context_.rejects;
      verdict_ = true;
    });
  }

  /// What only we can say takes the place of what stands elsewhere.
  void readOurs() {
    for (JsonMember const* const m : ours_) {
      if (context_.strict) unsupported(m->at(), m->name);
      if (m->name == "naxel:match") {
        static std::vector<std::string_view> const fields = [] {
          std::vector<std::string_view> all = {"matchTcpInit", "matchTcpEstablished"};
          for (Naxel::RangeField const& field : Naxel::rangeFields) all.push_back(field.name);
          return all;
        }();
        file_.object(m->value, "'naxel:match'", fields);
        readMatch(file_, m->value, entry_.rule);
        fragmentSaid_ = m->value.find("fragment") != nullptr;
      } else if (m->name == "naxel:action") {
        entry_.rule.action = readAction(file_, m->value);
      } else if (m->name == "naxel:continueRule") {
        entry_.rule.continueRule = file_.flag(m->value, m->name);
      } else {
        unsupported(m->at(), m->name);
      }
    }
  }

  Context& context_;
  Values const& values_;
  JsonFile const& file_;
  bool old_;
  EntryDraft entry_;
  Position at_;
  bool verdict_ = false;
  bool sourceSaid_ = false;
  bool destinationSaid_ = false;
  bool fragmentSaid_ = false;
  std::optional<Position> icmpByName_;
  std::string_view detailMode_;
  std::string_view matchMode_;
  JsonNode const* builtin_ = nullptr;
  JsonNode const* explicitFlags_ = nullptr;
  JsonNode const* icmpTypeNode_ = nullptr;
  std::vector<JsonMember const*> ours_;
};

}  // namespace

EntryDraft readAclEntry(Context& context, JsonNode const& node, Families families, bool old) {
  return EntryReader(context, families, old).read(node);
}

}  // namespace NaxelTool::OpenConfig
