#include "input/JsonRuleFields.h"

#include "input/IanaNames.h"
#include "input/RuleSet.h"

#include <charconv>
#include <optional>
#include <stdexcept>

namespace NaxelTool {

namespace {

bool splitRange(std::string const& text, uint64_t& first, uint64_t& last) {
  char const* const end = text.data() + text.size();
  auto const low = std::from_chars(text.data(), end, first);
  if (low.ec != std::errc() || low.ptr == end || *low.ptr != '-') return false;
  auto const high = std::from_chars(low.ptr + 1, end, last);
  return high.ec == std::errc() && high.ptr == end;
}

/// A number, a text "first-last", or a name.
Naxel::Range readOneRange(JsonFile const& file, JsonNode const& node,
                          Naxel::RangeField const& field) {
  std::string const quoted = "'" + std::string(field.name) + "'";
  uint64_t first = 0;
  uint64_t last = 0;
  if (uint64_t const* const value = node.number()) {
    first = last = *value;
  } else if (std::string const* const text = node.text(); text && !splitRange(*text, first, last)) {
    auto const number = ianaNumber(field.type, *text);
    bool const isName = text->find_first_not_of("0123456789-") != std::string::npos;
    std::vector<std::string_view> const names = ianaNames(field.type);
    if (!number && isName && !names.empty())
      file.fail(node, quoted + ": there is no " + field.title + " '" + *text + "'",
                didYouMean(*text, names));
    if (!number) file.fail(node, quoted + " takes numbers and texts such as \"10-20\"");
    first = last = *number;
  } else if (!text) {
    file.fail(node, quoted + " takes numbers and texts such as \"10-20\"");
  }
  if (first > last)
    file.fail(node, quoted + ": the range starts at " + std::to_string(first) + ", above its end " +
                        std::to_string(last));
  if (last > field.bound())
    file.fail(node, quoted + " goes from 0 to " + std::to_string(field.bound()));
  return {static_cast<uint32_t>(first), static_cast<uint32_t>(last)};
}

template <class Add>
void readPrefixes(JsonFile const& file, JsonNode const& node, std::string_view what,
                  std::optional<Lumox::AddressFamily>& af, Add add) {
  for (JsonNode const& item : file.list(node, what)) {
    std::string const* const text = item.text();
    if (!text) file.fail(item, "a prefix must be a text such as \"192.0.2.0/24\"");
    try {
      Lumox::IpGenPrefix const prefix = prefixFromText(*text);
      if (af && prefix.af() != *af) file.fail(item, "both address families in one prefix list");
      af = prefix.af();
      add(prefix);
    } catch (std::invalid_argument const& e) {
      file.fail(item, e.what());
    }
  }
}

}  // namespace

RuleDraft::Ranges readRanges(JsonFile const& file, JsonNode const& node,
                             Naxel::RangeField const& field) {
  RuleDraft::Ranges out;
  if (!node.items()) return {readOneRange(file, node, field)};
  JsonNode::Array const& items = file.list(node, field.name);
  out.reserve(items.size());
  for (JsonNode const& item : items) out.push_back(readOneRange(file, item, field));
  return out;
}

Naxel::NaxelActionValue readAction(JsonFile const& file, JsonNode const& node) {
  file.object(node, "'action'",
              {"dropEnabled", "logEnabled", "dscp", "setDscpEnabled", "tc", "setTcEnabled",
               "sflowEnabled"});
  Naxel::NaxelActionValue a;
  file.ifFlag(node, "dropEnabled", [&](bool v) { a.dropEnabledIs(v); });
  file.ifFlag(node, "logEnabled", [&](bool v) { a.logEnabledIs(v); });
  file.ifNumber(node, "dscp", 0, Naxel::DscpRange::bound,
                [&](uint64_t v) { a.dscpIs(Lumox::DscpValue(static_cast<uint8_t>(v))); });
  file.ifFlag(node, "setDscpEnabled", [&](bool v) { a.setDscpEnabledIs(v); });
  file.ifNumber(node, "tc", 0, Naxel::NaxelTrafficClass::null,
                [&](uint64_t v) { a.tcIs(Naxel::NaxelTrafficClass(static_cast<uint8_t>(v))); });
  file.ifFlag(node, "setTcEnabled", [&](bool v) { a.setTcEnabledIs(v); });
  file.ifFlag(node, "sflowEnabled", [&](bool v) { a.sflowEnabledIs(v); });
  return a;
}

NamedList readPrefixList(JsonFile const& file, JsonNode const& node) {
  NamedList out;
  out.list = Mox::makePtr<Naxel::IpPrefixList>();
  std::optional<Lumox::AddressFamily> af;
  if (node.items()) {
    readPrefixes(file, node, "prefix list", af,
                 [&](Lumox::IpGenPrefix const& p) { out.list->addrIs(p); });
  } else {
    file.object(node, "a prefix list", {"addr", "except", "description"});
    if (JsonNode const* const addr = node.find("addr"))
      readPrefixes(file, *addr, "addr", af,
                   [&](Lumox::IpGenPrefix const& p) { out.list->addrIs(p); });
    if (JsonNode const* const except = node.find("except"))
      readPrefixes(file, *except, "except", af,
                   [&](Lumox::IpGenPrefix const& p) { out.list->exceptAddrIs(p); });
    if (JsonNode const* const text = node.find("description"))
      out.description = file.text(*text, "description");
    if (!af) file.fail(node, "the prefix list is empty");
  }
  out.af = *af;
  out.everything = matchesEverything(*out.list);
  return out;
}

void readMatch(JsonFile const& file, JsonNode const& rule, RuleDraft& draft) {
  for (Naxel::RangeField const& field : Naxel::rangeFields)
    if (JsonNode const* const node = rule.find(field.name))
      draft.of(field.type) = readRanges(file, *node, field);
  file.ifFlag(rule, "matchTcpInit", [&](bool v) { draft.tcpInit = v; });
  file.ifFlag(rule, "matchTcpEstablished", [&](bool v) { draft.tcpEstablished = v; });
}

}  // namespace NaxelTool
