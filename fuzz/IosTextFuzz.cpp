/// Device configurations of the IOS family and what devices show of their lists.

#include "TextReaders.h"
#include "input/text/IosReader.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  Fuzz::checkTextReader(NaxelTool::readIos, std::string(data, data + size));
  return 0;
}
