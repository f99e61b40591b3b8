/// Configurations of an ASA and what it shows of its lists.

#include "TextReaders.h"
#include "input/text/AsaReader.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  Fuzz::checkTextReader(NaxelTool::readAsa, std::string(data, data + size));
  return 0;
}
