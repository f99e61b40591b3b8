#include "mox/KeyedHash.h"

#include "mox/Assert.h"
#include "mox/Hash.h"

#include <atomic>
#include <chrono>
#include <optional>
#include <random>

namespace Mox {

namespace {

HashSecret drawn() noexcept {
  try {
    std::random_device source;
    auto const word = [&] { return uint64_t{source()} << 32 | source(); };
    uint64_t const k0 = word();
    return {k0, word()};
  } catch (...) {
    // Without such a source: the time, and where the system has put stack and code.
    auto const time =
        static_cast<uint64_t>(std::chrono::high_resolution_clock::now().time_since_epoch().count());
    uint64_t const stack = reinterpret_cast<uintptr_t>(&time);
    uint64_t const code = reinterpret_cast<uintptr_t>(&drawnHashSecret);
    return {mix64(time ^ mix64(stack)), mix64(time ^ mix64(code + 1))};
  }
}

std::atomic<bool> used{false};
std::optional<HashSecret>& fixed() noexcept {
  static std::optional<HashSecret> secret;
  return secret;
}

}  // namespace

HashSecret const& drawnHashSecret() noexcept {
  static HashSecret const secret = [] {
    // Before the secret is drawn: from here on a fixed one would come too late.
    used = true;
    return fixed() ? *fixed() : drawn();
  }();
  return secret;
}

void hashSecretIs(HashSecret const& secret) noexcept {
  MOX_ASSERT(!used && "the secret of the hash tables is in use");
  fixed() = secret;
}

}  // namespace Mox
