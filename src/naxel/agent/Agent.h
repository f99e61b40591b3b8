#pragma once

/// All that an agent needs: rules and widths, kicks, clocks, timers and traces. A driver's side stands in
/// naxel/driver/Drivers.h.

#include "mox/Activity.h"
#include "naxel/agent/Pipeline.h"
#include "naxel/types/NaxelTrace.h"
#include "obel/TimerWheel.h"
