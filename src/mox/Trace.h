#pragma once

/// Tracing with numeric levels: 0 errors and failures, 1 and 2 waits and decisions, 4 transitions,
/// 6 details, 8 entry into a handler, 9 finest detail. A facility traces the levels up to its own.
///
///   if (auto line = facility.line(6)) line << "key:" << key;
///
/// costs one comparison where level 6 is off: nothing behind the condition is evaluated. Tracing
/// itself never throws; a line that there is no memory for is lost.

#include "mox/Export.h"

#include <functional>
#include <memory>
#include <sstream>
#include <string>

namespace Mox {

class TraceFacility;

/// Where finished lines go. It may throw; what it throws is ignored.
using TraceSink = std::function<void(TraceFacility const&, int level, std::string const& text)>;

/// Replaces the process-wide sink and returns the one before. An empty sink drops every line. The
/// initial sink writes "FACILITY:LEVEL: TEXT" to standard error.
NAXEL_EXPORT TraceSink traceSinkIs(TraceSink sink);

/// One line being built; handed to the sink when it ends. False where its level is off.
class NAXEL_EXPORT TraceLine {
 public:
  TraceLine() = default;
  TraceLine(TraceFacility const& facility, int level);
  TraceLine(TraceLine&&) = default;
  TraceLine& operator=(TraceLine&&) = delete;
  ~TraceLine();

  explicit operator bool() const { return text_ != nullptr; }
  template <class T>
  TraceLine& operator<<(T const& v) {
    try {
      if (text_) *text_ << v;
    } catch (...) {
      text_.reset();
    }
    return *this;
  }

 private:
  TraceFacility const* facility_ = nullptr;
  int level_ = 0;
  std::unique_ptr<std::ostringstream> text_;
};

/// A named source of trace lines. Level -1 is silence; default 0.
class NAXEL_EXPORT TraceFacility {
 public:
  explicit TraceFacility(std::string name, int level = 0) : name_(std::move(name)), level_(level) {}

  std::string const& name() const { return name_; }
  int level() const { return level_; }
  void levelIs(int level) { level_ = level; }
  bool on(int level) const { return level <= level_; }

  TraceLine line(int level) const { return on(level) ? TraceLine(*this, level) : TraceLine(); }

 private:
  std::string name_;
  int level_;
};

/// The framework's own facility, "Mox".
NAXEL_EXPORT TraceFacility& moxTrace();

}  // namespace Mox
