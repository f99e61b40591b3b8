// A user of the installed library: draws two set keys and reads the text form of the second.

#include "mox/Ptr.h"
#include "naxel/genset/GenSet.h"

#include <iostream>
#include <sstream>

int main() {
  auto const generator = Mox::makePtr<Naxel::GenSetKeyGenerator>();
  generator->newKey();

  std::ostringstream text;
  text << generator->newKey();
  std::cout << "second key: " << text.str() << '\n';
  return text.str() == "2" ? 0 : 1;
}
