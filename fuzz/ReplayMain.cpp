/// Runs a fuzz target over inputs that are files: `<Name>Fuzz_replay FILE-OR-FOLDER...`. The last
/// name that is printed is that of the input that ended the run, if one does.

#include "Check.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace fs = std::filesystem;

namespace {

/// The files below a path, or the file itself; in order.
std::vector<fs::path> inputsAt(fs::path const& path) {
  if (fs::is_regular_file(path)) return {path};
  std::vector<fs::path> out;
  for (auto const& entry : fs::recursive_directory_iterator(path))
    if (entry.is_regular_file()) out.push_back(entry.path());
  std::sort(out.begin(), out.end());
  return out;
}

void replay(fs::path const& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<char> const content{std::istreambuf_iterator<char>(in), {}};
  if (!in) throw std::runtime_error(path.string() + " cannot be read");
  std::printf("%s\n", path.c_str());
  std::fflush(stdout);
  // A copy of its own, so that a sanitizer sees what reads beyond it.
  LLVMFuzzerTestOneInput(reinterpret_cast<uint8_t const*>(content.data()), content.size());
}

}  // namespace

int main(int argc, char** argv) try {
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    auto const inputs = inputsAt(argv[i]);
    if (inputs.empty()) throw std::runtime_error(std::string(argv[i]) + " holds no input");
    for (fs::path const& path : inputs) replay(path);
    count += inputs.size();
  }
  if (count == 0) throw std::runtime_error("no inputs are given");
  std::printf("%zu inputs\n", count);
  return 0;
} catch (std::exception const& e) {
  std::fprintf(stderr, "%s\n", e.what());
  return 1;
}
