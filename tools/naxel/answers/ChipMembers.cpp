#include "answers/ChipMembers.h"

#include "input/Diagnostics.h"
#include "mox/Text.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace NaxelTool {

namespace {

constexpr uint64_t widestLabel = 16;
constexpr uint64_t noLimit = ~uint64_t{0};

template <class Key, class Get, class Set>
ChipMember widthMember(Key const& key, uint64_t least, Get get, Set set) {
  return {memberPath(key), least, widestLabel,
          [=](ChipSetup const& chip) { return uint64_t{((*chip.capability).*get)(key)}; },
          [=](ChipSetup& chip, uint64_t v) {
            ((*chip.capability).*set)(key, static_cast<uint32_t>(v));
          }};
}

std::vector<ChipMember> madeMembers() {
  using Naxel::ChipHwCapability;
  std::vector<ChipMember> out;
  out.reserve(1 + 4 + Naxel::rangeFieldCount + 3 + Naxel::pdTableCount);
  out.push_back(
      {"labelCode", 0, 1,
       [](ChipSetup const& chip) { return static_cast<uint64_t>(chip.labelCode); },
       [](ChipSetup& chip, uint64_t v) { chip.labelCode = static_cast<Acl::LabelCode>(v); }});
  using PrefixGet = uint8_t (ChipHwCapability::*)(Naxel::PrefixXformKey const&) const;
  using RangeGet = uint8_t (ChipHwCapability::*)(Naxel::RangeSetType) const;
  using ComboGet = uint8_t (ChipHwCapability::*)(Naxel::ComboLabelSetType) const;
  for (Naxel::PrefixXformKey const& key : Naxel::PrefixXformKey::all())
    out.push_back(widthMember(key, 1, static_cast<PrefixGet>(&ChipHwCapability::prefixXformWidth),
                              &ChipHwCapability::prefixXformWidthIs));
  for (Naxel::RangeSetType const type : Naxel::allRangeSetTypes())
    out.push_back(widthMember(type, 0, static_cast<RangeGet>(&ChipHwCapability::rangeXformWidth),
                              &ChipHwCapability::rangeXformWidthIs));
  for (Naxel::ComboLabelSetType const type : Naxel::allComboLabelSetTypes())
    out.push_back(widthMember(type, 0, static_cast<ComboGet>(&ChipHwCapability::comboXformWidth),
                              &ChipHwCapability::comboXformWidthIs));
  for (SoftChip::Table const t : Naxel::allPDTables())
    if (t != SoftChip::Table::tcpFlags)
      out.push_back({"softChip.capacity." + Mox::stringValue(t), 0, noLimit,
                     [t](ChipSetup const& chip) { return uint64_t{chip.softChip.capacity[t]}; },
                     [t](ChipSetup& chip, uint64_t v) { chip.softChip.capacity[t] = v; }});
  return out;
}

}  // namespace

std::string memberPath(Naxel::PrefixXformKey const& key) {
  return "prefixXformWidth." + prefixKeyName(key);
}
std::string memberPath(Naxel::RangeSetType type) {
  return "rangeXformWidth." + Naxel::stringValue(type);
}
std::string memberPath(Naxel::ComboLabelSetType type) {
  return "comboXformWidth." + Naxel::stringValue(type);
}

std::string ChipMember::text(uint64_t value) const {
  if (isLabelCode()) return Mox::stringValue(static_cast<Acl::LabelCode>(value));
  return value == noLimit ? "any" : std::to_string(value);
}

uint64_t ChipMember::valueFromText(std::string_view text) const {
  uint64_t value = 0;
  auto const [at, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  bool const isNumber = !text.empty() && error == std::errc() && at == text.data() + text.size();
  if (isLabelCode()) {
    if (auto const code = Mox::instanceFromText<Acl::LabelCode>(std::string(text)))
      return static_cast<uint64_t>(*code);
    throw std::invalid_argument("'" + printable(text) + "' is none of aligned|compact");
  }
  if (most == noLimit && text == "any") return noLimit;
  if (!isNumber || value < least || value > most)
    throw std::invalid_argument(
        "'" + printable(text) + "' is not a whole number from " + std::to_string(least) + " to " +
        (most == noLimit ? "2^64 - 1, or any" : std::to_string(most)) + ", as " + path + " wants");
  return value;
}

std::vector<ChipMember> const& chipMembers() {
  static std::vector<ChipMember> const all = madeMembers();
  return all;
}

ChipMember const* chipMember(std::string_view path) {
  auto const at = std::ranges::find(chipMembers(), path, &ChipMember::path);
  return at == chipMembers().end() ? nullptr : &*at;
}

std::vector<ChipMember const*> chipMembersOf(std::string_view path) {
  std::vector<ChipMember const*> out;
  std::vector<std::string_view> names;
  for (ChipMember const& m : chipMembers()) {
    if (m.path == path || m.path.starts_with(std::string(path) + ".")) out.push_back(&m);
    names.push_back(m.path);
  }
  if (!path.empty() && !out.empty()) return out;
  std::string const hint = didYouMean(path, names);
  throw std::invalid_argument("a chip's description has no member '" + printable(path) +
                              "' that says how much room there is" +
                              (hint.empty() ? "" : "; " + hint));
}

}  // namespace NaxelTool
