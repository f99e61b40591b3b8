/// Sequences of events: the choices that a seed makes in the simulator come from the input instead.
/// The script that comes out must show no difference.

#include "Check.h"
#include "support/Simulator.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  Test::Dice dice(std::span(data, size));
  // An event takes some ten bytes; what comes behind the last one chosen would be all alike.
  Test::Script const script = Test::randomScript(dice, std::min<size_t>(size / 10, 25));
  std::string const differences = Test::runScript(script).differences;
  Fuzz::expect(differences.empty(), differences + "after\n" + Test::textOf(script));
  return 0;
}
