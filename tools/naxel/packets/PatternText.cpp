#include "packets/PatternText.h"

#include "input/IanaNames.h"
#include "input/RuleSet.h"
#include "verify/Packet.h"

#include <algorithm>
#include <array>

namespace NaxelTool {

namespace {

using Lumox::AddressFamily;
using Naxel::IpPrefixList;
using Naxel::RangeSetType;

struct FieldWord {
  std::string_view name;
  RangeSetType type;
};
constexpr std::array<FieldWord, 4> fieldWords = {{{"type", RangeSetType::icmp},
                                                  {"len", RangeSetType::length},
                                                  {"dscp", RangeSetType::dscp},
                                                  {"frag", RangeSetType::fragment}}};
constexpr uint16_t icmp4 = Verify::Packet::icmpProtocol(Lumox::ipv4());
constexpr uint16_t icmp6 = Verify::Packet::icmpProtocol(Lumox::ipv6());

bool isBlank(char c) { return c == ' ' || c == '\t'; }

/// From left to right.
class PatternParser {
 public:
  PatternParser(std::string_view text, NamedLists const& lists) : text_(text), lists_(lists) {
    out_.filter = Mox::makePtr<Naxel::RuleFilter>();
  }

  Pattern parse() {
    protocol();
    side(true);
    LineWord const arrow = next("'>' behind the source");
    if (arrow.text != ">")
      throw LineError(arrow, "syntax", "expected '>' between source and destination");
    side(false);
    for (skip(); at_ < text_.size(); skip()) option(next("option"));
    if (out_.af == Lumox::ipv6() && icmpWord_)
      throw LineError(*icmpWord_, "family", "the ICMP of IPv6 is written 'icmp6'");
    if (out_.af == Lumox::ipv4() && icmp6Word_)
      throw LineError(*icmp6Word_, "family", "the ICMP of IPv4 is written 'icmp'");
    return std::move(out_);
  }

 private:
  void skip() {
    while (at_ < text_.size() && isBlank(text_[at_])) ++at_;
  }
  bool isAt(char c) const { return at_ < text_.size() && text_[at_] == c; }
  /// What stands before the next blank or one of `ends`; may be empty.
  LineWord upTo(std::string_view ends) {
    size_t const from = at_;
    while (at_ < text_.size() && !isBlank(text_[at_]) &&
           ends.find(text_[at_]) == std::string_view::npos)
      ++at_;
    return {text_.substr(from, at_ - from), from};
  }
  LineWord next(char const* what) {
    skip();
    LineWord const word = upTo("");
    if (word.text.empty()) throw LineError(word, "syntax", std::string("there is no ") + what);
    return word;
  }

  void protocol() {
    LineWord const word = next("protocol");
    if (word.text == "ip") return;
    if (word.text == "proto") return ranges(RangeSetType::proto, next("protocol"));
    if (word.text == "icmp") icmpWord_ = word;
    if (word.text == "icmp6") icmp6Word_ = word;
    std::optional<uint32_t> number = ianaNumber(RangeSetType::proto, word.text);
    if (icmpWord_) number = icmp4;
    if (icmp6Word_) number = icmp6;
    if (!number) {
      std::vector<std::string_view> names = ianaNames(RangeSetType::proto);
      names.insert(names.end(), {"ip", "icmp6", "proto"});
      std::string help = didYouMean(word.text, names);
      if (help.empty()) help = "all protocols are written 'ip', others by number 'proto N'";
      throw LineError(word, "unknown-protocol",
                      "there is no protocol '" + std::string(word.text) + "'", help);
    }
    out_.filter->rangeIs(RangeSetType::proto, *number, *number);
  }

  void side(bool source) {
    skip();
    bool const inBrackets = isAt('[');
    if (inBrackets) ++at_;
    Mox::Ptr<IpPrefixList> const list = addresses(inBrackets);
    if (inBrackets) {
      skip();
      if (!isAt(']')) throw LineError({{}, at_}, "syntax", "expected ']'");
      ++at_;
    }
    if (list) source ? out_.filter->sourceIs(list) : out_.filter->destinationIs(list);
    if (!isAt(':')) return;
    ++at_;
    ranges(source ? RangeSetType::srcPort : RangeSetType::dstPort, upTo(""));
  }

  /// One address, several in braces, or a list by its name, and what is left out; null: any.
  Mox::Ptr<IpPrefixList> addresses(bool inBrackets) {
    skip();
    Mox::Ptr<IpPrefixList> list = Mox::makePtr<IpPrefixList>();
    size_t const from = at_;
    bool isAny = false;
    Mox::Ptr<IpPrefixList> named;
    if (isAt('{')) {
      group([&](LineWord word) { list->addrIs(prefix(word)); });
    } else if (isAt('"')) {
      named = listNamed(quoted());
    } else {
      LineWord const word = addressWord(inBrackets);
      isAny = word.text == "any";
      if (!isAny && isName(word.text)) named = listNamed(word);
      if (!isAny && !named) list->addrIs(prefix(word));
    }
    size_t const end = at_;
    skip();
    if (text_.substr(at_).starts_with("except") &&
        (at_ + 6 == text_.size() || isBlank(text_[at_ + 6]))) {
      if (named)
        throw LineError({text_.substr(from, end - from), from}, "syntax",
                        "only prefixes have exceptions, not lists");
      at_ += 6;
      except(*list, inBrackets);
      if (isAny) list->addrIs(everything());
      return list;
    }
    at_ = end;
    return named ? named : isAny ? nullptr : list;
  }

  void except(IpPrefixList& list, bool inBrackets) {
    skip();
    if (isAt('{')) return group([&](LineWord word) { list.exceptAddrIs(prefix(word)); });
    list.exceptAddrIs(prefix(addressWord(inBrackets)));
  }

  /// A word that ends before the ports; an IPv6 address has none unless it stands in brackets.
  LineWord addressWord(bool inBrackets) {
    size_t const from = at_;
    LineWord word = upTo(inBrackets ? "]" : "");
    if (word.text.empty()) throw LineError(word, "syntax", "there is no address");
    size_t const colon = word.text.find(':');
    if (inBrackets || colon == std::string_view::npos || colon != word.text.rfind(':')) return word;
    at_ = from + colon;
    return {word.text.substr(0, colon), from};
  }

  template <class Take>
  void group(Take take) {
    ++at_;
    for (skip(); !isAt('}'); skip()) {
      LineWord const word = upTo("}");
      if (word.text.empty()) throw LineError({{}, at_}, "syntax", "expected '}'");
      take(word);
    }
    ++at_;
  }

  LineWord quoted() {
    size_t const close = text_.find('"', at_ + 1);
    if (close == std::string_view::npos)
      throw LineError({text_.substr(at_), at_}, "syntax", "the quote has no end");
    LineWord const word{text_.substr(at_ + 1, close - at_ - 1), at_ + 1};
    at_ = close + 1;
    return word;
  }

  static bool isName(std::string_view text) {
    return text.find_first_of("/:") == std::string_view::npos &&
           !(text.front() >= '0' && text.front() <= '9');
  }

  Lumox::IpGenPrefix prefix(LineWord word) {
    if (word.text.starts_with("..."))
      throw LineError(word, "syntax", "this text was cut short: write the prefixes out");
    std::optional<Lumox::IpGenPrefix> out;
    try {
      out = prefixOrHostFromText(word.text);
    } catch (std::invalid_argument const& e) {
      throw LineError(word, "address", e.what());
    }
    familyIs(out->af(), word);
    return *out;
  }

  Lumox::IpGenPrefix everything() const {
    return out_.af == Lumox::ipv6() ? Lumox::IpGenPrefix::v6(0, 0, 0)
                                    : Lumox::IpGenPrefix::v4(0, 0);
  }

  Mox::Ptr<IpPrefixList> listNamed(LineWord word) {
    Mox::Ptr<IpPrefixList> list = lists_.named(std::string(word.text));
    if (!list) {
      std::vector<std::string_view> names;
      names.reserve(lists_.all().size() + 1);
      for (auto const& [name, known] : lists_.all()) names.push_back(name);
      names.push_back("any");
      throw LineError(word, "unknown-list", "there is no list '" + std::string(word.text) + "'",
                      word.text == "host"
                          ? "an address stands by itself, as in 'tcp 192.0.2.1 > any'"
                          : didYouMean(word.text, names));
    }
    for (auto const* prefixes : {&list->addr(), &list->exceptAddr()})
      if (!prefixes->empty()) familyIs(prefixes->begin()->af(), word);
    return list;
  }

  void familyIs(AddressFamily af, LineWord word) {
    if (out_.af && *out_.af != af)
      throw LineError(word, "family", "the addresses are of different families");
    out_.af = af;
  }

  void option(LineWord word) {
    if (word.text == "init") return out_.filter->matchTcpInitIs(true);
    if (word.text == "established") return out_.filter->matchTcpEstablishedIs(true);
    auto const field = std::find_if(fieldWords.begin(), fieldWords.end(),
                                    [&](FieldWord const& f) { return f.name == word.text; });
    if (field != fieldWords.end()) return ranges(field->type, next("value"));
    std::vector<std::string_view> names = {"init", "established"};
    for (FieldWord const& f : fieldWords) names.push_back(f.name);
    throw LineError(word, "unknown-option",
                    "packets are told apart by no '" + std::string(word.text) + "'",
                    didYouMean(word.text, names));
  }

  /// "443,8000-8100".
  void ranges(RangeSetType type, LineWord word) {
    if (said_[static_cast<size_t>(type)]) throw LineError(word, "twice", "this is said twice");
    said_[static_cast<size_t>(type)] = true;
    for (size_t at = 0; at <= word.text.size();) {
      size_t const end = std::min(word.text.find(',', at), word.text.size());
      range(type, {word.text.substr(at, end - at), word.offset + at});
      at = end + 1;
    }
  }

  void range(RangeSetType type, LineWord word) {
    Naxel::RangeField const& field = Naxel::rangeField(type);
    if (word.text.starts_with("..."))
      throw LineError(word, "syntax", "this text was cut short: write the values out");
    if (auto const number = ianaNumber(type, word.text))
      return out_.filter->rangeIs(type, *number, *number);
    size_t const dash = word.text.find('-');
    uint32_t const first =
        numberFrom({word.text.substr(0, dash), word.offset}, field.bound(), field.title);
    uint32_t const last = dash == std::string_view::npos
                              ? first
                              : numberFrom({word.text.substr(dash + 1), word.offset + dash + 1},
                                           field.bound(), field.title);
    if (last < first) throw LineError(word, "range", "the range ends before it begins");
    out_.filter->rangeIs(type, first, last);
  }

  std::string_view text_;
  NamedLists const& lists_;
  size_t at_ = 0;
  Pattern out_;
  std::optional<LineWord> icmpWord_;
  std::optional<LineWord> icmp6Word_;
  std::array<bool, Naxel::rangeFieldCount> said_{};
};

}  // namespace

Pattern patternFromText(std::string const& text, NamedLists const& lists) {
  return PatternParser(text, lists).parse();
}

}  // namespace NaxelTool
