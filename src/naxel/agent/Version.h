#pragma once

/// Which version of the library a program is compiled against, and which one it runs with. The numbers are
/// those of semantic versioning (semver.org); before 1.0 a minor version may change the interface, and the
/// soname has both numbers.

#include "mox/Export.h"

#include <cstdint>
#include <string_view>

#define NAXEL_VERSION_MAJOR 0
#define NAXEL_VERSION_MINOR 1
#define NAXEL_VERSION_PATCH 0

/// Versions as one number that grows, to compare in `#if`: NAXEL_VERSION >= NAXEL_VERSION_NUMBER(0, 2, 0).
#define NAXEL_VERSION_NUMBER(major, minor, patch) ((major)*1000000 + (minor)*1000 + (patch))
#define NAXEL_VERSION \
  NAXEL_VERSION_NUMBER(NAXEL_VERSION_MAJOR, NAXEL_VERSION_MINOR, NAXEL_VERSION_PATCH)

namespace Naxel {

/// Of the library that runs, like NAXEL_VERSION of the one compiled against. The two agree in what is
/// above the patch, or the program would not have been loaded.
NAXEL_EXPORT uint32_t versionNumber();
/// "0.1.0"; lives as long as the process.
NAXEL_EXPORT std::string_view versionText();

}  // namespace Naxel
