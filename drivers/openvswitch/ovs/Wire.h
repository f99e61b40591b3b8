#pragma once

/// Messages of OpenFlow 1.4, as far as we write and read them. Reading takes whatever bytes come: what does not hold
/// what it says is no message, and never more than is there.

#include "mox/Export.h"
#include "ovs/Flow.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NaxelOvs {

inline constexpr uint8_t wireVersion = 5;  // 1.4
inline constexpr size_t wireHeader = 8;

enum class MessageType : uint8_t {
  hello = 0,
  error = 1,
  echoRequest = 2,
  echoReply = 3,
  featuresRequest = 5,
  featuresReply = 6,
  getConfigRequest = 7,
  getConfigReply = 8,
  setConfig = 9,
  flowMod = 14,
  multipartRequest = 18,
  multipartReply = 19,
  barrierRequest = 20,
  barrierReply = 21,
  bundleControl = 33,
  bundleAdd = 34
};

struct Message {
  uint8_t version = wireVersion;
  MessageType type = MessageType::hello;
  uint32_t xid = 0;
  std::string body;
};

/// How a switch treats fragments.
enum class FragmentMode : uint16_t { normal = 0, drop = 1, reassemble = 2, nxMatch = 3 };
NAXEL_EXPORT std::string text(FragmentMode mode);

enum class BundleStep : uint16_t { open = 0, close = 2, commit = 4, discard = 6 };
enum class FlowCommand : uint8_t { add = 0, deleteStrict = 4 };

NAXEL_EXPORT std::string encode(Message const& message);
/// The first whole message of `bytes`, which it is taken from; none where more has to come. `fault` is set where what
/// stands there is no message.
NAXEL_EXPORT std::optional<Message> takeMessage(std::string& bytes, std::string& fault);

/// Bodies of requests.
/// We speak this version and no other.
NAXEL_EXPORT std::string helloBody();
NAXEL_EXPORT std::string configBody(FragmentMode mode, uint16_t missLength);
NAXEL_EXPORT std::string flowStatsBody(uint8_t table);
/// Asks how many flows of a cookie a table holds.
NAXEL_EXPORT std::string flowCountBody(uint8_t table, uint64_t cookie);
NAXEL_EXPORT std::string tableFeaturesBody();
NAXEL_EXPORT std::string bundleBody(uint32_t bundle, BundleStep step);
/// A change of a flow within a bundle. It adds the flow with this cookie, or deletes it if it has this cookie. One that is
/// to stand alone is refused where another flow of its table and priority matches some of the same packets.
NAXEL_EXPORT std::string bundleAddBody(uint32_t bundle, uint32_t xid, FlowCommand command,
                                       Flow const& flow, uint64_t cookie, bool alone = false);

/// A flow that a switch reports. Match and instructions are canonical where they are of our kind; `ours` says so.
struct ReportedFlow {
  Flow flow;
  uint64_t cookie = 0;
  bool ours = false;
};
/// The flows of one reply, and whether more follow. False where the body does not hold what it says.
NAXEL_EXPORT bool readFlows(Message const& reply, std::vector<ReportedFlow>& to, bool& more);

/// Adds the number that a reply tells. False where it tells none.
NAXEL_EXPORT bool readCount(Message const& reply, uint64_t& to);

/// How many flows a table may hold.
struct TableRoom {
  uint8_t table;
  uint32_t flows;
};
NAXEL_EXPORT bool readTables(Message const& reply, std::vector<TableRoom>& to, bool& more);
/// Mode and length of packets that a miss sends, of a getConfigReply.
NAXEL_EXPORT bool readConfig(Message const& reply, FragmentMode& mode, uint16_t& missLength);

/// "OFPFMFC_TABLE_FULL", or the numbers where the names are not known to us; of an error message.
NAXEL_EXPORT std::string errorName(Message const& error);
/// The same of type and code.
NAXEL_EXPORT std::string errorName(uint16_t type, uint16_t code);

}  // namespace NaxelOvs
