#include "naxel/testing/Script.h"

#include "naxel/testing/Pieces.h"

#include <algorithm>

namespace Naxel::Testing {

std::vector<Script> scriptsOf(std::istream& in) {
  std::vector<Script> scripts(1);
  for (std::string line; std::getline(in, line);) {
    line.erase(0, std::min(line.find_first_not_of(" \t\r"), line.size()));
    if (line == "---")
      scripts.emplace_back();
    else if (!line.empty() && line[0] != '#')
      scripts.back().push_back(line);
  }
  return scripts;
}

std::string textOf(Script const& script) {
  std::string out;
  for (std::string const& line : script) out += line + "\n";
  return out;
}

Script shrunk(Script best, std::function<bool(Script const&)> const& fails) {
  for (size_t chunk = std::max<size_t>(1, best.size() / 2);;
       chunk = std::max<size_t>(1, chunk / 2)) {
    size_t const before = best.size();
    for (size_t at = 0; at < best.size();) {
      Script attempt = best;
      auto const from = attempt.begin() + static_cast<std::ptrdiff_t>(at);
      attempt.erase(from, from + static_cast<std::ptrdiff_t>(std::min(chunk, best.size() - at)));
      if (fails(attempt))
        best = std::move(attempt);
      else
        at += chunk;
    }
    if (chunk == 1 && best.size() == before) return best;
  }
}

Script simplified(Script best, std::function<bool(Script const&)> const& fails) {
  // "set ACL INDEX NAME", and then words that stand alone or have a value behind them.
  constexpr size_t firstWord = 4;
  for (size_t line = 0; line < best.size(); ++line) {
    if (!best[line].starts_with("set ")) continue;
    auto words = pieces(best[line], " ");
    for (size_t at = firstWord; at < words.size();) {
      std::string const& word = words[at];
      bool const alone = word.empty() || word == "init" || word == "est" || word == "drop" ||
                         word == "log" || word.starts_with("tc=");
      auto fewer = words;
      auto const from = fewer.begin() + static_cast<std::ptrdiff_t>(at);
      fewer.erase(from, from + static_cast<std::ptrdiff_t>(
                                   std::min<size_t>(alone ? 1 : 2, words.size() - at)));
      Script attempt = best;
      attempt[line].clear();
      for (std::string const& w : fewer) attempt[line] += (attempt[line].empty() ? "" : " ") + w;
      if (fails(attempt)) {
        best = std::move(attempt);
        words = std::move(fewer);
      } else {
        at += alone ? 1 : 2;
      }
    }
  }
  return best;
}

}  // namespace Naxel::Testing
