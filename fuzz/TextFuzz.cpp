/// The text forms of all value types, and the address texts of the tool. A text that reads must print
/// and read again as the equal value; where a value has only one form, the text itself must come back.

#include "Check.h"
#include "input/RuleSet.h"
#include "lumox/Ip6Addr.h"
#include "naxel/expander/RuleExpanderTypes.h"
#include "naxel/genset/NaxelAggregatorTypes.h"
#include "naxel/loader/NaxelLoaderTypes.h"
#include "naxel/types/ControlEnums.h"
#include "packets/PacketText.h"
#include "softchip/Table.h"
#include "verify/MatchKey.h"

#include <optional>
#include <stdexcept>
#include <string_view>

using namespace Naxel;

namespace {

template <class T, class... U>
constexpr bool isOneOf = (std::is_same_v<T, U> || ...);

template <class T>
std::optional<T> read(std::string_view text) {
  T out{};
  try {
    Mox::sequenceToValue(text.data(), text.data() + text.size(), out);
    return out;
  } catch (Mox::ParseError const&) {
  } catch (Mox::RangeError const&) {
  }
  Fuzz::expectSame(Mox::valueToStrep(out), Mox::valueToStrep(T{}), "a value that was not read");
  return std::nullopt;
}

template <class T>
void check(std::string const& text) {
  std::optional<T> const value = read<T>(text);
  if (!value) return;
  std::string const printed = Mox::valueToStrep(*value);
  // Numbers with a fraction and IPv6 addresses have several spellings.
  if (!isOneOf<T, double, ResourceConfig, ResourceStatus, Lumox::Ip6Addr, PDPrefixXformEntry> &&
      (!isOneOf<T, Lumox::IpGenPrefix> || text.find(':') == text.npos))
    Fuzz::expectSame(text, printed, "a text with one spelling");
  std::optional<T> const again = read<T>(printed);
  Fuzz::expect(again.has_value(), "what was printed does not read: " + printed);
  Fuzz::expect(*again == *value, "what was printed reads as another value: " + printed);
  Fuzz::expectSame(printed, Mox::valueToStrep(*again), "a value that was printed");
  if constexpr (requires { value->hash64(); })
    Fuzz::expect(again->hash64() == value->hash64(), "equal values, different hashes: " + printed);
  if constexpr (Mox::NamedEnum<T>)
    Fuzz::expect(Mox::instanceFromText<T>(text) == value, "another name: " + printed);
}

template <class... T>
void checkAll(std::string const& text) {
  (check<T>(text), ...);
}

/// What the tool's own readers make of a text; they throw one type only.
template <class F>
auto taken(F read, std::string const& text) -> std::optional<decltype(read(text))> {
  try {
    return read(text);
  } catch (std::invalid_argument const&) {
    return std::nullopt;
  }
}

void checkAddresses(std::string const& text) {
  if (auto const prefix = taken(NaxelTool::prefixFromText, text))
    Fuzz::expect(prefix == read<Lumox::IpGenPrefix>(text), "another prefix: " + text);
  // An address is a prefix without a length.
  auto const address = taken(NaxelTool::addressFromText, text);
  if (!address) return;
  auto const host =
      read<Lumox::IpGenPrefix>(text + (address->first == Lumox::ipv4() ? "/32" : "/128"));
  Fuzz::expect(host && host->hi() == address->second.hi && host->lo() == address->second.lo,
               "another address: " + text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string const text(data, data + size);
  checkAll<uint8_t, uint16_t, uint32_t, uint64_t, bool, double, std::string>(text);
  checkAll<Lumox::AddressFamily, Lumox::Ip6Addr, Lumox::IpGenPrefix, Lumox::DscpValue,
           Obel::ChipId>(text);
  checkAll<NaxelKickRequest, NaxelProgress, StageStatusType, NaxelActiveStage, NaxelActionType,
           RangeSetType, ComboLabelSetType, TcamFieldType, LoaderSmState, RequestState,
           ResponseState, GlobalAclControl, Verify::Field, SoftChip::Table>(text);
  checkAll<Range, L4PortRange, IcmpTypeRange, ProtoRange, LengthRange, FragmentRange, DscpRange>(
      text);
  checkAll<AceIndex, NaxelTrafficClass, NaxelActionValue, Constants>(text);
  checkAll<GenSetKey, PlainLabel, PrefixXformKey, GenSetKeyPair, RangeSetElem, GenCombo,
           AggregatorWorkingSet>(text);
  checkAll<EncodedLabel, LabelMask, EncodedLabelWithMask, EncodedLabelRange, EncodedComboLabel,
           TcamFieldData>(text);
  checkAll<ResourceConfig, ResourceStatus, PDPrefixXformEntry, PDRangeXformEntry, PDComboEntry,
           PDAclKey, PDAclFilter, FailureData>(text);
  checkAddresses(text);
  return 0;
}
