#pragma once

/// Collects what is traced instead of printing it.

#include "mox/Trace.h"

#include <string>

namespace Test {

/// For its lifetime; one line "FACILITY:LEVEL:TEXT" each.
class TraceLog {
 public:
  TraceLog()
      : before_(Mox::traceSinkIs([this](auto const& facility, int level, std::string const& text) {
          lines += facility.name() + ":" + std::to_string(level) + ":" + text + "\n";
        })) {}
  TraceLog(TraceLog const&) = delete;
  ~TraceLog() { Mox::traceSinkIs(before_); }

  std::string lines;

 private:
  Mox::TraceSink before_;
};

}  // namespace Test
