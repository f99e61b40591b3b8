#pragma once

/// Captures, pcap and pcapng, by libpcap.

#include "packets/PacketReading.h"

#include <string_view>

namespace NaxelTool {

/// Whether a file begins as captures do.
bool isCapture(std::string_view content);

/// Frames are numbered from 1. Reports as an error what makes the file unreadable as a capture, at the frame
/// where that shows, and a link layer other than those of packets/Frame.h. Leaves out a last frame that the
/// end of the file cuts off.
void readCapture(PacketReading& reading);

}  // namespace NaxelTool
