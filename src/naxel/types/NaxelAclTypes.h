#pragma once

/// Everything that describes the input of the pipeline: the ranges of the match fields, rule index
/// and action, the control enumerations, and the ACL configuration entities.

#include "naxel/types/AclConfig.h"
#include "naxel/types/Action.h"
#include "naxel/types/ControlEnums.h"
#include "naxel/types/Ranges.h"
