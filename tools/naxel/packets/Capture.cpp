#include "packets/Capture.h"

#include "packets/Frame.h"

#include <array>
#include <cstdio>
#include <memory>

#include <pcap/pcap.h>

namespace NaxelTool {

namespace {

std::optional<LinkLayer> linkLayerOf(int dlt) {
  switch (dlt) {
    case DLT_EN10MB: return LinkLayer::ethernet;
    case DLT_RAW: return LinkLayer::rawIp;
    case DLT_IPV4: return LinkLayer::rawIp4;
    case DLT_IPV6: return LinkLayer::rawIp6;
    case DLT_NULL: return LinkLayer::hostFamily;
    case DLT_LOOP: return LinkLayer::familyNumber;
    case DLT_LINUX_SLL: return LinkLayer::linuxCooked;
    case DLT_LINUX_SLL2: return LinkLayer::linuxCooked2;
    default: return std::nullopt;
  }
}

std::string linkLayerText(int dlt) {
  char const* const name = pcap_datalink_val_to_name(dlt);
  return name ? name : std::to_string(dlt);
}

void captureError(PacketReading& reading, size_t frame, std::string const& text) {
  reading.error({}, "capture", frame ? "frame " + std::to_string(frame) + ": " + text : text);
}

}  // namespace

bool isCapture(std::string_view content) {
  // In either byte order: times in microseconds, in nanoseconds, with more in the headers of records; pcapng.
  static constexpr std::array<std::string_view, 7> starts = {
      "\xa1\xb2\xc3\xd4", "\xd4\xc3\xb2\xa1", "\xa1\xb2\x3c\x4d", "\x4d\x3c\xb2\xa1",
      "\xa1\xb2\xcd\x34", "\x34\xcd\xb2\xa1", "\x0a\x0d\x0d\x0a"};
  for (std::string_view const start : starts)
    if (content.starts_with(start)) return true;
  return false;
}

void readCapture(PacketReading& reading) {
  std::string const& content = reading.content();
  if (content.empty()) return captureError(reading, 0, "the file is empty");
  // A file that is only read is never written through this pointer.
  FILE* const file = fmemopen(const_cast<char*>(content.data()), content.size(), "rb");
  if (!file) throw std::bad_alloc();
  std::array<char, PCAP_ERRBUF_SIZE> why{};
  std::unique_ptr<pcap_t, void (*)(pcap_t*)> const capture(pcap_fopen_offline(file, why.data()),
                                                           pcap_close);
  if (!capture) {
    std::fclose(file);
    return captureError(reading, 0, why.data());
  }
  int const dlt = pcap_datalink(capture.get());
  auto const link = linkLayerOf(dlt);
  if (!link)
    return captureError(reading, 0,
                        "frames of link layer " + linkLayerText(dlt) +
                            " are not read; those of Ethernet, raw IP, loopback and Linux cooked "
                            "captures are");
  size_t frame = 1;
  for (;; ++frame) {
    pcap_pkthdr* header = nullptr;
    u_char const* bytes = nullptr;
    int const got = pcap_next_ex(capture.get(), &header, &bytes);
    if (got == PCAP_ERROR_BREAK) return;
    // Whoever ends a capture by force leaves the last frame unfinished.
    if (got != 1 && std::feof(pcap_file(capture.get())))
      return reading.leaveOut(frame, "cut off by the end of the file");
    if (got != 1) return captureError(reading, frame, pcap_geterr(capture.get()));
    DecodedFrame const decoded = decodeFrame(*link, {bytes, header->caplen});
    if (decoded.outcome == FrameOutcome::packet)
      reading.take({decoded.packet, {}, {}, frame});
    else
      reading.leaveOut(frame, reasonText(decoded));
  }
}

}  // namespace NaxelTool
