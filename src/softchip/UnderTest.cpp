#include "softchip/UnderTest.h"

#include <stdexcept>

namespace SoftChip {

using Naxel::Testing::Met;

void UnderTest::start(Mox::Ptr<Naxel::PDConfig> config, Mox::Ptr<Naxel::PDStatus> status,
                      Mox::Ptr<Obel::TimerWheel> wheel) {
  chip_ = std::make_unique<Chip>(std::move(config), std::move(status), std::move(wheel), options_);
}

Met UnderTest::lookup(Naxel::PDAclKey const& acl, Packet const& packet) {
  Verdict const verdict = chip_->lookup(acl, packet);
  switch (verdict.kind) {
    case Verdict::Kind::rule: return {Met::Kind::rule, verdict.rule, verdict.action};
    case Verdict::Kind::policy:
      return {verdict.policy == Naxel::GlobalAclControl::denyAll ? Met::Kind::denyAll
                                                                 : Met::Kind::permitAll};
    case Verdict::Kind::none:
    case Verdict::Kind::disturbed: break;  // nothing is there that would match
  }
  return {Met::Kind::noRule};
}

bool UnderTest::roomIs(size_t entries) {
  options_.capacity[Table::aclEntries] = entries;
  chip_->options().capacity[Table::aclEntries] = entries;
  return true;
}

Options optionsNamed(std::string const& name) {
  Options out;
  if (name == "hitful") {
    out.forceHitful = true;
    out.order = AnswerOrder::prefixTablesLast;
    out.missYields = MissYields::highest;
  } else if (name == "small") {
    out.capacity = PerTable<size_t>(40);
    out.answerAfterTicks = 1;
    out.confirmPolicyAfterTicks = 2;
    out.tcpFlags = TcpFlagsAnswer::never;
  } else if (name == "slow") {
    out.answerAfterTicks = 3;
    out.confirmPolicyAfterTicks = 4;
    out.pace = Pace::oneByOne;
    out.order = AnswerOrder::reversed;
    out.staleAnswers = out.finishesSuperseded = true;
    out.tcpFlags = TcpFlagsAnswer::last;
  } else if (name == "closed") {
    out.bootPolicy = Naxel::GlobalAclControl::denyAll;
    out.answerAfterTicks = 1;
  } else if (name != "roomy") {
    throw std::invalid_argument("no such chip: " + name + " (roomy, hitful, small, slow, closed)");
  }
  return out;
}

}  // namespace SoftChip
