#pragma once

/// Tables of cases as text.

#include <string>
#include <string_view>
#include <vector>

namespace Naxel::Testing {

/// What stands between the separators of a text, unchanged; one more piece than there are separators.
inline std::vector<std::string> pieces(std::string_view text, std::string_view separator) {
  std::vector<std::string> out;
  for (size_t from = 0, to = 0; to != text.npos; from = to + separator.size()) {
    to = text.find(separator, from);
    out.emplace_back(text.substr(from, to - from));
  }
  return out;
}

}  // namespace Naxel::Testing
