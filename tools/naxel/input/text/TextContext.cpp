#include "input/text/TextContext.h"

namespace NaxelTool {

namespace {

void countDown(size_t& left, size_t n, Word at, char const* what) {
  if (n > left)
    failWith(at, "too-large",
             std::string("with this entry the file comes to more ") + what +
                 " than are taken from a file of its size");
  left -= n;
}

}  // namespace

void TextContext::countPrefixes(size_t n, Word at) { countDown(prefixesLeft_, n, at, "addresses"); }

void TextContext::countRules(size_t n, Word at) { countDown(rulesLeft_, n, at, "rules"); }

void TextContext::noteOnce(Place place, std::string const& code, std::string const& text,
                           std::string const& help) {
  if (noted_.insert(text).second) reading.note(place, code, text, help);
}

Lumox::IpGenPrefix takeHost(Words& words, TextContext const& context) {
  Word const word = words.take();
  std::string_view text = word.text;
  if (text.ends_with(',')) text.remove_suffix(1);  // "10.0.0.0, wildcard bits 0.255.255.255"
  auto const alias = context.aliases.find(text);
  bool const named = alias != context.aliases.end();
  if (named) text = alias->second;
  if (auto const address = addressOf(text)) return *address;
  if (!word) failSyntax(word, "an address is missing");
  failWith(word, "unknown-address",
           (named ? quoted(word) + " stands for " + quoted({text, {}}) + ", which" : quoted(word)) +
               " is not an address");
}

Lumox::IpGenPrefix takePrefixLength(Words& words) {
  Word const word = words.take();
  try {
    return prefixFromText(word.text);
  } catch (std::invalid_argument const& e) {
    failWith(word, "unknown-address", e.what());
  }
}

Prefixes takeAddressRange(Words& words, TextContext& context) {
  Word const at = words.peek();
  auto const first = takeHost(words, context);
  auto const last = takeHost(words, context);
  if (first.af() != last.af() || last < first)
    failSyntax(at, "a range of addresses goes from a lower one to a higher one of its family");
  return rangePrefixes(first, last);
}

bool isMask(Word word) { return address4Of(word.text).has_value(); }

Prefixes takeMasked(Lumox::IpGenPrefix const& address, Words& words, bool wildcard,
                    TextContext& context) {
  Word const word = words.take();
  auto const mask = address4Of(word.text);
  if (!mask) failSyntax(word, quoted(word) + " is not a mask");
  if (address.af() != Lumox::ipv4()) failSyntax(word, "an address of IPv6 has no mask");
  if (looksLikeNetmask(wildcard ? *mask : ~*mask))
    context.reading.warning(word.place, "other-mask",
                            wildcard ? quoted(word) + " looks like a netmask, and is a wildcard"
                                     : quoted(word) + " looks like a wildcard, and is a netmask");
  auto prefixes = wildcardPrefixes(address.address4(), wildcard ? *mask : ~*mask);
  if (!prefixes)
    failUnsupported(word, quoted(word) +
                              ": as prefixes it comes to more than 256, with more than 8 bits that "
                              "do not matter above those at the low end");
  return std::move(*prefixes);
}

AddressMatch matchOf(Prefixes const& prefixes) {
  AddressMatch out;
  for (auto const& p : prefixes) {
    AddressMatch::Family& side = p.af() == Lumox::ipv4() ? out.ipv4 : out.ipv6;
    if (!side.matches) side = {true, Naxel::ipPrefixListFactory()};
    side.list->addrIs(p.masked());
  }
  for (auto* const side : {&out.ipv4, &out.ipv6})
    if (side->list && matchesEverything(*side->list)) side->list = nullptr;
  return out;
}

AddressMatch matchAny(bool ipv4, bool ipv6) { return {{ipv4, nullptr}, {ipv6, nullptr}}; }

}  // namespace NaxelTool
