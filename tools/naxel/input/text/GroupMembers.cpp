#include "input/text/EntryParts.h"
#include "input/text/Names.h"
#include "input/text/ObjectGroups.h"

namespace NaxelTool {

namespace {

void takeNetworkMember(Words& words, TextContext& context, GroupContent& out) {
  Prefixes prefixes;
  if (words.takeIf("any")) {
    prefixes = {Lumox::IpGenPrefix::v4(0, 0)};
  } else if (words.takeIf("host")) {
    prefixes = {takeHost(words, context)};
  } else if (words.takeIf("range")) {
    prefixes = takeAddressRange(words, context);
  } else if (words.peek().is("fqdn")) {
    failUnsupported(words.peek(), "the name of a host, which is looked up later");
  } else {
    words.takeIf("subnet");
    if (words.peek().text.find('/') != std::string_view::npos) {
      prefixes = {takePrefixLength(words)};
    } else {
      auto const address = takeHost(words, context);
      prefixes = takeMasked(address, words, groupsHaveWildcards(context.dialect), context);
    }
  }
  out.prefixes.insert(out.prefixes.end(), prefixes.begin(), prefixes.end());
}

ValueSet takeServicePorts(Words& words, TextContext const& context, ValueSet const& protocols) {
  ValueKind kind = portKind(context.dialect, protocols);
  if (isClause(words.peek())) return takeClause(words, kind);
  uint32_t const port = takeValue(words, kind);
  return {{port, port}};
}

/// "tcp source gt 1023 eq 80", "tcp-udp destination eq domain", "icmp echo", "esp".
ServiceMatch takeService(Words& words, TextContext const& context) {
  ServiceMatch out;
  if (words.takeIf("tcp-udp") || words.takeIf("tcpudp"))
    out.protocols = {{tcpProtocol, tcpProtocol}, {udpProtocol, udpProtocol}};
  else
    out.protocols = takeProtocol(words, context, Lumox::ipv4());
  uint32_t const protocol = singleProtocol(out.protocols);
  if (protocol == icmpProtocol || protocol == icmp6Protocol) {
    out.icmpTypes = takeIcmpType(words, context, protocol);
  } else if (hasPorts(out.protocols)) {
    if (words.takeIf("source")) out.sourcePorts = takeServicePorts(words, context, out.protocols);
    if (words.takeIf("destination") || !words.atEnd())
      out.destinationPorts = takeServicePorts(words, context, out.protocols);
  }
  return out;
}

ServiceMatch takeServiceMember(Words& words, ObjectGroups::Group const& group,
                               TextContext const& context) {
  ServiceMatch out;
  out.protocols = group.protocols;
  Word const word = words.peek();
  if (group.kind == GroupKind::port || words.takeIf("port-object")) {
    out.destinationPorts = takeClause(words, portKind(context.dialect, group.protocols));
  } else if (group.kind == GroupKind::protocol) {
    words.takeIf("protocol-object");
    out.protocols = takeProtocol(words, context, Lumox::ipv4());
  } else if (group.kind == GroupKind::icmpType) {
    words.takeIf("icmp-object");
    out.icmpTypes = takeIcmpType(words, context, icmpProtocol);
    if (out.icmpTypes.empty()) failSyntax(word, quoted(word) + " is not an ICMP type");
  } else {
    if (!words.takeIf("service-object")) words.takeIf("service");
    if (!group.protocols.empty()) failSyntax(word, "in this group stand ports alone");
    out = takeService(words, context);
  }
  return out;
}

/// The name of a group or object within.
Word takeName(Words& words) {
  Word const name = words.take();
  if (!name) failSyntax(name, "the name of a group is missing");
  return name;
}

}  // namespace

Word readMember(Words line, ObjectGroups::Group const& group, TextContext& context,
                GroupContent& out) {
  // Some systems number the members.
  Words second = line;
  if (decimalOf(second.take().text, UINT32_MAX) && !second.atEnd() &&
      (group.kind == GroupKind::network || group.kind == GroupKind::port))
    line = second;
  if (line.peek().is("description") || line.peek().is("remark") || line.peek().is("nat")) return {};
  if (line.takeIf("group-object") || line.takeIf("object-group")) return takeName(line);
  if (group.kind == GroupKind::network) {
    line.takeIf("network-object");
    if (line.takeIf("object")) return takeName(line);
    takeNetworkMember(line, context, out);
  } else {
    Words inner = line;
    if (inner.takeIf("service-object") && inner.takeIf("object")) return takeName(inner);
    if (group.kind == GroupKind::port && !isClause(line.peek()))
      failSyntax(line.peek(), quoted(line.peek()) + " is no clause of ports");
    out.services.push_back(takeServiceMember(line, group, context));
  }
  if (!line.atEnd()) failSyntax(line.peek(), "nothing may follow before " + quoted(line.peek()));
  return {};
}

}  // namespace NaxelTool
