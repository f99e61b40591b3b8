#include "support/Fresh.h"

namespace Test {

using namespace Naxel;

std::string freshTables(World const& world) {
  World fresh;
  copyAcls(*world.acls, *fresh.acls);
  fresh.capability->valuesIs(*world.capability);
  fresh.params->labelCodeIs(world.params->labelCode());
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
