#pragma once

/// All that a driver needs: the output, the handshake, the base of drivers, and what differs between two
/// outputs; clocks and timers for what takes its time, and traces.

#include "naxel/driver/Driver.h"
#include "naxel/driver/TableDiff.h"
#include "naxel/types/NaxelTrace.h"
#include "obel/TimerWheel.h"
