#include "naxel/agent/Version.h"

namespace Naxel {

namespace {

#define NAXEL_TEXT(x) #x
#define NAXEL_DOTTED(major, minor, patch) \
  NAXEL_TEXT(major) "." NAXEL_TEXT(minor) "." NAXEL_TEXT(patch)
constexpr std::string_view dotted =
    NAXEL_DOTTED(NAXEL_VERSION_MAJOR, NAXEL_VERSION_MINOR, NAXEL_VERSION_PATCH);
#undef NAXEL_DOTTED
#undef NAXEL_TEXT

}  // namespace

uint32_t versionNumber() { return NAXEL_VERSION; }

std::string_view versionText() { return dotted; }

}  // namespace Naxel
