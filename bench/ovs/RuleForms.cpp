#include "ovs/RuleForms.h"

#include "input/Intervals.h"
#include "mox/AlignedBlocks.h"
#include "verify/RuleOracle.h"

#include <algorithm>
#include <array>
#include <set>
#include <stdexcept>

namespace Bench {

namespace {

using NaxelTool::IntervalSet;
using NaxelTool::Wide;
using Words = std::vector<std::string>;

/// The alternatives of one rule, dimension by dimension; one that matches anything has one empty word.
struct Alternatives {
  std::string family;  ///< "ip", "ipv6"
  std::array<Words, 3> dimension;
  std::string actions;
};

std::string hex(uint64_t v) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(v));
  return text;
}

Words addressWords(Naxel::IpPrefixList const* list, bool v4, bool source) {
  if (!list) return {""};
  unsigned const bits = v4 ? 32 : 128;
  std::string const name = std::string(v4 ? ",nw_" : ",ipv6_") + (source ? "src=" : "dst=");
  Words out;
  for (auto const& [first, last] : NaxelTool::addressesOf(*list))
    Mox::forEachAlignedBlock(first, last, bits, [&](Wide value, unsigned free) {
      unsigned const length = bits - free;
      auto const left = value << (128 - bits);
      auto const prefix =
          v4 ? Lumox::IpGenPrefix::v4(static_cast<uint32_t>(value), static_cast<uint8_t>(length))
             : Lumox::IpGenPrefix::v6(static_cast<uint64_t>(left >> 64),
                                      static_cast<uint64_t>(left), static_cast<uint8_t>(length));
      out.push_back(name + Mox::valueToStrep(prefix));
    });
  return out;
}

template <class Ranges>
Words portWords(Ranges const& ranges, std::string const& name) {
  if (ranges.empty()) return {""};
  Words out;
  for (auto const& [first, last] : NaxelTool::valuesOf(ranges))
    Mox::forEachAlignedBlock(first, last, 16, [&](Wide value, unsigned free) {
      out.push_back("," + name + "=" + hex(static_cast<uint64_t>(value)) + "/" +
                    hex(0xffffu << free & 0xffff));
    });
  return out;
}

Words icmpWords(Naxel::RuleFilter const& filter, unsigned protocol) {
  std::string const name = protocol == 1 ? ",icmp_type=" : ",icmpv6_type=";
  Words out;
  if (protocol == 1 || protocol == 58)
    for (auto const& r : filter.icmpType())
      for (unsigned v = r.rangeStart(); v <= r.rangeEnd(); ++v)
        out.push_back(name + std::to_string(v));
  return out.empty() ? Words{""} : out;
}

Words layer4Words(Naxel::RuleFilter const& filter) {
  if (!filter.dscp().empty() || !filter.length().empty() || !filter.fragment().empty())
    throw std::runtime_error("a rule matches a field that is left out here");
  bool const ports = !filter.sportRange().empty() || !filter.dportRange().empty();
  std::set<unsigned> protocols;
  for (auto const& r : filter.proto())
    for (unsigned p = r.rangeStart(); p <= r.rangeEnd(); ++p) protocols.insert(p);
  if (protocols.empty() && !ports) return {""};
  if (protocols.empty()) protocols = {6, 17, 132};
  Words out;
  Words flags = {""};
  if (filter.matchTcpInit()) flags = {",tcp_flags=+syn-ack"};
  if (filter.matchTcpEstablished()) flags = {",tcp_flags=+ack", ",tcp_flags=+rst"};
  bool const asksFlags = !flags[0].empty();
  if (asksFlags) std::erase_if(protocols, [](unsigned p) { return p != 6; });
  for (unsigned p : protocols) {
    std::string const name = p == 6 ? "tcp" : p == 17 ? "udp" : p == 132 ? "sctp" : "";
    std::string const proto = ",nw_proto=" + std::to_string(p);
    // Other protocols have port 0 alone.
    if ((!ports && !asksFlags) || name.empty()) {
      for (std::string const& type : icmpWords(filter, p)) out.push_back(proto + type);
      continue;
    }
    for (std::string const& s : portWords(filter.sportRange(), name + "_src"))
      for (std::string const& d : portWords(filter.dportRange(), name + "_dst"))
        for (std::string const& f : flags) out.push_back(proto + s + d + f);
  }
  return out;
}

Alternatives alternativesOf(Naxel::RuleConfig const& rule, bool v4) {
  static auto const nothing = Mox::makePtr<Naxel::RuleFilter>();
  Naxel::RuleFilter const& filter = rule.ruleFilter() ? *rule.ruleFilter() : *nothing;
  return {v4 ? "ip" : "ipv6",
          {addressWords(filter.source().get(), v4, true),
           addressWords(filter.destination().get(), v4, false), layer4Words(filter)},
          rule.action().dropEnabled() ? "drop" : "normal"};
}

uint64_t countOf(Alternatives const& rule, RuleForm form) {
  uint64_t product = 1;
  uint64_t sum = 0;
  unsigned several = 0;
  for (Words const& words : rule.dimension) {
    product *= words.size();
    if (words.size() < 2) continue;
    ++several;
    sum += words.size();
  }
  return form == RuleForm::plain || several < 2 ? product : sum + 1;
}

void addProduct(Alternatives const& rule, std::string const& priority, Words& to) {
  for (std::string const& s : rule.dimension[0])
    for (std::string const& d : rule.dimension[1])
      for (std::string const& l : rule.dimension[2])
        to.push_back(priority + rule.family + s + d + l + " actions=" + rule.actions);
}

void addConjunction(Alternatives const& rule, uint32_t id, std::string const& priority, Words& to) {
  // What has one alternative stands in every part of the conjunction: where only the flow behind it asked for it, a
  // packet that fulfils the parts and not that one would be lost to the conjunctions of later rules.
  std::string fixed;
  unsigned several = 0;
  for (Words const& words : rule.dimension)
    words.size() == 1 ? fixed += words[0] : (++several, fixed);
  unsigned number = 0;
  for (Words const& words : rule.dimension) {
    if (words.size() == 1) continue;
    ++number;
    for (std::string const& word : words)
      to.push_back(priority + rule.family + fixed + word + " actions=conjunction(" +
                   std::to_string(id) + "," + std::to_string(number) + "/" +
                   std::to_string(several) + ")");
  }
  to.push_back(priority + "conj_id=" + std::to_string(id) + "," + rule.family +
               " actions=" + rule.actions);
}

template <class F>
void forEachRule(Naxel::AclConfig const& acl, F f) {
  bool const v4 = Verify::familyOf(acl) == Lumox::ipv4();
  uint32_t number = 0;
  for (auto const& [index, rule] : acl.ruleById()) {
    Alternatives const of = alternativesOf(*rule, v4);
    // A list of nothing but exceptions matches nothing.
    bool const empty = of.dimension[0].empty() || of.dimension[1].empty();
    if (!empty) f(of, ++number);
  }
}

}  // namespace

uint64_t countFlows(Naxel::AclConfig const& acl, RuleForm form) {
  uint64_t flows = 0;
  forEachRule(acl, [&](Alternatives const& rule, uint32_t) { flows += countOf(rule, form); });
  return flows;
}

std::vector<std::string> flowsOf(Naxel::AclConfig const& acl, RuleForm form) {
  Words out;
  forEachRule(acl, [&](Alternatives const& rule, uint32_t number) {
    std::string const priority = "priority=" + std::to_string(65535 - number) + ",";
    if (form == RuleForm::plain || countOf(rule, form) == countOf(rule, RuleForm::plain))
      addProduct(rule, priority, out);
    else
      addConjunction(rule, number, priority, out);
  });
  return out;
}

}  // namespace Bench
