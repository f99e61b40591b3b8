#include "input/text/EntryParts.h"

#include "input/text/Names.h"

#include <algorithm>

namespace NaxelTool {

namespace {

constexpr std::string_view groupWords[] = {"object-group", "addrgroup", "net-group"};

bool isGroupWord(Word word) {
  return std::find(std::begin(groupWords), std::end(groupWords), word.text) != std::end(groupWords);
}

/// What an entry may have where others have a protocol or an address, and rules do not.
void failIfUnsupported(Word word) {
  for (std::string_view const feature :
       {"vlan", "response", "mpls", "dynamic", "evaluate", "field-set", "interface", "user",
        "user-group", "object-group-user", "object-group-security", "security-group",
        "object-group-network-service", "group-policy"})
    if (word.is(feature)) failUnsupported(word, quoted(word));
}

}  // namespace

bool hasPorts(ValueSet const& protocols) {
  return !protocols.empty() &&
         std::all_of(protocols.begin(), protocols.end(), [](auto const& range) {
           return range.first == range.second &&
                  (range.first == tcpProtocol || range.first == udpProtocol ||
                   range.first == sctpProtocol);
         });
}

uint32_t singleProtocol(ValueSet const& protocols) {
  return protocols.size() == 1 && protocols[0].first == protocols[0].second ? protocols[0].first
                                                                            : 0;
}

ValueSet takeProtocol(Words& words, TextContext const& context, Lumox::AddressFamily af) {
  Word const word = words.take();
  if (word.is(af == Lumox::ipv4() ? "ip" : "ipv6") || (af == Lumox::ipv4() && word.is("ipv4")))
    return {};
  if (auto const number = decimalOf(word.text, 255)) {
    if (*number == 0)
      failUnsupported(word,
                      "protocol 0, which means any protocol on some systems; write 'ip' for that");
    return {{*number, *number}};
  }
  if (auto const number = protocolNumber(word.text, context.dialect, af))
    return {{*number, *number}};
  if (!word) failSyntax(word, "the protocol is missing");
  failIfUnsupported(word);
  if (decimalOf(word.text, UINT32_MAX)) failSyntax(word, "a protocol is at most 255");
  failWith(word, "unknown-protocol", "there is no protocol " + quoted(word),
           didYouMean(word.text, protocolNames()));
}

AddressMatch takeAddress(Words& words, TextContext& context, ObjectGroups& groups) {
  Word const word = words.peek();
  if (words.takeIf("any")) return matchAny(true, true);
  if (words.takeIf("host")) return matchOf({takeHost(words, context)});
  if (isGroupWord(word)) {
    words.take();
    return groups.addresses(words.take());
  }
  if (word.text.find('/') != std::string_view::npos) return matchOf({takePrefixLength(words)});
  failIfUnsupported(word);
  if (!word || isClause(word)) failSyntax(word, "an address is missing before " + quoted(word));
  auto const address = takeHost(words, context);
  if (words.takeIf("wildcard")) words.takeIf("bits");  // the words of a listing
  Word const mask = words.peek();
  if (!isMask(mask)) return matchOf({address});
  Prefixes const prefixes = takeMasked(address, words, true, context);
  if (prefixes.size() > 1) context.countPrefixes(prefixes.size(), mask);
  return matchOf(prefixes);
}

ValueSet portsOfGroup(Word name, ObjectGroups& groups, ValueSet const& protocols) {
  ValueSet out;
  for (ServiceMatch const& s : groups.services(name)) {
    bool const fits = s.protocols.empty() || std::includes(s.protocols.begin(), s.protocols.end(),
                                                           protocols.begin(), protocols.end());
    if (s.destinationPorts.empty() || !s.sourcePorts.empty() || !fits)
      failWith(name, "group-kind",
               "group " + quoted(name) + " is not one of ports of the protocol");
    out.insert(out.end(), s.destinationPorts.begin(), s.destinationPorts.end());
  }
  return unitedValues(std::move(out));
}

ValueSet takePorts(Words& words, TextContext const& context, ObjectGroups& groups,
                   ValueSet const& protocols) {
  Word const word = words.peek();
  bool const group = word.is("portgroup") || word.is("port-group");
  if (!group && !isClause(word)) return {};
  if (!hasPorts(protocols)) failSyntax(word, "ports stand with tcp, udp or sctp only");
  if (!group) return takeClause(words, portKind(context.dialect, protocols));
  words.take();
  return portsOfGroup(words.take(), groups, protocols);
}

ValueSet takeIcmpType(Words& words, TextContext const& context, uint32_t protocol) {
  Word const word = words.peek();
  std::optional<uint32_t> type = decimalOf(word.text, 255);
  if (type) {
    words.take();
    if (decimalOf(words.peek().text, 255)) failUnsupported(words.peek(), "an ICMP code");
  } else if (auto const name = icmpName(word.text, context.dialect, protocol)) {
    words.take();
    if (name->hasCode)
      failUnsupported(word, "an ICMP code, and " + quoted(word) + " is type " +
                                std::to_string(name->type) + " with a code");
    type = name->type;
  }
  if (!type) return {};
  return {{*type, *type}};
}

}  // namespace NaxelTool
