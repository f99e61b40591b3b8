#include "input/text/Dialect.h"

#include "input/text/Words.h"

#include <optional>

namespace NaxelTool {

namespace {

struct Sign {
  std::string_view text;
  Dialect dialect;
};

/// What lines begin with, after blanks.
constexpr Sign beginnings[] = {
    {"ipv4 access-list ", Dialect::xr},
    {"!! IOS XR", Dialect::xr},
    {"!RANCID-CONTENT-TYPE: cisco-xr", Dialect::xr},
    {"object-group ip address ", Dialect::nxos},
    {"object-group ipv6 address ", Dialect::nxos},
    {"object-group ip port ", Dialect::nxos},
    {"!RANCID-CONTENT-TYPE: cisco-nx", Dialect::nxos},
    {"IP access list ", Dialect::nxos},
    {"statistics per-entry", Dialect::nxos},
    {"fragments permit-all", Dialect::nxos},
    {"fragments deny-all", Dialect::nxos},
    {"feature ", Dialect::nxos},
    {"IP Access List ", Dialect::eos},
    {"!RANCID-CONTENT-TYPE: arista", Dialect::eos},
    {"counters per-entry", Dialect::eos},
    {"permit response traffic ", Dialect::eos},
    {"transceiver qsfp ", Dialect::eos},
    {"interface Management1", Dialect::eos},
    {"management api ", Dialect::eos},
    {"ip access-list extended ", Dialect::ios},
    {"Extended IP access list ", Dialect::ios},
    {"boot-start-marker", Dialect::ios},
    {"service timestamps ", Dialect::ios},
};

std::optional<Dialect> dialectOfLine(Words line) {
  std::string_view const text = line.rest();
  for (Sign const& sign : beginnings)
    if (text.starts_with(sign.text)) return sign.dialect;
  if (text.starts_with('!') && text.find("EOS-") != std::string_view::npos) return Dialect::eos;
  // Groups within entries.
  if (text.find(" addrgroup ") != std::string_view::npos ||
      text.find(" portgroup ") != std::string_view::npos)
    return Dialect::nxos;
  return std::nullopt;
}

/// The head of a list without its kind.
bool isBareHead(Words line) {
  return line.takeIf("ip") && line.takeIf("access-list") && line.take() && line.atEnd();
}

}  // namespace

std::string_view nameOf(Dialect dialect) {
  switch (dialect) {
    case Dialect::ios: return "IOS";
    case Dialect::xr: return "IOS XR";
    case Dialect::nxos: return "NX-OS";
    case Dialect::eos: return "EOS";
    case Dialect::asa: return "ASA";
  }
  return {};
}

FoundDialect findDialect(std::string_view content) {
  FoundDialect bare;
  Lines lines(content);
  for (Words line; lines.next(line);) {
    if (auto const dialect = dialectOfLine(line)) return {*dialect, line.line()};
    if (!bare.line && isBareHead(line)) bare = {Dialect::nxos, line.line()};
  }
  return bare;
}

}  // namespace NaxelTool
