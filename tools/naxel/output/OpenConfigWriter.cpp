#include "input/OpenConfigNames.h"
#include "output/JsonText.h"
#include "output/RuleView.h"
#include "output/RuleWriters.h"

#include <algorithm>

namespace NaxelTool {

namespace {

using Json = nlohmann::ordered_json;
using Naxel::RangeSetType;

constexpr uint32_t lastOffset = Naxel::FragmentRange::bound;

/// A number or "80..90".
Json portJson(Interval const& i) {
  if (i.first == i.last) return static_cast<uint64_t>(i.first);
  return std::to_string(static_cast<uint64_t>(i.first)) + ".." +
         std::to_string(static_cast<uint64_t>(i.last));
}

/// The single values of a set, if there are at most `most`.
std::optional<Json> listed(IntervalSet const& set, size_t most) {
  Json out = Json::array();
  for (Interval const& i : set) {
    if (i.last - i.first >= most || out.size() + (i.last - i.first) >= most) return std::nullopt;
    for (Wide v = i.first; v <= i.last; ++v) out.push_back(static_cast<uint64_t>(v));
  }
  return out;
}

/// One rule as an entry. What the definitions have no place for is gathered under our own names.
class EntryWriter {
 public:
  EntryWriter(RuleView const& rule, ListNames& prefixSets,
              std::map<std::string, IntervalSet>& ports)
      : rule_(rule), prefixSets_(prefixSets), ports_(ports) {
    isV4_ = rule.acl.af().value_or(Lumox::ipv4()) == Lumox::ipv4();
  }

  Json entry() {
    addSide(rule_.source, "source-address");
    addSide(rule_.destination, "destination-address");
    addProtocol();
    addIcmpType();
    addPorts(RangeSetType::srcPort, "source-port");
    addPorts(RangeSetType::dstPort, "destination-port");
    addFlags();
    addFragment();
    if (auto const dscp = onlyValue(rule_.of(RangeSetType::dscp)))
      ip_["config"]["dscp"] = *dscp;
    else if (auto const all = listed(rule_.of(RangeSetType::dscp), 64); all && !all->empty())
      ip_["config"]["dscp-set"] = *all;
    // In IPv6 it is that of the payload.
    uint32_t const header = isV4_ ? 0 : 40;
    if (auto const length = onlyValue(rule_.of(RangeSetType::length)); length && *length >= header)
      ip_["config"]["length"] = *length - header;
    else
      addOurs(RangeSetType::length);
    return whole();
  }

  /// What only our additions can say; empty if nothing.
  std::string const& additions() const { return additions_; }

 private:
  Json whole() {
    uint32_t const sequence = rule_.index.value();
    Json config{{"sequence-id", sequence}};
    std::string const& about = rule_.about();
    if (!about.empty()) config["description"] = utf8(about);
    Json out{{"sequence-id", sequence}, {"config", config}};
    if (!ip_.empty()) out[isV4_ ? "ipv4" : "ipv6"] = ip_;
    if (!transport_.empty()) out["transport"]["config"] = transport_;
    Naxel::NaxelActionValue const& action = rule_.rule.action();
    out["actions"]["config"] = {
        {"forwarding-action",
         std::string("openconfig-acl:") + (action.dropEnabled() ? "DROP" : "ACCEPT")},
        {"log-action",
         std::string("openconfig-acl:") + (action.logEnabled() ? "LOG_SYSLOG" : "LOG_NONE")}};
    if (!match_.empty()) out["naxel:match"] = match_;
    if (!rule_.isPlainVerdict()) {
      out["naxel:action"] = ruleActionJson(action);
      added("an action besides dropping and logging");
    }
    if (rule_.rule.continueRule()) {
      out["naxel:continueRule"] = true;
      added("'continueRule'");
    }
    return out;
  }

  void added(std::string const& what) { additions_ += (additions_.empty() ? "" : ", ") + what; }

  /// The field as our own JSON has it.
  void addOurs(RangeSetType type) {
    if (rule_.of(type).empty()) return;
    setOurs(type, valuesJson(rule_.of(type)));
  }
  void setOurs(RangeSetType type, Json value) {
    Naxel::RangeField const& field = Naxel::rangeField(type);
    match_[std::string(field.name)] = std::move(value);
    added(std::string(field.title) + " " + match_[std::string(field.name)].dump());
  }

  void addSide(Naxel::IpPrefixList const* list, std::string const& leaf) {
    if (!list) return;
    if (list->addrs() == 1 && !list->exceptAddrs())
      ip_["config"][leaf] = Mox::valueToStrep(*list->addr().begin());
    else
      ip_["config"][leaf + "-prefix-set"] = utf8(prefixSets_.nameOf(*list));
  }

  /// What a reader makes of an entry without a protocol.
  IntervalSet impliedProtocol() const {
    if (!rule_.of(RangeSetType::icmp).empty()) {
      Wide const icmp = isV4_ ? 1 : 58;
      return {{icmp, icmp}};
    }
    bool const ports =
        !rule_.of(RangeSetType::srcPort).empty() || !rule_.of(RangeSetType::dstPort).empty();
    if (!ports || rule_.tcpInit || rule_.tcpEstablished) return {};
    return {{6, 6}, {17, 17}, {132, 132}};
  }

  void addProtocol() {
    IntervalSet const& protocols = rule_.of(RangeSetType::proto);
    if (auto const one = onlyValue(protocols); one && *one < 255)
      ip_["config"]["protocol"] = *one;
    else if (protocols.empty() && !impliedProtocol().empty())
      setOurs(RangeSetType::proto, "0-255");
    else if (protocols != impliedProtocol())
      addOurs(RangeSetType::proto);
  }

  void addIcmpType() {
    auto const one = onlyValue(rule_.of(RangeSetType::icmp));
    Lumox::AddressFamily const af = isV4_ ? Lumox::ipv4() : Lumox::ipv6();
    std::string_view const name = one ? OpenConfig::icmpTypeName(af, *one) : std::string_view();
    if (name.empty()) return addOurs(RangeSetType::icmp);
    std::string const module = isV4_ ? "icmpv4" : "icmpv6";
    ip_[module]["config"]["type"] = "openconfig-" + module + "-types:" + std::string(name);
  }

  void addPorts(RangeSetType type, std::string const& leaf) {
    IntervalSet const& ports = rule_.of(type);
    if (ports.size() == 1) transport_[leaf] = portJson(ports[0]);
    if (ports.size() < 2) return;
    std::string const name = "ports-" + [&] {
      std::string text;
      for (Interval const& i : ports) text += (text.empty() ? "" : "_") + rangeText(i);
      return text;
    }();
    // A name that says what is in it is the same for the same ports; a long one is cut and numbered.
    transport_[leaf + "-set"] = portSet(name, ports);
  }

  std::string portSet(std::string name, IntervalSet const& ports) {
    constexpr size_t longest = 60;
    if (name.size() > longest) name = name.substr(0, longest) + "_";
    for (size_t n = 1;; ++n) {
      std::string tried = n == 1 ? name : name + "-" + std::to_string(n);
      auto const [at, isNew] = ports_.try_emplace(tried, ports);
      if (isNew || at->second == ports) return tried;
    }
  }

  void addFlags() {
    if (rule_.tcpInit && rule_.tcpEstablished) {
      match_["matchTcpInit"] = match_["matchTcpEstablished"] = true;
      added("both tests of TCP flags");
    } else if (rule_.tcpInit || rule_.tcpEstablished) {
      addBuiltin(rule_.tcpInit ? "TCP_INITIAL" : "TCP_ESTABLISHED");
    }
  }
  void addBuiltin(char const* detail) {
    transport_["detail-mode"] = "BUILTIN";
    transport_["builtin-detail"] = detail;
  }

  /// A reader keeps an entry to offset 0 that would match whatever lacks ports and types.
  void addFragment() {
    IntervalSet const& wanted = rule_.of(RangeSetType::fragment);
    bool const kept = rule_.matchesZeros();
    IntervalSet const first = {{0, 0}};
    if (wanted == (kept ? first : IntervalSet())) return;
    if (wanted.empty()) return setOurs(RangeSetType::fragment, "0-" + std::to_string(lastOffset));
    if (!kept && wanted == IntervalSet{{1, lastOffset}} && !transport_.contains("builtin-detail"))
      return addBuiltin("FRAGMENT");
    auto const all = listed(wanted, 16);
    if (!kept && isV4_ && all)
      ip_["config"]["fragment-offsets"] = *all;
    else
      addOurs(RangeSetType::fragment);
  }

  RuleView const& rule_;
  ListNames& prefixSets_;
  std::map<std::string, IntervalSet>& ports_;
  bool isV4_;
  Json ip_ = Json::object();
  Json transport_ = Json::object();
  Json match_ = Json::object();
  std::string additions_;
};

class OpenConfigWriter {
 public:
  OpenConfigWriter(std::ostream& out, RuleSet const& rules, WriteOptions const& options,
                   Diagnostics& diagnostics)
      : out_(out),
        rules_(rules),
        options_(options),
        diagnostics_(diagnostics),
        sets_{ListNames(rules.lists(), "prefixes"), ListNames(rules.lists(), "prefixes")} {}

  void write() {
    out_ << R"({"openconfig-acl:acl":{"acl-sets":{"acl-set":[)";
    char const* comma = "";
    for (auto const& [name, acl] : rules_.acls()->acl()) {
      out_ << comma << "\n ";
      writeAcl(*acl);
      comma = ",";
    }
    out_ << "]}}";
    Json const sets = definedSets();
    if (!sets.empty()) out_ << ",\n \"openconfig-defined-sets:defined-sets\":" << jsonLine(sets);
    out_ << "}\n";
  }

 private:
  void writeAcl(Naxel::AclConfig const& acl) {
    bool const isV4 = acl.af().value_or(Lumox::ipv4()) == Lumox::ipv4();
    Json config{{"name", utf8(acl.name())}, {"type", isV4 ? "ACL_IPV4" : "ACL_IPV6"}};
    Json head = config;
    if (std::string const& about = rules_.description(acl.name()); !about.empty())
      config["description"] = utf8(about);
    head["config"] = config;
    std::string text = jsonLine(head);
    text.back() = ',';
    out_ << text << R"("acl-entries":{"acl-entry":[)";
    char const* comma = "";
    for (RuleView const& rule : viewsOf(rules_, acl)) {
      EntryWriter writer(rule, sets_[isV4 ? 0 : 1], ports_);
      out_ << comma << "\n  " << jsonLine(writer.entry());
      comma = ",";
      if (options_.strict && !writer.additions().empty())
        cannotSay(rules_, rule, "OpenConfig has no place for " + writer.additions(),
                  "without --strict it goes under a name of our own", diagnostics_);
    }
    out_ << "]}}";
  }

  Json definedSets() const {
    Json out = Json::object();
    for (size_t family : {0, 1}) {
      std::string const set = family == 0 ? "ipv4-prefix-set" : "ipv6-prefix-set";
      for (auto const& [name, list] : sets_[family].all()) {
        Json config{{"name", utf8(name)}};
        NamedList const* const known = rules_.lists().find(name);
        if (known && !known->description.empty()) config["description"] = utf8(known->description);
        for (Lumox::IpGenPrefix const& p : sorted(list->addr()))
          config["prefix"].push_back(Mox::valueToStrep(p));
        for (Lumox::IpGenPrefix const& p : sorted(list->exceptAddr()))
          config["exclude-prefix"].push_back(Mox::valueToStrep(p));
        out[set + "s"][set].push_back({{"name", utf8(name)}, {"config", config}});
      }
    }
    for (auto const& [name, ports] : ports_) {
      Json config{{"name", name}};
      for (Interval const& i : ports) config["port"].push_back(portJson(i));
      out["port-sets"]["port-set"].push_back({{"name", name}, {"config", config}});
    }
    return out;
  }

  std::ostream& out_;
  RuleSet const& rules_;
  WriteOptions const& options_;
  Diagnostics& diagnostics_;
  std::array<ListNames, 2> sets_;  // of IPv4 and of IPv6
  std::map<std::string, IntervalSet> ports_;
};

}  // namespace

void writeRulesAsOpenConfig(std::ostream& out, RuleSet const& rules, WriteOptions const& options,
                            Diagnostics& diagnostics) {
  OpenConfigWriter(out, rules, options, diagnostics).write();
}

}  // namespace NaxelTool
