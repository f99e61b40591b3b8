#include "support/Verbs.h"

#include "naxel/types/NaxelTrace.h"
#include "support/AllocationFaults.h"
#include "support/Simulator.h"

namespace Test {

using namespace Naxel;

namespace {

/// A table that is not answered for in turn is not refused either.
void settleRefusal(SoftChip::Options& o) {
  if (o.refuseTable == PDTable::tcpFlags && o.tcpFlags != SoftChip::TcpFlagsAnswer::inTurn)
    o.refuseAcquires = 0;
}

template <auto option>
void optionIs(Event& e) {
  auto& to = e.chip.driver().options().*option;
  to = static_cast<std::remove_reference_t<decltype(to)>>(e.number());
  settleRefusal(e.chip.driver().options());
}

using O = SoftChip::Options;

constexpr Verb verbs[] = {
    {"edit", 4, "undo 0..1", [](Event& e) { e.chip.undo(e.number()); }},

    {"", 0, "kick",
     [](Event& e) {
       e.chip.request(NaxelKickRequest::naxelStart);
       e.simulator.settle();
     }},
    {"", 0, "request", [](Event& e) { e.chip.request(NaxelKickRequest::naxelStart); }},
    {"", 0, "cancel", [](Event& e) { e.chip.request(NaxelKickRequest::naxelCancel); }},
    {"", 0, "cancel-at <stage>",
     [](Event& e) {
       auto const stage = e.named<NaxelActiveStage>();
       e.chip.request(NaxelKickRequest::naxelStart);
       while (e.chip.activeStage() != stage && e.simulator.step()) {
       }
       e.chip.request(NaxelKickRequest::naxelCancel);
     }},
    {"", 0, "rekick-at <progress>", [](Event& e) { e.chip.rekickAt(e.word()); }},
    {"", 0, "down-at <moment>", [](Event& e) { e.chip.downAt(e.word()); }},
    {"", 0, "down", [](Event& e) { e.chip.rootDown(); }},
    {"", 0, "up",
     [](Event& e) {
       if (!e.chip.isUp()) e.chip.rootUp(false);
     }},
    {"", 0, "up-fresh", [](Event& e) { e.chip.rootUp(true); }},
    {"", 0, "restart kept|lost",  // and perhaps a policy
     [](Event& e) {
       bool const kept = e.number() == 0;
       std::string policy;
       e.in >> policy;
       e.chip.driverRestart(kept, Mox::instanceFromText<GlobalAclControl>(policy));
     }},
    {"", 0, "replace capability|status",
     [](Event& e) { e.number() ? e.chip.pdStatusReplace() : e.chip.capabilityReplace(); }},
    {"driver", 2, "permit off|on",
     [](Event& e) { e.chip.params().permitDuringUpdateIs(e.number()); }},

    {"driver", 1, "driver delay 0..3", optionIs<&O::answerAfterTicks>},
    {"driver", 1, "driver policy-delay 0..2|0..2|0..29", optionIs<&O::confirmPolicyAfterTicks>},
    {"driver", 1, "driver pace together|one-by-one", optionIs<&O::pace>},
    {"driver", 1, "driver order standard|reversed|prefixes-last", optionIs<&O::order>},
    {"driver", 1, "driver tcp-flags in-turn|last|never", optionIs<&O::tcpFlags>},
    {"driver", 1, "driver stale off|on", optionIs<&O::staleAnswers>},
    {"driver", 2, "driver hitful off|on", optionIs<&O::forceHitful>},
    {"driver", 1, "driver miss nothing|highest", optionIs<&O::missYields>},
    {"driver", 1, "driver superseded dropped|finished", optionIs<&O::finishesSuperseded>},
    {"driver", 1, "driver refuse <table>",
     [](Event& e) {
       e.chip.driver().options().refuseTable = e.named<PDTable>();
       e.chip.driver().options().refuseAcquires = 1;
       settleRefusal(e.chip.driver().options());
     }},
    {"driver", 1, "driver capacity <table> 0..39|1000000|1000000",
     [](Event& e) {
       auto const table = e.named<PDTable>();
       e.chip.driver().options().capacity[table] = e.number();
     }},

    {"event", 1, "pass 0..29",
     [](Event& e) {
       for (unsigned i = e.number(); i > 0; --i) e.simulator.step();
     },
     true},
    {"upheaval", 15, "run", [](Event& e) { e.simulator.settle(); }, true},
    {"", 0, "clock -600|1", [](Event& e) { e.simulator.clock().nowInc(std::stod(e.word())); },
     true},
    {"fault", 3, "throwing off|on", [](Event& e) { e.simulator.throwingIs(e.number()); }, true},
    {"", 0, "trace 9", [](Event& e) { naxelTrace().levelIs(std::stoi(e.word())); }, true},
    {"fault", 3, "alloc 1..1200|1..1200|1..30",
     [](Event& e) { AllocationFaults::failAt(e.number()); }, true},
};

}  // namespace

std::span<Verb const> allVerbs() { return verbs; }

}  // namespace Test
