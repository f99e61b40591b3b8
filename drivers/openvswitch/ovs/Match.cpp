#include "ovs/Match.h"

#include "mox/Assert.h"
#include "ovs/Bytes.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <vector>

namespace NaxelOvs {

namespace {

/// How a field is named in messages and in texts.
struct FieldInfo {
  uint16_t oxmClass;
  uint8_t number;
  uint8_t length;  // of the value in bytes
  uint8_t bits;
  char const* name;
};

constexpr uint16_t classNicira = 0x0001;
constexpr uint16_t classBasic = 0x8000;
constexpr uint16_t classExperimenter = 0xffff;
constexpr uint32_t experimenterOnf = 0x4f4e4600;
constexpr uint8_t flagsNicira = 34;  // TCP flags have three names
constexpr uint8_t flagsBasic = 42;

constexpr std::array<FieldInfo, 18> fieldInfo = {
    {{classBasic, 0, 4, 32, "in_port"},
     {classBasic, 5, 2, 16, "eth_type"},
     {classBasic, 8, 1, 6, "ip_dscp"},
     {classBasic, 10, 1, 8, "nw_proto"},
     {classNicira, 26, 1, 2, "ip_frag"},
     {classBasic, 11, 4, 32, "nw_src"},
     {classBasic, 12, 4, 32, "nw_dst"},
     {classBasic, 26, 16, 128, "ipv6_src"},
     {classBasic, 27, 16, 128, "ipv6_dst"},
     {classBasic, 13, 2, 16, "tcp_src"},
     {classBasic, 14, 2, 16, "tcp_dst"},
     {classBasic, 15, 2, 16, "udp_src"},
     {classBasic, 16, 2, 16, "udp_dst"},
     {classBasic, 17, 2, 16, "sctp_src"},
     {classBasic, 18, 2, 16, "sctp_dst"},
     {classBasic, 19, 1, 8, "icmp_type"},
     {classBasic, 29, 1, 8, "icmpv6_type"},
     {classExperimenter, flagsBasic, 2, 12, "tcp_flags"}}};
static_assert(fieldInfo.size() == static_cast<size_t>(MatchField::reg0));

FieldInfo infoOf(MatchField field) {
  size_t const at = static_cast<size_t>(field);
  if (at < fieldInfo.size()) return fieldInfo[at];
  return {classNicira, static_cast<uint8_t>(at - fieldInfo.size()), 4, 32, "reg"};
}

std::optional<MatchField> fieldOf(uint16_t oxmClass, uint8_t number) {
  if (oxmClass == classNicira && number < registerCount) return registerField(number);
  if ((oxmClass == classNicira && number == flagsNicira) ||
      (oxmClass == classBasic && number == flagsBasic))
    return MatchField::tcpFlags;
  for (size_t i = 0; i < fieldInfo.size(); ++i)
    if (fieldInfo[i].oxmClass == oxmClass && fieldInfo[i].number == number)
      return static_cast<MatchField>(i);
  return std::nullopt;
}

/// One term, with a mask in any case.
struct Term {
  std::string value;
  std::string mask;
};

/// All bits that the field has.
std::string wholeMask(FieldInfo const& info) {
  std::string mask(info.length, '\xff');
  unsigned const spare = info.length * 8u - info.bits;
  for (unsigned i = 0; i < spare; ++i)
    mask[i / 8] = static_cast<char>(mask[i / 8] & ~(0x80 >> (i % 8)));
  return mask;
}

void putTerm(std::string& out, FieldInfo const& info, Term term) {
  std::string const whole = wholeMask(info);
  for (size_t i = 0; i < term.mask.size(); ++i) {
    term.mask[i] = static_cast<char>(term.mask[i] & whole[i]);
    term.value[i] = static_cast<char>(term.value[i] & term.mask[i]);
  }
  if (term.mask.find_first_not_of('\0') == std::string::npos) return;
  bool const masked = term.mask != whole;
  bool const experimenter = info.oxmClass == classExperimenter;
  put<uint16_t>(out, info.oxmClass);
  put<uint8_t>(out, static_cast<uint8_t>(info.number << 1 | (masked ? 1 : 0)));
  put<uint8_t>(out, static_cast<uint8_t>(info.length * (masked ? 2 : 1) + (experimenter ? 4 : 0)));
  if (experimenter) put<uint32_t>(out, experimenterOnf);
  out += term.value;
  if (masked) out += term.mask;
}

/// The terms of a message by field. False where there is something that is none of ours.
bool readTerms(std::string_view bytes, std::map<MatchField, Term>& to) {
  Reader in(bytes);
  while (!in.rest().empty()) {
    uint16_t const oxmClass = in.get<uint16_t>();
    uint8_t const number = in.get<uint8_t>();
    Reader body(in.bytes(in.get<uint8_t>()));
    bool const masked = number & 1;
    if (oxmClass == classExperimenter && body.get<uint32_t>() != experimenterOnf) return false;
    auto const field = fieldOf(oxmClass, number >> 1);
    if (in.failed() || body.failed() || !field) return false;
    FieldInfo const info = infoOf(*field);
    Term term;
    term.value = body.bytes(info.length);
    term.mask = masked ? std::string(body.bytes(info.length)) : wholeMask(info);
    if (body.failed() || !body.rest().empty()) return false;
    if (!to.emplace(*field, std::move(term)).second) return false;
  }
  return true;
}

uint64_t number(std::string const& bytes) {
  uint64_t out = 0;
  for (char c : bytes) out = out << 8 | static_cast<uint8_t>(c);
  return out;
}

std::string hex(uint64_t v) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(v));
  return text;
}

std::string addressText(Term const& term) {
  bool const v4 = term.value.size() == 4;
  unsigned length = 0;
  // Our own masks are prefixes; what another one has behind its first zero is not shown.
  while (length < term.mask.size() * 8 && (term.mask[length / 8] & (0x80 >> (length % 8))))
    ++length;
  uint8_t const bits = static_cast<uint8_t>(length);
  if (v4)
    return Mox::valueToStrep(
        Lumox::IpGenPrefix::v4(static_cast<uint32_t>(number(term.value)), bits));
  return Mox::valueToStrep(
      Lumox::IpGenPrefix::v6(number(term.value.substr(0, 8)), number(term.value.substr(8)), bits));
}

std::string flagsText(Term const& term) {
  static constexpr std::array<char const*, 12> names = {"fin", "syn", "rst", "psh", "ack",  "urg",
                                                        "ece", "cwr", "ns",  "[9]", "[10]", "[11]"};
  std::string out;
  for (size_t i = 0; i < names.size(); ++i)
    if (number(term.mask) >> i & 1)
      out += (number(term.value) >> i & 1 ? "+" : "-") + std::string(names[i]);
  return out;
}

std::string termText(MatchField field, Term const& term) {
  FieldInfo const info = infoOf(field);
  bool const masked = term.mask != wholeMask(info);
  switch (field) {
    case MatchField::ipv4Src:
    case MatchField::ipv4Dst:
    case MatchField::ipv6Src:
    case MatchField::ipv6Dst: return info.name + ("=" + addressText(term));
    case MatchField::tcpFlags: return info.name + ("=" + flagsText(term));
    case MatchField::ipFrag:
      if (!masked && number(term.value) == laterFragment) return "ip_frag=later";
      break;
    default: break;
  }
  bool const isRegister = field >= MatchField::reg0;
  std::string out = info.name;
  if (isRegister) out += std::to_string(info.number);
  out += "=" + (isRegister || masked || field == MatchField::ethType
                    ? hex(number(term.value))
                    : std::to_string(number(term.value)));
  return masked ? out + "/" + hex(number(term.mask)) : out;
}

/// The word that stands for family and protocol together, taken out of the terms; "" if there is none.
std::string protocolWord(std::map<MatchField, Term>& terms) {
  auto const ether = terms.find(MatchField::ethType);
  if (ether == terms.end()) return {};
  uint64_t const type = number(ether->second.value);
  if (type != etherIpv4 && type != etherIpv6) return {};
  std::string const six = type == etherIpv6 ? "6" : "";
  std::string word = "ip" + (six.empty() ? "" : "v" + six);
  auto const proto = terms.find(MatchField::ipProto);
  if (proto != terms.end()) {
    uint64_t const p = number(proto->second.value);
    std::string const named = p == 6                        ? "tcp"
                              : p == 17                     ? "udp"
                              : p == 132                    ? "sctp"
                              : p == (six.empty() ? 1 : 58) ? "icmp"
                                                            : "";
    if (!named.empty()) {
      word = named + six;
      terms.erase(proto);
    }
  }
  terms.erase(ether);
  return word;
}

}  // namespace

MatchBuilder& MatchBuilder::add(MatchField field, uint32_t value, uint32_t mask) {
  FieldInfo const info = infoOf(field);
  MOX_ASSERT(info.length <= 4);
  std::string v;
  std::string m;
  put<uint32_t>(v, value);
  put<uint32_t>(m, mask);
  putTerm(bytes_, info, {v.substr(4u - info.length), m.substr(4u - info.length)});
  return *this;
}

MatchBuilder& MatchBuilder::add(MatchField field, Lumox::IpGenPrefix const& prefix) {
  FieldInfo const info = infoOf(field);
  Term term;
  put<uint64_t>(term.value, prefix.hi());
  put<uint64_t>(term.value, prefix.lo());
  term.value.resize(info.length);
  term.mask.assign(info.length, '\0');
  for (unsigned i = 0; i < prefix.length(); ++i)
    term.mask[i / 8] = static_cast<char>(term.mask[i / 8] | (0x80 >> (i % 8)));
  MOX_ASSERT(info.length == (prefix.af() == Lumox::ipv4() ? 4 : 16));
  putTerm(bytes_, info, std::move(term));
  return *this;
}

std::optional<std::string> canonicalMatch(std::string_view terms) {
  std::map<MatchField, Term> found;
  if (!readTerms(terms, found)) return std::nullopt;
  std::string out;
  for (auto& [field, term] : found) putTerm(out, infoOf(field), std::move(term));
  return out;
}

std::string matchText(std::string_view canonical) {
  std::map<MatchField, Term> terms;
  if (!readTerms(canonical, terms)) return "(a match of others)";
  std::string out = protocolWord(terms);
  for (auto const& [field, term] : terms) {
    if (!out.empty()) out += ",";
    out += termText(field, term);
  }
  return out;
}

std::optional<uint32_t> exactValue(std::string_view canonical, MatchField field) {
  std::map<MatchField, Term> terms;
  if (!readTerms(canonical, terms)) return std::nullopt;
  auto const found = terms.find(field);
  if (found == terms.end() || found->second.mask != wholeMask(infoOf(field))) return std::nullopt;
  return static_cast<uint32_t>(number(found->second.value));
}

}  // namespace NaxelOvs
