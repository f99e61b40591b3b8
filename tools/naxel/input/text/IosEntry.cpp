#include "input/text/IosEntry.h"

#include "input/text/EntryParts.h"
#include "input/text/Names.h"

#include <algorithm>

namespace NaxelTool {

namespace {

constexpr std::string_view unsupportedOptions[] = {"auth",
                                                   "dest-option-type",
                                                   "destopts",
                                                   "ecn",
                                                   "esp-spi",
                                                   "fragment-type",
                                                   "flow-label",
                                                   "hop-limit",
                                                   "hop-by-hop",
                                                   "http-method",
                                                   "match-any",
                                                   "mobility",
                                                   "mobility-type",
                                                   "nexthop-group",
                                                   "nve",
                                                   "option",
                                                   "option-header",
                                                   "police",
                                                   "routing",
                                                   "routing-type",
                                                   "tcp-flags",
                                                   "tcp-flags-mask",
                                                   "tcp-option-length",
                                                   "time-range",
                                                   "tos",
                                                   "tracked",
                                                   "ttl",
                                                   "udf",
                                                   "undetermined-transport",
                                                   "vlan"};

constexpr std::string_view tcpFlags[] = {"ack", "cwr", "ece", "fin", "psh", "rst", "syn", "urg"};

/// Options that do not narrow what an entry matches, with how many words follow.
struct Bystander {
  std::string_view name;
  unsigned words;
};
constexpr Bystander bystanders[] = {
    {"reflect", 1},  {"timeout", 1}, {"capture", 0}, {"session", 1},
    {"icmp-off", 0}, {"icmp-on", 0}, {"counter", 1},
};

template <class Table>
bool contains(Table const& table, Word word) {
  return std::find(std::begin(table), std::end(table), word.text) != std::end(table);
}

/// What stands behind the destination, word by word.
class Options {
 public:
  Options(Entry& entry, TextContext& context) : entry_(entry), context_(context) {}

  void take(Words& words) {
    while (!words.atEnd()) takeOne(words);
    judgeFlags();
  }

 private:
  void takeOne(Words& words);
  void takeMatchAll(Words& words);
  bool takeBystander(Word word, Words& words);
  void takeLog(Words& words);
  void takeDscp(Words& words);
  void takePrecedence(Words& words);
  void takeLength(Words& words);
  void judgeFlags() const;

  Entry& entry_;
  TextContext& context_;
  Word flag_;   // the first bare TCP flag
  Word state_;  // "established" or "match-all"
  Word fragments_;
};

/// Takes what a listing counts, "(12 matches)" or "[match 12, ...]", up to the closing bracket.
bool takeRemark(Word word, Words& words) {
  if (!word.text.starts_with('(') && !word.text.starts_with('[')) return false;
  char const close = word.text[0] == '(' ? ')' : ']';
  for (Word w = word; w && !w.text.ends_with(close);) w = words.take();
  return true;
}

void Options::takeOne(Words& words) {
  Word const word = words.take();
  if (takeRemark(word, words) || takeBystander(word, words)) return;
  if (word.is("log") || word.is("log-input")) return takeLog(words);
  if (word.is("sequence") && decimalOf(words.peek().text, UINT32_MAX)) {
    words.take();
  } else if (word.is("established")) {
    state_ = word;
    entry_.established = true;
  } else if (contains(tcpFlags, word)) {
    flag_ = word;
  } else if (word.is("match-all")) {
    state_ = word;
    takeMatchAll(words);
  } else if (word.is("fragments")) {
    fragments_ = word;
    entry_.fragments = true;
  } else if (word.is("dscp")) {
    takeDscp(words);
  } else if (word.is("precedence")) {
    takePrecedence(words);
  } else if (word.is("packet-length")) {
    takeLength(words);
  } else if (contains(unsupportedOptions, word)) {
    failUnsupported(word, quoted(word));
  } else {
    std::vector<std::string_view> known = {"established", "fragments", "dscp", "precedence", "log"};
    uint32_t const protocol = singleProtocol(entry_.services[0].protocols);
    if (protocol == icmpProtocol || protocol == icmp6Protocol)
      known = icmpNames(context_.dialect, protocol);
    failWith(word, "unknown-option", quoted(word) + " is not known at this place of an entry",
             didYouMean(word.text, known));
  }
}

bool Options::takeBystander(Word word, Words& words) {
  for (auto const& [name, following] : bystanders) {
    if (!word.is(name)) continue;
    for (unsigned i = 0; i < following; ++i) words.take();
    context_.noteOnce(
        word.place, "no-effect",
        quoted(word) + " does not change what an entry matches, and has no effect here");
    return true;
  }
  return false;
}

void Options::takeLog(Words& words) {
  entry_.log = true;
  // A word of the operator's own may stand behind, as the last one.
  Words behind = words;
  Word const cookie = behind.take();
  if (context_.dialect == Dialect::ios && cookie && behind.atEnd() &&
      !contains(unsupportedOptions, cookie) && !contains(tcpFlags, cookie) &&
      !cookie.is("established") && !cookie.is("fragments") && !cookie.text.starts_with('(') &&
      !cookie.is("log") && !cookie.is("log-input") && !cookie.is("capture") &&
      !cookie.text.starts_with('[')) {
    words.take();
    context_.noteOnce(cookie.place, "no-effect",
                      "the word behind 'log' does not change what an entry matches");
  }
}

void Options::takeMatchAll(Words& words) {
  Word const at = words.peek();
  bool syn = false;
  bool noAck = false;
  bool other = false;
  for (; words.peek().text.starts_with('+') || words.peek().text.starts_with('-'); words.take()) {
    if (words.peek().is("+syn"))
      syn = true;
    else if (words.peek().is("-ack"))
      noAck = true;
    else
      other = true;
  }
  if (!syn || !noAck || other)
    failUnsupported(at, "these TCP flags: only '+syn -ack' together, or 'established'");
  entry_.opening = true;
}

void Options::takeDscp(Words& words) {
  ValueKind const kind = dscpKind();
  if (isClause(words.peek())) {
    entry_.dscp = takeClause(words, kind);
  } else {
    uint32_t const v = takeValue(words, kind);
    entry_.dscp = {{v, v}};
  }
}

void Options::takePrecedence(Words& words) {
  uint32_t const v = takeValue(words, precedenceKind());
  entry_.dscp = {{8 * v, 8 * v + 7}};
}

void Options::takeLength(Words& words) {
  Word const word = words.peek();
  if (!isClause(word))
    failSyntax(word, "eq, neq, lt, gt or range is missing before " + quoted(word));
  entry_.length = takeClause(words, {"length", 65535, {}, {}});
}

void Options::judgeFlags() const {
  ValueSet const& protocols = entry_.services[0].protocols;
  bool const tcp = entry_.services.size() == 1 && singleProtocol(protocols) == tcpProtocol;
  if (flag_)
    failUnsupported(flag_, "the TCP flag " + quoted(flag_) +
                               " alone: only 'match-all +syn -ack', or "
                               "'established'");
  if ((entry_.established || entry_.opening) && !tcp)
    failSyntax(state_, "TCP flags stand with tcp only");
  bool const layer4 = entry_.established || entry_.opening ||
                      std::any_of(entry_.services.begin(), entry_.services.end(),
                                  [](ServiceMatch const& s) { return s.looksAtLayer4(); });
  if (entry_.fragments && layer4)
    failSyntax(fragments_,
               "an entry with 'fragments' cannot look at ports, ICMP types or TCP flags, which "
               "fragments lack");
}

void takeExtended(Words& words, Entry& entry, Lumox::AddressFamily af, TextContext& context,
                  ObjectGroups& groups) {
  if (words.takeIf("object-group")) {
    Word const name = words.take();
    entry.services = groups.services(name);
    for (ServiceMatch const& s : entry.services)
      if (af == Lumox::ipv6() && singleProtocol(s.protocols) == icmpProtocol)
        failUnsupported(name, "ICMP of IPv4, which group " + quoted(name) + " holds, in IPv6");
    entry.source = takeAddress(words, context, groups);
    entry.destination = takeAddress(words, context, groups);
    return;
  }
  ServiceMatch service;
  service.protocols = takeProtocol(words, context, af);
  entry.source = takeAddress(words, context, groups);
  service.sourcePorts = takePorts(words, context, groups, service.protocols);
  entry.destination = takeAddress(words, context, groups);
  service.destinationPorts = takePorts(words, context, groups, service.protocols);
  uint32_t const protocol = singleProtocol(service.protocols);
  if (protocol == icmpProtocol || protocol == icmp6Protocol)
    service.icmpTypes = takeIcmpType(words, context, protocol);
  bool const igmpType =
      protocol == igmpProtocol &&
      (decimalOf(words.peek().text, 255) || words.peek().is("dvmrp") ||
       words.peek().is("host-query") || words.peek().is("host-report") || words.peek().is("pim"));
  if (igmpType) failUnsupported(words.peek(), "IGMP types");
  entry.services = {std::move(service)};
}

}  // namespace

Entry readIosEntry(Words words, Lumox::AddressFamily af, bool standard, TextContext& context,
                   ObjectGroups& groups) {
  Entry entry;
  Word const action = words.take();
  entry.permit = action.is("permit");
  if (action.is("evaluate") || action.is("dynamic")) failUnsupported(action, quoted(action));
  if (!entry.permit && !action.is("deny"))
    failWith(action, "unknown-line", quoted(action) + " begins no entry of a list",
             didYouMean(action.text, {"permit", "deny", "remark"}));
  Word const first = words.peek();
  if (standard) {
    entry.services = {{}};
    entry.source = takeAddress(words, context, groups);
    entry.destination = matchAny(true, true);
  } else {
    takeExtended(words, entry, af, context, groups);
  }
  Options(entry, context).take(words);
  if (!entry.source.of(af).matches || !entry.destination.of(af).matches)
    failSyntax(first, std::string("an address is not one of ") +
                          (af == Lumox::ipv4() ? "IPv4" : "IPv6") + ", as the list is");
  return entry;
}

}  // namespace NaxelTool
