#include "naxel/testing/ScriptWriter.h"

#include "naxel/control/RootTypes.h"
#include "naxel/control/StageControllerTypes.h"
#include "naxel/loader/PDTable.h"
#include "naxel/testing/Pieces.h"

#include <sstream>

namespace Naxel::Testing {

void ScriptWriter::group(std::string const& name) {
  auto const& all = groups_.at(name);
  uint64_t sum = 0;
  for (Course const& course : all) sum += course.weight;
  uint64_t at = dice_.below(sum);
  auto course = all.begin();
  for (; at >= course->weight; ++course) at -= course->weight;
  play(course->steps);
}

void ScriptWriter::play(std::string const& steps) {
  Names names;
  for (std::string step : pieces(steps, "; ")) {
    uint64_t times = 1;
    if (size_t const star = step.find('*'); star != step.npos) {
      times = std::stoul(drawn(step.substr(0, star)));
      step.erase(0, star + 1);
    }
    for (; times > 0; --times) step[0] == '@' ? group(step.substr(1)) : line(filled(step, names));
  }
}

std::string ScriptWriter::filled(std::string const& pattern, Names& names) {
  std::istringstream in(pattern);
  std::string out;
  for (std::string word; in >> word;) {
    word = drawn(word);
    size_t const open = word.find('<');
    if (size_t const close = word.find('>'); open != word.npos) {
      std::string const kind = word.substr(open + 1, close - open - 1);
      std::string& value = names[kind];
      if (value.empty() || kind.find('.') == kind.npos) value = some(kind);
      if (kind.starts_with("acl")) v6_ = value == "a2";
      word.replace(open, close + 1 - open, value);
    }
    out += (out.empty() ? "" : " ") + word;
  }
  return out;
}

std::string ScriptWriter::drawn(std::string const& word) {
  std::string part = dice_.of(pieces(word, "|"));
  size_t const dots = part.find("..");
  if (dots == part.npos) return part;
  return std::to_string(dice_.between(std::stoul(part), std::stoul(part.substr(dots + 2))));
}

Lumox::AddressFamily ScriptWriter::family() {
  return dice_.oneIn(60) != v6_ ? Lumox::ipv6() : Lumox::ipv4();
}

std::string ScriptWriter::some(std::string const& kind) {
  std::string const k = kind.substr(0, kind.find('.'));
  if (k == "acl") return "a" + std::to_string(dice_.below(3));
  if (k == "rule") return "r" + std::to_string(dice_.below(5));
  if (k == "index") return std::to_string(dice_.below(10));
  if (k == "filter") return words_.filter(family());
  if (k == "prefix") return words_.prefix(family());
  auto const someField = [&]() -> RangeField const& {
    return rangeFields[dice_.below(rangeFieldCount)];
  };
  if (k == "field") return std::string(someField().name);
  if (k == "wrong") return drawn("90-80|3-300|256-256|70000-70001|0-65536|2-1|1-65536|9-8");
  if (k == "range") {
    RangeField const& field = someField();
    std::string const all = words_.ranges(field.bound());
    return std::string(field.name) + drawn(" -| +| +") + all.substr(0, all.find(','));
  }
  auto const one = [&]<class E>(E first, E last) {
    auto const n = dice_.between(static_cast<uint64_t>(first), static_cast<uint64_t>(last));
    return Mox::stringValue(static_cast<E>(n));
  };
  if (k == "stage") return one(NaxelActiveStage(1), NaxelActiveStage(10));
  if (k == "progress") return one(NaxelProgress(1), NaxelProgress(4));
  if (k == "table") return one(PDTable::v4Source, PDTable::aclEntries);
  return drawn("1..4|6..16");  // bits
}

}  // namespace Naxel::Testing
