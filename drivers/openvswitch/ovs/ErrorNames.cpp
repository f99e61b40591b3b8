/// Errors of OpenFlow by the names that its standard gives them.

#include "ovs/Bytes.h"
#include "ovs/Wire.h"

#include <array>

namespace NaxelOvs {

namespace {

struct ErrorFamily {
  uint16_t type;
  char const* prefix;
  /// The codes in their order, from 0 on, each followed by a blank.
  char const* codes;
};

constexpr std::array<ErrorFamily, 9> errorFamilies = {{
    {0, "OFPHFC_", "INCOMPATIBLE EPERM "},
    {1, "OFPBRC_",
     "BAD_VERSION BAD_TYPE BAD_MULTIPART BAD_EXPERIMENTER BAD_EXP_TYPE EPERM BAD_LEN BUFFER_EMPTY "
     "BUFFER_UNKNOWN BAD_TABLE_ID IS_SLAVE BAD_PORT BAD_PACKET MULTIPART_BUFFER_OVERFLOW "
     "MULTIPART_REQUEST_TIMEOUT MULTIPART_REPLY_TIMEOUT "},
    {2, "OFPBAC_",
     "BAD_TYPE BAD_LEN BAD_EXPERIMENTER BAD_EXP_TYPE BAD_OUT_PORT BAD_ARGUMENT EPERM TOO_MANY "
     "BAD_QUEUE BAD_OUT_GROUP MATCH_INCONSISTENT UNSUPPORTED_ORDER BAD_TAG BAD_SET_TYPE "
     "BAD_SET_LEN BAD_SET_ARGUMENT "},
    {3, "OFPBIC_",
     "UNKNOWN_INST UNSUP_INST BAD_TABLE_ID UNSUP_METADATA UNSUP_METADATA_MASK BAD_EXPERIMENTER "
     "BAD_EXP_TYPE BAD_LEN EPERM DUP_INST "},
    {4, "OFPBMC_",
     "BAD_TYPE BAD_LEN BAD_TAG BAD_DL_ADDR_MASK BAD_NW_ADDR_MASK BAD_WILDCARDS BAD_FIELD BAD_VALUE "
     "BAD_MASK BAD_PREREQ DUP_FIELD EPERM "},
    {5, "OFPFMFC_",
     "UNKNOWN TABLE_FULL BAD_TABLE_ID OVERLAP EPERM BAD_TIMEOUT BAD_COMMAND BAD_FLAGS CANT_SYNC "
     "BAD_PRIORITY "},
    {8, "OFPTMFC_", "BAD_TABLE BAD_CONFIG EPERM "},
    {10, "OFPSCFC_", "BAD_FLAGS BAD_LEN EPERM "},
    {17, "OFPBFC_",
     "UNKNOWN EPERM BAD_ID BUNDLE_EXIST BUNDLE_CLOSED OUT_OF_BUNDLES BAD_TYPE BAD_FLAGS "
     "MSG_BAD_LEN MSG_BAD_XID MSG_UNSUP MSG_CONFLICT MSG_TOO_MANY MSG_FAILED TIMEOUT "
     "BUNDLE_IN_PROGRESS "},
}};

}  // namespace

std::string errorName(uint16_t type, uint16_t code) {
  for (ErrorFamily const& family : errorFamilies) {
    if (family.type != type) continue;
    std::string_view codes = family.codes;
    for (unsigned i = 0; !codes.empty(); ++i) {
      size_t const end = codes.find(' ');
      if (i == code) return family.prefix + std::string(codes.substr(0, end));
      codes.remove_prefix(end + 1);
    }
  }
  return "error " + std::to_string(type) + ", " + std::to_string(code);
}

std::string errorName(Message const& error) {
  Reader in(error.body);
  uint16_t const type = in.get<uint16_t>();
  uint16_t const code = in.get<uint16_t>();
  return in.failed() ? "an error without a code" : errorName(type, code);
}

}  // namespace NaxelOvs
