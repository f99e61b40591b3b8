/// Captures, and single frames of every link layer.

#include "Packets.h"
#include "packets/Capture.h"
#include "packets/Frame.h"

#include <vector>

using namespace NaxelTool;

namespace {

/// A copy of its own, so that a sanitizer sees what reads beyond it.
DecodedFrame decodeCopy(LinkLayer link, std::vector<uint8_t> const& bytes, size_t size) {
  std::vector<uint8_t> const copy(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
  return decodeFrame(link, copy);
}

/// More of a frame changes nothing of a packet that is known, and less either gives the same packet or none.
void checkFrame(LinkLayer link, std::vector<uint8_t> bytes) {
  size_t const size = bytes.size();
  DecodedFrame const whole = decodeCopy(link, bytes, size);
  bool const isPacket = whole.outcome == FrameOutcome::packet;
  Fuzz::expect(isPacket == reasonText(whole).empty(), "no reason for a frame that is left out");
  if (isPacket) Fuzz::checkPacket(whole.packet);
  for (size_t const shorter : {size / 2, size - size / 8, size ? size - 1 : 0}) {
    DecodedFrame const part = decodeCopy(link, bytes, shorter);
    Fuzz::expect(part.outcome == whole.outcome || part.outcome == FrameOutcome::cutShort,
                 "part of a frame is something else");
    if (part.outcome == FrameOutcome::packet)
      Fuzz::expectSame(Verify::text(part.packet), Verify::text(whole.packet), "part of a frame");
  }
  if (whole.outcome == FrameOutcome::cutShort) return;
  bytes.insert(bytes.end(), 70, 0xff);
  DecodedFrame const padded = decodeCopy(link, bytes, bytes.size());
  Fuzz::expect(padded.outcome == whole.outcome, "padding changes what a frame is");
  if (isPacket)
    Fuzz::expectSame(Verify::text(padded.packet), Verify::text(whole.packet), "a padded frame");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string const content(data, data + size);
  Fuzz::expect(Fuzz::readPackets(readCapture, content).errors <= 1, "more than one error");
  for (LinkLayer const link : {LinkLayer::ethernet, LinkLayer::rawIp, LinkLayer::rawIp4,
                               LinkLayer::rawIp6, LinkLayer::hostFamily, LinkLayer::familyNumber,
                               LinkLayer::linuxCooked, LinkLayer::linuxCooked2})
    checkFrame(link, {data, data + size});
  return 0;
}
