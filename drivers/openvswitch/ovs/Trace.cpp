#include "ovs/Trace.h"

#include <charconv>

namespace NaxelOvs {

namespace {

/// The number at the start of a text, which is taken from it.
std::optional<unsigned> takeNumber(std::string_view& text) {
  unsigned value = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<size_t>(end - text.data()));
  return value;
}

std::string_view trimmed(std::string_view line) {
  size_t const first = line.find_first_not_of(' ');
  return first == line.npos ? std::string_view() : line.substr(first);
}

class TraceReader {
 public:
  explicit TraceReader(Layout const& layout) : layout_(layout) {}

  void line(std::string_view line) {
    std::string_view const words = trimmed(line);
    if (words.starts_with("Datapath actions: ")) {
      ended_ = true;
    } else if (!flow(words) && inOurs_) {
      action(words);
    }
  }
  std::optional<Traced> result() {
    if (!ended_) return std::nullopt;
    return out_;
  }

 private:
  /// " 7. ip,reg10=0x1, priority 100, cookie 0x1" begins what a flow does.
  bool flow(std::string_view words) {
    auto const table = takeNumber(words);
    if (!table || !words.starts_with(". ")) return false;
    inOurs_ = *table < 256 && layout_.owns(static_cast<uint8_t>(*table));
    if (!inOurs_) return true;
    // Where no flow of ours is, nothing has decided.
    if (words.starts_with(". No match")) {
      out_.exit.reset();
      inOurs_ = false;
      return true;
    }
    // A flow that says nothing drops; what it says comes in the lines behind.
    out_.exit = Exit{};
    out_.priority.reset();
    size_t const at = words.find("priority ");
    if (*table == layout_.lastTable() && at != words.npos) {
      words.remove_prefix(at + 9);
      if (auto const p = takeNumber(words)) out_.priority = static_cast<uint16_t>(*p);
    }
    return true;
  }

  void action(std::string_view words) {
    static constexpr std::string_view go = "goto_table:";
    static constexpr std::string_view set = "set_field:";
    if (words.starts_with(go)) {
      words.remove_prefix(go.size());
      auto const table = takeNumber(words);
      if (table && !layout_.owns(static_cast<uint8_t>(*table)))
        out_.exit = Exit{Exit::Kind::table, static_cast<uint8_t>(*table)};
    } else if (words.starts_with("NORMAL")) {
      out_.exit = Exit{Exit::Kind::normal, 0};
      inOurs_ = false;  // what follows tells of learning and flooding
    } else if (words.starts_with(set) && words.find("ip_dscp") != words.npos) {
      words.remove_prefix(set.size());
      out_.dscp = takeNumber(words);
    }
  }

  Layout const& layout_;
  Traced out_;
  bool inOurs_ = false;
  bool ended_ = false;
};

}  // namespace

std::optional<Traced> readTrace(std::string_view text, Layout const& layout) {
  TraceReader reader(layout);
  while (!text.empty()) {
    size_t const end = text.find('\n');
    reader.line(text.substr(0, end));
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
  }
  return reader.result();
}

}  // namespace NaxelOvs
