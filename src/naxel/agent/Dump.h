#pragma once

/// All entities of a pipeline as facts: those that the agent writes, those of the stages in their order, and those
/// that pass between library and driver.

#include "mox/Facts.h"

namespace Naxel {

class NaxelRootSm;
struct ChipEntities;

/// The heads name the accessors of the pipeline ("acls", "output"), or stage, key and entity ("rangeEncoder dstPort:
/// status"). Without a root there are no stages.
void writeFacts(Mox::FactWriter& out, ChipEntities const& entities, NaxelRootSm const* root);

}  // namespace Naxel
