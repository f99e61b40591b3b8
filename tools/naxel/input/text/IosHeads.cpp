#include "input/text/IosHeads.h"

#include "input/text/Names.h"

#include <string>

namespace NaxelTool {

namespace {

/// Commands about all lists, which would be the names of lists if nothing followed.
bool isGeneralCommand(Words words) {
  Word const word = words.take();
  if (words.atEnd()) return false;
  return word.is("logging") || word.is("log-update") || word.is("resequence") ||
         word.is("persistent") || word.is("match-local-traffic") || word.is("helper") ||
         word.is("role-based") || word.is("fqdn");
}

/// "ip access-list ..." from the second word on.
std::optional<ListHead> configuredList(Words words, ListHead head) {
  if (isGeneralCommand(words)) {
    head.other = true;
    return head;
  }
  Words behind = words;
  bool const standard = behind.takeIf("standard");
  // A list may be called "standard".
  if ((standard || behind.takeIf("extended")) && !behind.atEnd()) {
    head.standard = standard;
    words = behind;
  }
  head.name = words.take();
  if (!head.name) return std::nullopt;
  return head;
}

/// "access-list 101 permit ..." from the number on. Other numbers are of other kinds of lists.
std::optional<ListHead> numberedList(Words words, ListHead head) {
  head.name = words.take();
  auto const number = decimalOf(head.name.text, 65535);
  if (!number) return std::nullopt;
  head.standard = (*number >= 1 && *number <= 99) || (*number >= 1300 && *number <= 1999);
  head.other = !head.standard && !(*number >= 100 && *number <= 199) &&
               !(*number >= 2000 && *number <= 2699);
  head.entry = words;
  return head;
}

/// "Extended IP access list X", "IPv6 access list X", "IP Access List X [readonly]".
std::optional<ListHead> shownList(Words words) {
  ListHead head;
  head.listing = true;
  std::string word = lowerCase(words.take().text);
  if (word == "standard" || word == "extended") {
    head.standard = word == "standard";
    word = lowerCase(words.take().text);
  }
  if (lowerCase(words.take().text) != "access" || lowerCase(words.take().text) != "list")
    return std::nullopt;
  head.name = words.take();
  if (!head.name) return std::nullopt;
  head.af = word == "ipv6" ? Lumox::ipv6() : Lumox::ipv4();
  head.other = word != "ip" && word != "ipv4" && word != "ipv6";
  return head;
}

}  // namespace

std::optional<ListHead> listHead(Words line) {
  Words words = line;
  ListHead head;
  head.away = words.takeIf("no");
  Word const first = words.take();
  if (first.is("access-list")) return numberedList(words, head);
  if (words.takeIf("access-list")) {
    head.af = first.is("ipv6") ? Lumox::ipv6() : Lumox::ipv4();
    if (first.is("ip") || first.is("ipv4") || first.is("ipv6")) return configuredList(words, head);
    if (first.is("mac") || first.is("ethernet-services") || first.is("arp")) {
      head.other = true;
      return head;
    }
    return std::nullopt;
  }
  return head.away ? std::nullopt : shownList(line);
}

std::optional<GroupHead> groupHead(Words words) {
  GroupHead head;
  head.away = words.takeIf("no");
  bool const object = words.peek().is("object");
  if (!words.takeIf("object-group") && !words.takeIf("object")) return std::nullopt;
  Word const kind = words.take();
  if (kind.is("network") || kind.is("v4-network") || kind.is("v6-network")) {
    Words behind = words;
    Word const family = behind.take();
    if ((family.is("ipv4") || family.is("ipv6")) && !behind.atEnd()) words = behind;
  } else if ((kind.is("ip") || kind.is("ipv6")) && words.takeIf("address")) {
    head.kind = GroupKind::network;
  } else if (kind.is("port") || (kind.is("ip") && words.takeIf("port"))) {
    head.kind = GroupKind::port;
  } else if (kind.is("service")) {
    head.kind = GroupKind::service;
  } else if (kind.is("protocol") && !object) {
    head.kind = GroupKind::protocol;
  } else if (kind.is("icmp-type") && !object) {
    head.kind = GroupKind::icmpType;
  } else {
    return std::nullopt;
  }
  head.name = words.take();
  if (!head.name) return std::nullopt;
  if (head.kind == GroupKind::service && !object) {
    Word const protocol = words.take();
    if (protocol.is("tcp") || protocol.is("tcp-udp"))
      head.protocols.emplace_back(tcpProtocol, tcpProtocol);
    if (protocol.is("udp") || protocol.is("tcp-udp"))
      head.protocols.emplace_back(udpProtocol, udpProtocol);
  }
  return head;
}

}  // namespace NaxelTool
