#include "naxel/types/NaxelTrace.h"

namespace Naxel {

Mox::TraceFacility& naxelTrace() {
  static Mox::TraceFacility facility("Naxel");
  return facility;
}

}  // namespace Naxel
