/// Lines of packets, in words and as traces: each is taken or reported.

#include "Packets.h"
#include "packets/PacketFiles.h"
#include "packets/PacketText.h"
#include "packets/PacketTrace.h"

#include <sstream>

using namespace NaxelTool;

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string const text(data, data + size);
  size_t lines = 0;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    size_t const first = line.find_first_not_of(" \t\r\v\f");
    lines += first != std::string::npos && line[first] != '#';
  }
  for (auto const read : {readPacketText, readPacketTrace}) {
    Fuzz::PacketsRead const found = Fuzz::readPackets(read, text);
    Fuzz::expect(found.taken + found.errors == lines && !found.leftOut,
                 "lines are lost: " + std::to_string(lines));
  }
  for (PacketFormatInfo const& format : packetFormats())
    if (format.looksLike(text)) return 0;
  Fuzz::expect(false, "no format takes the file");
  return 0;
}
