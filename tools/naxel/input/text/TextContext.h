#pragma once

/// What the parts of a text reader share: where to report to, the dialect, and what one file may come to.

#include "input/RuleReading.h"
#include "input/text/Addresses.h"
#include "input/text/Dialect.h"
#include "input/text/Entry.h"
#include "input/text/EntryError.h"

#include <set>
#include <string>
#include <string_view>
#include <unordered_map>

namespace NaxelTool {

class TextContext {
 public:
  TextContext(RuleReading& fileReading, Dialect ofDialect)
      : reading(fileReading),
        dialect(ofDialect),
        prefixesLeft_(size_t{512} * 1024 + fileReading.content().size() / 8),
        rulesLeft_(size_t{64} * 1024 + fileReading.content().size() / 4) {}

  RuleReading& reading;
  Dialect dialect;
  /// Names of addresses.
  std::unordered_map<std::string_view, std::string_view> aliases;
  /// Whether "any" means addresses of IPv6, too.
  bool anyHasIpv6 = true;

  /// Counts prefixes that a few words come to. Throws EntryError where the file comes to so many that only
  /// a crafted one does: groups within groups double them with every line.
  void countPrefixes(size_t n, Word at);
  /// The same for rules of one entry.
  void countRules(size_t n, Word at);

  /// A note that is given once in a file, for what many entries have.
  void noteOnce(Place place, std::string const& code, std::string const& text,
                std::string const& help = {});

 private:
  size_t prefixesLeft_;
  size_t rulesLeft_;
  std::set<std::string> noted_;
};

/// Takes an address or a name of one. Throws EntryError.
Lumox::IpGenPrefix takeHost(Words& words, TextContext const& context);
/// Takes an address with a length behind a slash.
Lumox::IpGenPrefix takePrefixLength(Words& words);
/// Takes the two addresses of a range, and gives the prefixes between them.
Prefixes takeAddressRange(Words& words, TextContext& context);
/// Whether the word is an address of IPv4, as masks are.
bool isMask(Word word);
/// Takes the mask behind an address, a wildcard or a netmask. Warns of one that looks like the other.
Prefixes takeMasked(Lumox::IpGenPrefix const& address, Words& words, bool wildcard,
                    TextContext& context);

AddressMatch matchOf(Prefixes const& prefixes);
/// Every address of these families.
AddressMatch matchAny(bool ipv4, bool ipv6);

}  // namespace NaxelTool
