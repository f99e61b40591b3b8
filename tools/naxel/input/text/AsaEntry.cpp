#include "input/text/AsaEntry.h"

#include "input/text/EntryParts.h"
#include "input/text/Names.h"

#include <algorithm>

namespace NaxelTool {

namespace {

/// What a listing puts behind an entry: "(hitcnt=5)", "0x1a2b3c4d".
bool isCount(Word word) { return word.text.starts_with('(') || word.text.starts_with("0x"); }

/// Whether the entry is switched off: its last word says so, unless that is a name, or a listing says it.
bool isInactive(Words words) {
  Word before;
  Word last;
  bool shown = false;
  while (Word const word = words.take()) {
    shown = shown || word.is("(inactive)");
    if (isCount(word)) continue;
    before = last;
    last = word;
  }
  return shown || (last.is("inactive") && !before.is("object") && !before.is("object-group") &&
                   !before.is("host") && !before.is("interface"));
}

/// The entry while it is read.
class AsaEntryReader {
 public:
  AsaEntryReader(AnyAddress any, TextContext& context, ObjectGroups& groups)
      : any_(any), context_(context), groups_(groups) {}

  Entry extended(Words& words);
  Entry standard(Words& words);

 private:
  std::vector<ServiceMatch> takeServices(Words& words);
  AddressMatch takeAddress(Words& words);
  ValueSet takePorts(Words& words, ValueSet const& protocols);
  ValueSet takeIcmp(Words& words, uint32_t protocol);
  void takeOptions(Words& words);
  void takeLog(Words& words);

  AnyAddress any_;
  TextContext& context_;
  ObjectGroups& groups_;
  Entry entry_;
};

std::vector<ServiceMatch> AsaEntryReader::takeServices(Words& words) {
  if (!words.takeIf("object-group") && !words.takeIf("object")) {
    ServiceMatch one;
    one.protocols = takeProtocol(words, context_, Lumox::ipv4());
    return {one};
  }
  Word const name = words.take();
  auto const& services = groups_.services(name);
  GroupKind const kind = groups_.kind(name);
  if (kind == GroupKind::service) return services;
  if (kind != GroupKind::protocol)
    failWith(name, "group-kind", "group " + quoted(name) + " is not one of protocols");
  ServiceMatch all;
  for (ServiceMatch const& s : services) {
    if (s.protocols.empty()) return {{}};
    all.protocols.insert(all.protocols.end(), s.protocols.begin(), s.protocols.end());
  }
  all.protocols = unitedValues(std::move(all.protocols));
  return {all};
}

AddressMatch AsaEntryReader::takeAddress(Words& words) {
  if (words.takeIf("any")) return matchAny(any_.ipv4, any_.ipv6);
  if (words.takeIf("any4")) return matchAny(true, false);
  if (words.takeIf("any6")) return matchAny(false, true);
  if (words.takeIf("object")) return groups_.addresses(words.take());
  Word const word = words.peek();
  bool const isAddress = word.text.find('/') == std::string_view::npos && !word.is("host") &&
                         !word.is("object-group") &&
                         (addressOf(word.text) || context_.aliases.contains(word.text));
  // What the families have in common, and what rules cannot say.
  if (!isAddress) return NaxelTool::takeAddress(words, context_, groups_);
  auto const address = takeHost(words, context_);
  if (!isMask(words.peek()))
    failSyntax(words.peek(), "a netmask is missing before " + quoted(words.peek()));
  Word const mask = words.peek();
  Prefixes const prefixes = takeMasked(address, words, false, context_);
  if (prefixes.size() > 1) context_.countPrefixes(prefixes.size(), mask);
  return matchOf(prefixes);
}

ValueSet AsaEntryReader::takePorts(Words& words, ValueSet const& protocols) {
  Words behind = words;
  if (!behind.takeIf("object-group"))
    return NaxelTool::takePorts(words, context_, groups_, protocols);
  Word const name = behind.peek();
  if (!hasPorts(protocols) || groups_.has(name.text, true) || !groups_.has(name.text, false))
    return {};
  behind.take();
  words = behind;
  return portsOfGroup(name, groups_, protocols);
}

ValueSet AsaEntryReader::takeIcmp(Words& words, uint32_t protocol) {
  if (!words.takeIf("object-group")) return takeIcmpType(words, context_, protocol);
  Word const name = words.take();
  ValueSet out;
  for (ServiceMatch const& s : groups_.services(name)) {
    if (s.icmpTypes.empty())
      failWith(name, "group-kind", "group " + quoted(name) + " is not one of ICMP types");
    out.insert(out.end(), s.icmpTypes.begin(), s.icmpTypes.end());
  }
  return unitedValues(std::move(out));
}

/// "log [disable|default|LEVEL] [interval SECONDS]"
void AsaEntryReader::takeLog(Words& words) {
  entry_.log = true;
  for (std::string_view const off : {"disable", "default"})
    if (words.takeIf(off)) entry_.log = false;
  for (std::string_view const level : {"emergencies", "alerts", "critical", "errors", "warnings",
                                       "notifications", "informational", "debugging"})
    words.takeIf(level);
  if (decimalOf(words.peek().text, 7)) words.take();
  if (words.takeIf("interval")) words.take();
}

void AsaEntryReader::takeOptions(Words& words) {
  while (Word const word = words.take()) {
    if (isCount(word)) return words.takeAll();
    if (word.is("log"))
      takeLog(words);
    else if (word.is("time-range"))
      failUnsupported(word, quoted(word));
    else
      failWith(word, "unknown-option", quoted(word) + " is not known at this place of an entry",
               didYouMean(word.text, {"log", "inactive", "eq", "range"}));
  }
}

Entry AsaEntryReader::extended(Words& words) {
  entry_.services = takeServices(words);
  bool const simple = entry_.services.size() == 1 && !entry_.services[0].looksAtLayer4();
  ServiceMatch& service = entry_.services[0];
  entry_.source = takeAddress(words);
  if (simple) service.sourcePorts = takePorts(words, service.protocols);
  entry_.destination = takeAddress(words);
  uint32_t const protocol = singleProtocol(service.protocols);
  if (simple && (protocol == icmpProtocol || protocol == icmp6Protocol))
    service.icmpTypes = takeIcmp(words, protocol);
  else if (simple)
    service.destinationPorts = takePorts(words, service.protocols);
  takeOptions(words);
  return std::move(entry_);
}

Entry AsaEntryReader::standard(Words& words) {
  entry_.services = {{}};
  entry_.source = matchAny(true, true);
  any_.ipv6 = false;
  entry_.destination = takeAddress(words);
  takeOptions(words);
  return std::move(entry_);
}

}  // namespace

Entry readAsaEntry(Words words, bool standard, AnyAddress any, TextContext& context,
                   ObjectGroups& groups) {
  Word const action = words.take();
  if (!action.is("permit") && !action.is("deny"))
    failWith(action, "unknown-line", quoted(action) + " begins no entry of a list",
             didYouMean(action.text, {"permit", "deny", "extended", "remark"}));
  if (isInactive(words))
    throw EntryError(EntryError::Kind::ineffective, action.place, "inactive",
                     "the entry is switched off");
  Word const first = words.peek();
  AsaEntryReader reader(any, context, groups);
  Entry entry = standard ? reader.standard(words) : reader.extended(words);
  entry.permit = action.is("permit");
  if (inFamily(entry, Lumox::ipv4()).services.empty() &&
      inFamily(entry, Lumox::ipv6()).services.empty())
    failSyntax(first, "source, destination and protocol have no address family in common");
  return entry;
}

Entry inFamily(Entry entry, Lumox::AddressFamily af) {
  uint32_t const other = af == Lumox::ipv4() ? icmp6Protocol : icmpProtocol;
  if (!entry.source.of(af).matches || !entry.destination.of(af).matches)
    entry.services.clear();
  else
    std::erase_if(entry.services,
                  [&](ServiceMatch const& s) { return singleProtocol(s.protocols) == other; });
  return entry;
}

}  // namespace NaxelTool
