// A user of the installed library: draws two set keys and reads the text form of the second, then has
// the library look up what was inserted here and the other way round. Tables are inline code on both
// sides and need one secret.

#include "naxel/agent/Version.h"
#include "naxel/types/AclConfig.h"
#include "naxel/xform/NaxelXformTypes.h"

#include <iostream>
#include <sstream>

namespace {

bool tablesAreShared() {
  auto const acl = Mox::makePtr<Naxel::AclConfig>("edge");
  auto const list = Naxel::ipPrefixListFactory();
  auto const pairs = Mox::makePtr<Naxel::ComboLabelInfo>(Naxel::ComboLabelSetType::srcDstL4Port);
  bool found = true;
  for (uint32_t n = 1; n <= 100; ++n) {
    Naxel::GenSetKey const key(n);
    list->addrIs(Lumox::IpGenPrefix::v4(n, 32));
    acl->ruleByNameIs(std::to_string(n));
    pairs->srcDstToComboMapIs({key, key}, key);
    found = found && list->addr().contains(Lumox::IpGenPrefix::v4(n, 32)) &&
            acl->ruleByNameHas(std::to_string(n)) && pairs->srcDstToComboMap({key, key}) == key;
  }
  return found;
}

}  // namespace

int main() {
  auto const generator = Mox::makePtr<Naxel::GenSetKeyGenerator>();
  generator->newKey();

  std::ostringstream text;
  text << generator->newKey();
  std::cout << "second key: " << text.str() << '\n';
  bool const isOneVersion =
      Naxel::versionNumber() == NAXEL_VERSION && Naxel::versionText() == NAXEL_EXPECTED_VERSION;
  return text.str() == "2" && tablesAreShared() && isOneVersion ? 0 : 1;
}
