#include "naxel/testing/Vocabulary.h"

#include "naxel/testing/RuleText.h"
#include "verify/Random.h"

namespace Naxel::Testing {

Dice::Dice(uint64_t seed)
    : below_([random = Verify::Random(seed)](uint64_t n) mutable { return random.below(n); }) {}

Dice::Dice(std::span<uint8_t const> bytes)
    : below_([bytes](uint64_t n) mutable {
        if (n <= 1) return uint64_t{0};
        uint64_t x = 0;
        for (int i = 0; i < 2 && !bytes.empty(); ++i, bytes = bytes.subspan(1))
          x = x << 8 | bytes[0];
        return x % n;
      }) {}

std::string Vocabulary::prefix(Lumox::AddressFamily af) {
  bool const v4 = af == Lumox::ipv4();
  // Both families have their own bits in the same place, behind 10 and 20.
  uint64_t const one = uint64_t{32} << 48;
  auto const text = [&](uint64_t hi, uint64_t lo, uint64_t length) {
    auto const n = static_cast<uint8_t>(length);
    hi |= uint64_t{v4 ? 10u : 32u} << 56;
    return Mox::valueToStrep(v4 ? Lumox::IpGenPrefix::v4(static_cast<uint32_t>(hi >> 32), n)
                                : Lumox::IpGenPrefix::v6(hi, lo, n));
  };
  if (dice_.oneIn(20)) return v4 ? "0.0.0.0/0" : "::/0";
  if (dice_.oneIn(20)) return text(one, 0, v4 ? 32 : 128);
  if (dice_.oneIn(20)) {
    // The lowest bits, and those around the middle, where an IPv6 address goes from word to word.
    uint64_t const low = dice_.below(8);
    if (v4) return text(one | low << 32, 0, dice_.between(29, 32));
    return dice_.oneIn(2) ? text(one, low, dice_.between(125, 128))
                          : text(one | low, uint64_t{1} << 63, dice_.between(61, 66));
  }
  uint64_t const bits = dice_.below(8) << 53;
  uint64_t const length = dice_.between(8, 11);
  return text(bits | (dice_.oneIn(6) ? uint64_t{0x102} << 32 : 0), 0, length);
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
  for (char const* side : {"src ", "dst "})
    if (dice_.oneIn(2)) out += side + list(af) + " ";
  for (RangeField const& field : rangeFields) {
    bool const port = field.type <= RangeSetType::dstPort;
    if (!dice_.oneIn(port ? 2 : 8)) continue;
    bool const tcp = field.type == RangeSetType::proto && dice_.oneIn(2);
    out += std::string(field.name) + " " + (tcp ? "6" : ranges(field.bound())) + " ";
  }
  if (dice_.oneIn(8)) out += "init ";
  if (dice_.oneIn(8)) out += "est ";
  if (dice_.oneIn(3)) out += "drop ";
  return out;
}

void drawWidths(Dice& dice, ChipHwCapability& capability, bool roomy, uint64_t room) {
  uint64_t const least = roomy ? room : 1;
  auto const width = [&] { return static_cast<uint32_t>(dice.between(least, roomy ? 16 : 4)); };
  for (auto const& key : PrefixXformKey::all()) capability.prefixXformWidthIs(key, width());
  for (auto type : allRangeSetTypes())
    capability.rangeXformWidthIs(type, dice.oneIn(2) ? width() : 0);
  for (auto type : allComboLabelSetTypes())
    capability.comboXformWidthIs(type, dice.oneIn(2) ? width() : 0);
}

void drawAcls(Dice& dice, AclConfigColl& acls) {
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

}  // namespace Naxel::Testing
