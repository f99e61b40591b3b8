/// Whole configurations: widths, ACLs and rules of a small vocabulary. One kick; after a success every
/// packet must get the verdict of the rules.

#include "Check.h"
#include "mox/Trace.h"
#include "support/Vocabulary.h"
#include "support/World.h"
#include "verify/Agreement.h"

using namespace Naxel;

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static bool const silent = (Mox::traceSinkIs({}), true);
  Fuzz::expect(silent, "");
  Test::ByteDice dice(data, size);
  Test::World world;
  bool const roomy = dice.oneIn(2);
  Test::drawWidths(dice, *world.capability, roomy);
  Test::drawAcls(dice, *world.acls);
  NaxelProgress const progress = world.kick();
  if (progress == NaxelProgress::naxelFinishedFail) {
    Fuzz::expect(!roomy, "a failure without need: " + world.failureText());
    Fuzz::expect(!world.failureText().empty(), "a failure without a reason");
    return 0;
  }
  Fuzz::expect(progress == NaxelProgress::naxelFinishedSuccess, "the kick did not end");
  std::string const difference = Verify::firstDifference(*world.acls, world.tables());
  if (!difference.empty()) Fuzz::fail(difference + "\n" + Test::dump(world.tables()));
  return 0;
}
