#include "packets/PacketFiles.h"

#include "input/InputFile.h"
#include "packets/Capture.h"
#include "packets/PacketText.h"
#include "packets/PacketTrace.h"

#include <algorithm>

namespace NaxelTool {

namespace {

/// The first word that is not in a comment is a number: a line of text begins with a name.
bool isTrace(std::string_view content) {
  for (;;) {
    size_t const first = content.find_first_not_of(" \t\r\n\v\f");
    if (first == std::string_view::npos) return false;
    content.remove_prefix(first);
    if (content[0] != '#') break;
    content.remove_prefix(std::min(content.find('\n'), content.size()));
  }
  std::string_view const word = content.substr(0, content.find_first_of(" \t\r\n\v\f"));
  return word.find_first_not_of("0123456789") == std::string_view::npos;
}

bool isAnything(std::string_view) { return true; }

PacketFormatInfo const& formatFor(std::string_view content, PacketFormat wanted) {
  auto const& all = packetFormats();
  return *std::find_if(all.begin(), all.end(), [&](PacketFormatInfo const& f) {
    return wanted == PacketFormat::automatic ? f.looksLike(content) : f.format == wanted;
  });
}

}  // namespace

std::vector<PacketFormatInfo> const& packetFormats() {
  static std::vector<PacketFormatInfo> const all = {
      {PacketFormat::capture, "pcap", "captures, pcap and pcapng", isCapture, readCapture},
      {PacketFormat::trace, "trace", "traces of ClassBench sets", isTrace, readPacketTrace},
      {PacketFormat::text, "text", "packets in words, one per line", isAnything, readPacketText},
  };
  return all;
}

PacketFiles::PacketFiles(std::vector<std::string> const& paths, PacketFormat format,
                         uint64_t maxInput) {
  file_.reserve(paths.size());
  for (std::string const& path : paths) {
    std::string content = readInput(path, maxInput);
    PacketFormatInfo const& found = formatFor(content, format);
    file_.push_back({path, std::move(content), &found});
  }
}

void PacketFiles::walk(Naxel::AclConfigColl const& acls, std::string const& only,
                       Diagnostics& diagnostics,
                       std::function<PacketSink(size_t file)> const& sinkOf) const {
  for (size_t i = 0; i < file_.size(); ++i) {
    File const& file = file_[i];
    try {
      PacketReading reading(file.path, file.content, acls, only, diagnostics, sinkOf(i));
      file.format->read(reading);
    } catch (InputError const& e) {
      diagnostics.say({Severity::error, "input", file.path, {e.at()}, e.text(), {}, {}});
    }
  }
  diagnostics.sayRest();
  if (diagnostics.firstError()) throw RejectedInput();
}

}  // namespace NaxelTool
