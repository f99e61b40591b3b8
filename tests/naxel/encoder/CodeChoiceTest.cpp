/// Which encoders of a pipeline publish which code: the compact one, unless all rules together take fewer entries
/// by the other.

#include "naxel/encoder/NaxelLabelEncoderSm.h"
#include "support/Fresh.h"
#include "support/LabelSets.h"
#include "support/Thinning.h"
#include "support/TraceLog.h"
#include "support/Vocabulary.h"
#include "verify/Agreement.h"

#include <map>

namespace Test {
namespace {

using namespace Naxel;
using Acl::LabelCode;

/// Calls `f` for every encoder of labels with its status, the lists that it reads and its width.
void forEachEncoder(World const& w, auto f) {
  NaxelRootSm const& root = *w.root;
  ChipHwCapability const& widths = *w.capability;
  auto const call = [&f](auto const& sm, EncoderStatus const& status, XformStatus const& xform,
                         uint32_t width) {
    if (width) f(*sm, status, *xform.plainLabelListMap(), width);
  };
  for (auto const& key : PrefixXformKey::all())
    call(root.prefixEncoderSm(key), *root.prefixEncoderStatus(key), *root.prefixXformStatus(key),
         widths.prefixXformWidth(key));
  for (RangeSetType type : allRangeSetTypes())
    call(root.rangeEncoderSm(type), *root.rangeEncoderStatus(type), *root.rangeSplitStatus(type),
         widths.rangeXformWidth(type));
  for (ComboLabelSetType type : allComboLabelSetTypes())
    call(root.comboLabelEncoderSm(type), *root.comboLabelEncoderStatus(type),
         *root.comboLabelSplitStatus(type), widths.comboXformWidth(type));
}

/// What is wrong with the codes of all encoders that have labels.
std::string codeFaults(World const& w) {
  std::string out;
  forEachEncoder(w, [&out](LabelEncoderSm const& sm, auto& status, auto& lists, uint32_t width) {
    std::string const fault = codeFault(status, lists, width);
    if (!fault.empty()) out += sm.traceKey() + fault + "\n";
  });
  return out;
}

/// How many of the encoders that have both codes publish which.
std::map<LabelCode, size_t> chosenCodes(World const& w) {
  std::map<LabelCode, size_t> out;
  forEachEncoder(w, [&out](LabelEncoderSm const& sm, auto& status, auto&, uint32_t) {
    if (sm.hasBothCodes()) ++out[status.labelCode()];
  });
  return out;
}

size_t entriesOf(World const& w) { return w.tables().pdAclColl()->numFilters(); }

TEST(CodeChoice, NeverTakesMoreEntriesThanTheAlignedCode) {
  TraceLog const quiet;
  std::map<LabelCode, size_t> chosen;
  for (uint64_t seed = 0; seed < 600; seed += thinning()) {
    SCOPED_TRACE(seed);
    SeededDice dice(seed);
    World w, aligned;
    drawWidths(dice, *w.capability, false);
    aligned.capability->valuesIs(*w.capability);
    aligned.acls = w.acls;
    aligned.buildRoot();
    w.params->labelCodeIs(LabelCode::compact);
    for (int edit = 0; edit < 3; ++edit) {
      drawAcls(dice, *w.acls);
      bool const fits = aligned.kick() == NaxelProgress::naxelFinishedSuccess;
      ASSERT_EQ(w.kick() == NaxelProgress::naxelFinishedSuccess, fits);
      if (!fits) continue;
      for (auto const& [code, encoders] : chosenCodes(w)) chosen[code] += encoders;
      ASSERT_LE(entriesOf(w), entriesOf(aligned));
      ASSERT_EQ(codeFaults(w) + codeFaults(aligned), "");
      ASSERT_EQ(full(w.tables()), freshTables(w));
      ASSERT_EQ(Verify::sampledDifference(*w.acls, w.tables(), seed, 50), "");
    }
    // Asked for from now on, a code is what a pipeline gets that never had another.
    w.params->labelCodeIs(LabelCode::aligned);
    if (w.kick() != NaxelProgress::naxelFinishedSuccess) continue;
    ASSERT_EQ(full(w.tables()), full(aligned.tables()));
    ASSERT_TRUE(chosenCodes(w).empty());
  }
  if (thinning() > 1) return;
  EXPECT_GE(chosen[LabelCode::aligned], 1u);
  EXPECT_GE(chosen[LabelCode::compact], 50u);
}

TEST(CodeChoice, IsAlignedWhereThatIsLessAndCombinationsFollow) {
  World w(
      "a 1 p sport 1-2 dport 1\n"
      "a 2 q sport 4-8\n"
      "a 3 r sport 5-7,1\n"
      "a 4 s sport 2-6\n");
  w.params->labelCodeIs(LabelCode::compact);
  for (RangeSetType type : {RangeSetType::srcPort, RangeSetType::dstPort})
    w.capability->rangeXformWidthIs(type, 3);
  w.capability->comboXformWidthIs(ComboLabelSetType::srcDstL4Port, 4);
  kickOk(w);
  EXPECT_EQ(Verify::firstDifference(*w.acls, w.tables()), "");
  auto const sourcePorts = w.root->rangeEncoderStatus(RangeSetType::srcPort);
  EXPECT_EQ(sourcePorts->labelCode(), LabelCode::aligned);
  std::string const before = full(w.tables());
  w.rules("a 4 s sport 2-3\n");
  kickOk(w);
  EXPECT_EQ(Verify::firstDifference(*w.acls, w.tables()), "");
  EXPECT_EQ(sourcePorts->labelCode(), LabelCode::compact);
  w.rules("a 4 s sport 2-6\n");
  kickOk(w);
  EXPECT_EQ(sourcePorts->labelCode(), LabelCode::aligned);
  EXPECT_EQ(full(w.tables()), before);
}

}  // namespace
}  // namespace Test
