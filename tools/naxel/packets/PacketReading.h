#pragma once

/// What a reader of packets works with: the text of one file, the ACLs that its packets may name, and
/// who takes what is found in it.
///
/// Nothing is lost in silence: every packet of the file is handed on, left out with a reason, or
/// reported as an error. A reader goes on behind a line that it cannot use.

#include "input/Diagnostics.h"
#include "naxel/types/AclConfig.h"
#include "verify/Packet.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace NaxelTool {

/// One packet of a file.
struct FilePacket {
  Verify::Packet packet;
  std::string acl;  ///< to be looked up in this one only; empty: in all of its family
  std::optional<uint32_t>
      drawnFrom;      ///< in traces: number of the rule that it was drawn from, from 0 on
  size_t number = 0;  ///< of its line or frame in the file, from 1 on
};

/// Who takes the packets of a file, in its order.
struct PacketSink {
  std::function<void(FilePacket const&)> take = [](FilePacket const&) {};
  /// A frame that is no packet, and why; of which the tool knows a few dozen reasons.
  std::function<void(size_t number, std::string const& reason)> leaveOut =
      [](size_t, std::string const&) {};
};

class PacketReading {
 public:
  /// Looks at the ACL named `only` alone where that is not empty.
  PacketReading(std::string path, std::string const& content, Naxel::AclConfigColl const& acls,
                std::string only, Diagnostics& diagnostics, PacketSink sink)
      : path_(std::move(path)),
        content_(content),
        acls_(acls),
        only_(std::move(only)),
        diagnostics_(diagnostics),
        sink_(std::move(sink)) {}
  PacketReading(PacketReading const&) = delete;
  PacketReading& operator=(PacketReading const&) = delete;

  std::string const& path() const { return path_; }
  std::string const& content() const { return content_; }
  Naxel::AclConfigColl const& acls() const { return acls_; }
  std::string const& only() const { return only_; }

  /// Whether the next error would be shown, and help with it is worth its time.
  bool shows() const { return diagnostics_.count(Severity::error) < Diagnostics::shown; }

  void take(FilePacket const& packet) { sink_.take(packet); }
  void leaveOut(size_t number, std::string const& reason) { sink_.leaveOut(number, reason); }
  void error(Place place, std::string code, std::string text, std::string help = {},
             std::string_view line = {}) {
    diagnostics_.say({Severity::error, std::move(code), path_, place, std::move(text),
                      std::move(help), std::string(line)});
  }

 private:
  std::string path_;
  std::string const& content_;
  Naxel::AclConfigColl const& acls_;
  std::string only_;
  Diagnostics& diagnostics_;
  PacketSink sink_;
};

}  // namespace NaxelTool
