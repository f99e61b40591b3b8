#include "ovs/Control.h"

#include <algorithm>
#include <cstdio>
#include <fstream>

namespace NaxelOvs {

namespace {

/// Reads a JSON object of strings, numbers and nulls, one level deep; what nests is passed over by its brackets.
class ReplyReader {
 public:
  explicit ReplyReader(std::string_view bytes) : rest_(bytes) {}

  enum class State : uint8_t { whole, unfinished, broken };

  State read(ControlReply& to) {
    if (!expect('{')) return state();
    for (;;) {
      std::string key;
      if (!string(key) || !expect(':') || !value(key, to)) return state();
      blanks();
      if (rest_.empty()) return State::unfinished;
      char const c = rest_.front();
      rest_.remove_prefix(1);
      if (c == '}') return State::whole;
      if (c != ',') return State::broken;
    }
  }

 private:
  /// What a failure means: too little, or something else than expected.
  State state() const { return rest_.empty() ? State::unfinished : State::broken; }

  void blanks() {
    while (!rest_.empty() && std::string_view(" \t\r\n").find(rest_.front()) != rest_.npos)
      rest_.remove_prefix(1);
  }
  bool expect(char c) {
    blanks();
    if (rest_.empty() || rest_.front() != c) return false;
    rest_.remove_prefix(1);
    return true;
  }

  bool string(std::string& to) {
    if (!expect('"')) return false;
    while (!rest_.empty()) {
      char const c = rest_.front();
      rest_.remove_prefix(1);
      if (c == '"') return true;
      if (c != '\\')
        to += c;
      else if (!escape(to))
        return false;
    }
    return false;
  }

  bool escape(std::string& to) {
    if (rest_.empty()) return false;
    char const c = rest_.front();
    static constexpr std::string_view letters = "\"\\/bfnrt";
    static constexpr std::string_view meant = "\"\\/\b\f\n\r\t";
    if (c == 'u') {
      if (rest_.size() < 5) {
        rest_ = {};
        return false;
      }
      unsigned code = 0;
      for (char digit : rest_.substr(1, 4)) {
        size_t const v =
            std::string_view("0123456789abcdef")
                .find(static_cast<char>(digit >= 'A' && digit <= 'F' ? digit + 32 : digit));
        if (v == std::string_view::npos) return false;
        code = code * 16 + static_cast<unsigned>(v);
      }
      rest_.remove_prefix(5);
      // Nothing that we read for is beyond ASCII.
      to += code < 128 ? static_cast<char>(code) : '?';
      return true;
    }
    size_t const at = letters.find(c);
    if (at == std::string_view::npos) return false;
    rest_.remove_prefix(1);
    to += meant[at];
    return true;
  }

  bool value(std::string const& key, ControlReply& to) {
    blanks();
    if (rest_.empty()) return false;
    if (rest_.front() == '"') {
      std::string text;
      if (!string(text)) return false;
      if (key == "error" && text.empty()) text = "an error without a text";
      if (key == "result" || key == "error") (key == "result" ? to.result : to.error) = text;
      return true;
    }
    size_t const end = std::min(rest_.find_first_of(",}{[\""), rest_.size());
    bool const nests = end < rest_.size() && rest_[end] != ',' && rest_[end] != '}';
    if (end == rest_.size()) rest_ = {};
    if (rest_.empty() || nests) return false;
    rest_.remove_prefix(end);
    return true;
  }

  std::string_view rest_;
};

}  // namespace

std::string jsonString(std::string_view text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    if (static_cast<unsigned char>(c) >= 0x20) {
      out += c;
      continue;
    }
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
    out += escaped;
  }
  return out + "\"";
}

std::optional<ControlReply> readReply(std::string_view bytes, std::string& fault) {
  ControlReply reply;
  switch (ReplyReader(bytes).read(reply)) {
    case ReplyReader::State::whole: return reply;
    case ReplyReader::State::unfinished: break;
    case ReplyReader::State::broken: fault = "what answers is no control socket"; break;
  }
  return std::nullopt;
}

Control::Control(std::string const& path, std::chrono::milliseconds patience)
    : socket_(path, patience) {}

void Control::ask(std::string const& command, std::vector<std::string> const& arguments) {
  std::string request = "{\"id\":0,\"method\":" + jsonString(command) + ",\"params\":[";
  for (size_t i = 0; i < arguments.size(); ++i)
    request += (i ? "," : "") + jsonString(arguments[i]);
  socket_.received().clear();
  socket_.send(request + "]}");
}

std::optional<ControlReply> Control::received() {
  std::string const& bytes = socket_.received();
  // A reply ends with its outermost bracket, so nothing is read twice in vain.
  if (bytes.empty() || bytes.back() != '}') return std::nullopt;
  std::string fault;
  auto reply = readReply(bytes, fault);
  if (!fault.empty()) throw SwitchError{fault};
  return reply;
}

std::optional<ControlReply> Control::reply() {
  socket_.take();
  return received();
}

std::string Control::run(std::string const& command, std::vector<std::string> const& arguments) {
  ask(command, arguments);
  for (;;) {
    if (auto reply = received()) {
      if (!reply->error.empty()) throw SwitchError{command + " is refused: " + reply->error};
      return std::move(reply->result);
    }
    socket_.receive();
  }
}

std::string controlPathBeside(std::string const& managementPath) {
  std::string const folder = managementPath.substr(0, managementPath.rfind('/') + 1);
  std::ifstream in(folder + "ovs-vswitchd.pid");
  unsigned long pid = 0;
  if (!(in >> pid)) return {};
  return folder + "ovs-vswitchd." + std::to_string(pid) + ".ctl";
}

}  // namespace NaxelOvs
