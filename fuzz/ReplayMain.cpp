/// Runs a fuzz target over inputs that are files: `<Name>Fuzz_replay FILE-OR-FOLDER...`. The last
/// name that is printed is that of the input that ended the run, if one does.

#include "Check.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <vector>

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    if (fs::is_regular_file(argv[i]))
      inputs.emplace_back(argv[i]);
    else
      for (auto const& entry : fs::recursive_directory_iterator(argv[i]))
        if (entry.is_regular_file()) inputs.push_back(entry.path());
  }
  if (inputs.empty()) throw std::runtime_error("no inputs are given");
  std::sort(inputs.begin(), inputs.end());
  for (fs::path const& path : inputs) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> const content{std::istreambuf_iterator<char>(in), {}};
    if (!in) throw std::runtime_error(path.string() + " cannot be read");
    std::cout << path.native() << std::endl;
    // A copy of its own, so that a sanitizer sees what reads beyond it.
    LLVMFuzzerTestOneInput(reinterpret_cast<uint8_t const*>(content.data()), content.size());
  }
  return 0;
}
