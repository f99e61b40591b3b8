#include "mox/Trace.h"

#include <cstdio>
#include <utility>

namespace Mox {

namespace {

void toStandardError(TraceFacility const& facility, int level, std::string const& text) {
  std::fprintf(stderr, "%s:%d: %s\n", facility.name().c_str(), level, text.c_str());
}

TraceSink& sink() {
  static TraceSink theSink = toStandardError;
  return theSink;
}

}  // namespace

TraceSink traceSinkIs(TraceSink newSink) { return std::exchange(sink(), std::move(newSink)); }

TraceLine::TraceLine(TraceFacility const& facility, int level)
    : facility_(&facility), level_(level) {
  try {
    text_ = std::make_unique<std::ostringstream>();
  } catch (...) {
    // The line is lost.
  }
}

TraceLine::~TraceLine() {
  if (!text_) return;
  try {
    // A copy, because the sink may replace itself.
    if (TraceSink const to = sink()) to(*facility_, level_, text_->str());
  } catch (...) {
    // A line that cannot be written must not change what the traced code does.
  }
}

TraceFacility& moxTrace() {
  static TraceFacility facility("Mox");
  return facility;
}

}  // namespace Mox
