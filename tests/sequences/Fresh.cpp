#include "sequences/Fresh.h"

namespace Test {

using namespace Naxel;

namespace {

Mox::Ptr<IpPrefixList> copied(Mox::Ptr<IpPrefixList> const& list) {
  if (!list) return nullptr;
  auto const copy = Mox::makePtr<IpPrefixList>();
  for (auto const& p : list->addr()) copy->addrIs(p);
  for (auto const& p : list->exceptAddr()) copy->exceptAddrIs(p);
  return copy;
}

void copyFilter(RuleFilter const& from, RuleFilter& to) {
  to.sourceIs(copied(from.source()));
  to.destinationIs(copied(from.destination()));
  for (auto const& r : from.sportRange()) to.sportRangeIs(r);
  for (auto const& r : from.dportRange()) to.dportRangeIs(r);
  for (auto const& r : from.icmpType()) to.icmpTypeIs(r);
  for (auto const& r : from.proto()) to.protoIs(r);
  for (auto const& r : from.length()) to.lengthIs(r);
  for (auto const& r : from.fragment()) to.fragmentIs(r);
  for (auto const& r : from.dscp()) to.dscpIs(r);
  to.matchTcpInitIs(from.matchTcpInit());
  to.matchTcpEstablishedIs(from.matchTcpEstablished());
}

void copyConfig(World const& from, World& to) {
  for (auto const& [name, acl] : from.acls->acl()) {
    auto const copy = to.acls->aclIs(name);
    if (acl->af()) copy->afIs(*acl->af());
    for (auto const& [ruleName, rule] : acl->ruleByName()) {
      auto const r = copy->ruleByNameIs(ruleName);
      r->actionIs(rule->action());
      if (rule->ruleFilter()) copyFilter(*rule->ruleFilter(), *r->ruleFilterIs());
    }
    for (auto const& [index, rule] : acl->ruleById())
      copy->ruleByIdIs(index, copy->ruleByName(rule->name()));
  }
  for (auto const& [key, w] : from.capability->prefixXformWidth())
    to.capability->prefixXformWidthIs(key, w);
  for (auto const& [type, w] : from.capability->rangeXformWidth())
    to.capability->rangeXformWidthIs(type, w);
  for (auto const& [type, w] : from.capability->comboXformWidth())
    to.capability->comboXformWidthIs(type, w);
}

}  // namespace

std::string full(PDData const& data) {
  std::string out = dump(data);
  for (auto const& [key, acl] : data.pdAclColl()->pdAcl())
    for (auto const& [index, rule] : acl->rule())
      out += key.aclName() + " " + valueToStrep(index) + " " + valueToStrep(rule->action()) + "\n";
  return out;
}

std::string freshTables(World const& world) {
  World fresh;
  copyConfig(world, fresh);
  if (fresh.kick() != NaxelProgress::naxelFinishedSuccess) return {};
  return full(fresh.tables());
}

void kickOk(World& world) {
  ASSERT_EQ(world.kick(), NaxelProgress::naxelFinishedSuccess) << world.failureText();
  EXPECT_EQ(full(world.tables()), freshTables(world));
  EXPECT_EQ(world.failureText(), "");
  EXPECT_EQ(world.rootStatus->kickMessage(), "");
}

void kickFails(World& world, NaxelActiveStage stage, std::string const& text) {
  auto const before = world.pdConfig->currPDData();
  auto const requests = world.driver.log.size();
  ASSERT_EQ(world.kick(), NaxelProgress::naxelFinishedFail);
  EXPECT_EQ(world.root->stageControllerStatus()->lastFailedStage(), stage);
  EXPECT_NE(world.failureText(), "");
  EXPECT_NE(world.failureText().find(text), std::string::npos) << world.failureText();
  EXPECT_EQ(world.pdConfig->currPDData(), before);
  EXPECT_EQ(world.driver.log.size(), requests);
}

void setWidths(World& world, Chip chip, uint8_t width) {
  world.capability->rangeXformWidthDelAll();
  world.capability->comboXformWidthDelAll();
  if (chip == Chip::raw) return;
  for (RangeSetType type : allRangeSetTypes()) world.capability->rangeXformWidthIs(type, width);
  if (chip == Chip::labels) return;
  for (ComboLabelSetType type : allComboLabelSetTypes())
    world.capability->comboXformWidthIs(type, width);
}

}  // namespace Test
