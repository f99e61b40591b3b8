#include "answers/ChipGrid.h"

#include "answers/Trials.h"
#include "input/Diagnostics.h"
#include "input/JsonAccess.h"
#include "mox/Bounded.h"

#include <algorithm>
#include <stdexcept>

namespace NaxelTool {

namespace {

std::vector<std::string_view> splitAt(std::string_view text, char separator) {
  std::vector<std::string_view> out;
  for (;;) {
    size_t const at = text.find(separator);
    out.push_back(text.substr(0, at));
    if (at == std::string_view::npos) return out;
    text.remove_prefix(at + 1);
  }
}

GridAxis axisOf(std::string_view paths) {
  GridAxis out;
  out.name = paths;
  for (std::string_view const path : splitAt(paths, '+'))
    for (ChipMember const* const member : chipMembersOf(path)) out.members.push_back(member);
  return out;
}

/// A value that all members of the axis take.
void addAxisValue(GridAxis& axis, std::string_view text) {
  uint64_t value = 0;
  for (ChipMember const* const member : axis.members) value = member->valueFromText(text);
  if (std::ranges::find(axis.values, value) != axis.values.end())
    throw std::invalid_argument("'" + printable(text) + "' stands twice among the values of " +
                                printable(axis.name));
  axis.values.push_back(value);
}

}  // namespace

void ChipGrid::add(GridAxis axis) {
  for (GridAxis const& other : axes_)
    for (ChipMember const* const member : axis.members)
      if (std::ranges::find(other.members, member) != other.members.end())
        throw std::invalid_argument(member->path + " is varied twice");
  axes_.push_back(std::move(axis));
}

void ChipGrid::axisIs(std::string_view text) {
  size_t const at = text.find('=');
  if (at == std::string_view::npos)
    throw std::invalid_argument("'" + printable(text) +
                                "' is not MEMBER=VALUE,VALUE,..., such as "
                                "rangeXformWidth.dstPort=0,8,12");
  GridAxis axis = axisOf(text.substr(0, at));
  for (std::string_view const value : splitAt(text.substr(at + 1), ',')) addAxisValue(axis, value);
  add(std::move(axis));
}

void ChipGrid::read(std::string const& path, std::string const& content) {
  JsonFile const file(path, content, "naxel-grid", {"schema", "version", "vary"});
  JsonNode const& vary = file.need(file.root(), "vary");
  for (JsonMember const& m : file.object(vary, "'vary'", {})) {
    Position at = m.at();
    try {
      GridAxis axis = axisOf(m.name);
      for (JsonNode const& value : file.list(m.value, "'" + m.name + "'")) {
        at = value.at();
        addAxisValue(axis, value.number() ? std::to_string(*value.number())
                                          : file.text(value, "a value that is no number"));
      }
      at = m.at();
      add(std::move(axis));
    } catch (std::invalid_argument const& e) {
      file.fail(at, e.what());
    }
  }
}

uint64_t ChipGrid::points() const {
  uint64_t out = 1;
  for (GridAxis const& axis : axes_) out = Mox::boundedProduct(out, axis.values.size());
  return out;
}

std::vector<uint64_t> ChipGrid::point(uint64_t number) const {
  std::vector<uint64_t> out(axes_.size());
  for (size_t i = axes_.size(); i-- > 0; number /= axes_[i].values.size())
    out[i] = axes_[i].values[number % axes_[i].values.size()];
  return out;
}

ChipSetup ChipGrid::chip(ChipSetup const& base, std::vector<uint64_t> const& values) const {
  ChipSetup out = copyOf(base);
  for (size_t i = 0; i < axes_.size(); ++i)
    for (ChipMember const* const member : axes_[i].members) member->set(out, values[i]);
  return out;
}

ChipGrid defaultGrid() {
  ChipGrid out;
  for (std::string_view const axis :
       {"labelCode=compact,aligned", "rangeXformWidth.srcPort+rangeXformWidth.dstPort=0,8,12",
        "comboXformWidth.ipv4SrcDstPrefix+comboXformWidth.ipv6SrcDstPrefix=0,16",
        "comboXformWidth.srcDstL4Port=0,12"})
    out.axisIs(axis);
  return out;
}

}  // namespace NaxelTool
