#pragma once

/// Files of packets of whatever format.

#include "packets/PacketReading.h"

#include <string>
#include <string_view>
#include <vector>

namespace NaxelTool {

enum class PacketFormat : uint8_t { automatic, text, trace, capture };

/// A format of packet files. The table of them is what `--packet-format` offers.
struct PacketFormatInfo {
  PacketFormat format;
  std::string_view name;         ///< as `--packet-format` takes it
  std::string_view description;  ///< a few words
  /// Whether a file is of this format, by what stands in it; asked in the order of the table, of which the
  /// last one takes all.
  bool (*looksLike)(std::string_view content);
  void (*read)(PacketReading&);
};

std::vector<PacketFormatInfo> const& packetFormats();

/// The files of a run, unpacked, so that their packets can be walked several times.
class PacketFiles {
 public:
  /// Reads the files. Throws InputError where one cannot be read, or unpacks to more than `maxInput` bytes.
  PacketFiles(std::vector<std::string> const& paths, PacketFormat format, uint64_t maxInput);

  size_t size() const { return file_.size(); }
  std::string const& path(size_t file) const { return file_[file].path; }

  /// Hands the packets of all files to the sink that `sinkOf` gives for each. Throws RejectedInput if there is
  /// any error in them, once all files are read and their errors are said.
  void walk(Naxel::AclConfigColl const& acls, std::string const& only, Diagnostics& diagnostics,
            std::function<PacketSink(size_t file)> const& sinkOf) const;
  /// Only finds the errors.
  void check(Naxel::AclConfigColl const& acls, std::string const& only,
             Diagnostics& diagnostics) const {
    walk(acls, only, diagnostics, [](size_t) { return PacketSink(); });
  }

 private:
  struct File {
    std::string path;
    std::string content;
    PacketFormatInfo const* format;
  };
  std::vector<File> file_;
};

}  // namespace NaxelTool
