#include "support/Vocabulary.h"

#include "mox/Hash.h"
#include "support/World.h"

#include <cstdio>

namespace Test {

uint64_t SeededDice::below(uint64_t n) {
  uint64_t const x = Mox::mix64(state_);
  state_ += 0x9e3779b97f4a7c15u;
  return x % n;
}

uint64_t ByteDice::below(uint64_t n) {
  if (n <= 1) return 0;
  uint64_t x = 0;
  for (int i = 0; i < 2 && size_ > 0; ++i, ++data_, --size_) x = x << 8 | *data_;
  return x % n;
}

std::string Vocabulary::prefix(Lumox::AddressFamily af) {
  bool const v4 = af == Lumox::ipv4();
  if (dice_.oneIn(20)) return v4 ? "0.0.0.0/0" : "::/0";
  if (dice_.oneIn(20)) return v4 ? "10.32.0.0/32" : "2020::/128";
  if (dice_.oneIn(20)) {
    // The lowest bits, and those around the middle, where an IPv6 address goes from word to word.
    std::string const low = std::to_string(dice_.below(8));
    if (v4) return "10.32.0." + low + "/" + std::to_string(dice_.between(29, 32));
    return dice_.oneIn(2) ? "2020::" + low + "/" + std::to_string(dice_.between(125, 128))
                          : "2020:0:0:" + low + ":8000::/" + std::to_string(dice_.between(61, 66));
  }
  uint64_t const bits = dice_.below(8) << 5;
  uint64_t const length = dice_.between(8, 11);
  if (v4)
    return "10." + std::to_string(bits) + (dice_.oneIn(6) ? ".1.2/" : ".0.0/") +
           std::to_string(length);
  char text[40];
  std::snprintf(text, sizeof text, "20%02x::%s/%u", static_cast<unsigned>(bits),
                dice_.oneIn(6) ? "5" : "", static_cast<unsigned>(length));
  return text;
}

std::string Vocabulary::list(Lumox::AddressFamily af) {
  std::string out;
  uint64_t const members = dice_.below(4);
  for (uint64_t i = 0; i < members; ++i) out += (i ? "," : "") + prefix(af);
  uint64_t const exceptions = members == 0 ? 1 : dice_.oneIn(3) ? dice_.between(1, 2) : 0;
  for (uint64_t i = 0; i < exceptions; ++i) out += (out.empty() ? "!" : ",!") + prefix(af);
  return out;
}

std::string Vocabulary::ranges(uint32_t bound) {
  std::string out;
  for (uint64_t i = 0, n = dice_.between(1, 3); i < n; ++i) {
    uint64_t a = dice_.oneIn(8) ? bound - dice_.below(3) : dice_.below(12);
    uint64_t b = dice_.oneIn(8) ? bound : dice_.oneIn(3) ? a : dice_.below(12);
    if (a > b) std::swap(a, b);
    out += (i ? "," : "") + std::to_string(a) + "-" + std::to_string(b);
  }
  return out;
}

std::string Vocabulary::filter(Lumox::AddressFamily af) {
  std::string out;
  auto const maybe = [&](unsigned n, char const* key, auto value) {
    if (dice_.oneIn(n)) out += std::string(key) + " " + value() + " ";
  };
  auto const list = [&] { return this->list(af); };
  auto const below = [&](uint32_t bound) { return [this, bound] { return ranges(bound); }; };
  maybe(2, "src", list);
  maybe(2, "dst", list);
  maybe(3, "sport", below(65535));
  maybe(2, "dport", below(65535));
  maybe(6, "icmp", below(255));
  maybe(4, "proto", [&] { return dice_.oneIn(2) ? "6" : ranges(255); });
  maybe(8, "len", below(65535));
  maybe(8, "frag", below(8191));
  maybe(8, "dscp", below(63));
  if (dice_.oneIn(8)) out += "init ";
  if (dice_.oneIn(8)) out += "est ";
  if (dice_.oneIn(3)) out += "drop ";
  return out;
}

void drawWidths(Dice& dice, Naxel::ChipHwCapability& capability, bool roomy) {
  auto const width = [&] { return static_cast<uint8_t>(roomy ? 16 : dice.between(1, 4)); };
  auto const widthOrNone = [&] { return dice.oneIn(2) ? width() : uint8_t{0}; };
  for (auto const& key : Naxel::PrefixXformKey::all()) capability.prefixXformWidthIs(key, width());
  for (auto type : Naxel::allRangeSetTypes()) capability.rangeXformWidthIs(type, widthOrNone());
  for (auto type : Naxel::allComboLabelSetTypes())
    capability.comboXformWidthIs(type, widthOrNone());
}

void drawAcls(Dice& dice, Naxel::AclConfigColl& acls) {
  Vocabulary words(dice);
  for (uint64_t i = 0, n = dice.between(1, 3); i < n; ++i) {
    std::string const name = "a" + std::to_string(i);
    auto const af = dice.oneIn(3) ? Lumox::ipv6() : Lumox::ipv4();
    acls.aclIs(name)->afIs(af);
    for (uint64_t r = 0, rules = dice.below(7); r < rules; ++r)
      addRules(acls, name + " " + std::to_string(dice.below(12)) + " r" + std::to_string(r) + " " +
                         words.filter(af));
  }
}

}  // namespace Test
