#include "naxel/agent/Metrics.h"

#include "naxel/agent/Pipeline.h"
#include "naxel/agent/StageTimes.h"
#include "naxel/control/NaxelRootSm.h"
#include "naxel/encoder/EncoderTypes.h"
#include "naxel/loader/NaxelLoaderTypes.h"
#include "naxel/loader/PDConfig.h"

namespace Naxel {

namespace {

std::vector<LabelUse> labelUse(NaxelRootSm const& root, ChipHwCapability const& widths) {
  std::vector<LabelUse> out;
  out.reserve(PrefixXformKey::all().size() + rangeFieldCount + allComboLabelSetTypes().size());
  auto const add = [&](std::string field, unsigned width, EncoderStatus const& encoder) {
    out.push_back(
        {std::move(field), width, encoder.plainToEncodedLabel().size(), encoder.labelCode()});
  };
  for (PrefixXformKey const& key : PrefixXformKey::all())
    add(Mox::stringValue(key.af()) + (key.src() ? "Src" : "Dst"), widths.prefixXformWidth(key),
        *root.prefixEncoderStatus(key));
  for (RangeSetType const type : allRangeSetTypes())
    add(stringValue(type), widths.rangeXformWidth(type), *root.rangeEncoderStatus(type));
  for (ComboLabelSetType const type : allComboLabelSetTypes())
    if (unsigned const width = widths.comboXformWidth(type))
      add(stringValue(type), width, *root.comboLabelEncoderStatus(type));
  return out;
}

}  // namespace

Metrics Pipeline::metrics() const {
  Metrics all;
  all.kicks = kicks_;
  all.kickSeconds = kickSeconds_;
  all.allKickSeconds = allKickSeconds_;
  for (PDTable const table : allPDTables())
    all.tableRows[static_cast<size_t>(table)] = tableEntries(output(), table);
  if (!root_) return all;  // while it is taken down
  all.stages = stageTimes_->stages();
  all.labels = labelUse(*root_, *output().hwCapability());
  all.changes = root_->loaderStatus()->rows();
  return all;
}

void Pipeline::stageWatcherIs(std::function<void(NaxelActiveStage)> f) {
  stageWatcher_ = std::move(f);
}

}  // namespace Naxel
