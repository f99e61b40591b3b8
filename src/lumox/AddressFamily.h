#pragma once

/// The two internet protocol families.

#include "mox/Enum.h"

#include <array>
#include <cstdint>
#include <ostream>

namespace Lumox {

enum class AddressFamily : uint8_t { ipv4, ipv6 };

constexpr AddressFamily ipv4() { return AddressFamily::ipv4; }
constexpr AddressFamily ipv6() { return AddressFamily::ipv6; }

}  // namespace Lumox

template <>
struct Mox::EnumNames<Lumox::AddressFamily> {
  static constexpr std::array<std::string_view, 2> value = {"ipv4", "ipv6"};
};

namespace Lumox {
inline std::ostream& operator<<(std::ostream& out, AddressFamily af) {
  return out << Mox::stringValue(af);
}
}  // namespace Lumox
