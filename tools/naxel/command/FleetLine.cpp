#include "command/FleetLine.h"

#include "output/RuleJson.h"

#include <cstring>
#include <string_view>

#include <nlohmann/json.hpp>

namespace NaxelTool {

namespace {

/// The same JSON without the blanks and line breaks between its parts.
std::string onOneLine(std::string const& json) {
  std::string out;
  out.reserve(json.size());
  bool inText = false;
  for (size_t i = 0; i < json.size(); ++i) {
    char const c = json[i];
    if (!inText && (c == ' ' || c == '\n' || c == '\t' || c == '\r')) continue;
    out += c;
    if (inText && c == '\\' && i + 1 < json.size())
      out += json[++i];
    else if (c == '"')
      inText = !inText;
  }
  return out;
}

std::string message(char const* code, std::string const& text) {
  return std::string(R"({"schema":"naxel-message","version":1,"severity":"error","code":")") +
         code + "\",\"text\":" + jsonText(text) + "}";
}

/// What is no message of ours comes from below, as a sanitizer or the loader of programs.
void addMessages(std::string& to, std::string_view err) {
  while (!err.empty()) {
    std::string const line(err.substr(0, err.find('\n')));
    err.remove_prefix(std::min(err.size(), line.size() + 1));
    if (line.empty()) continue;
    bool const isMessage =
        line.starts_with("{\"schema\":\"naxel-message\"") && nlohmann::json::accept(line);
    to += (to.empty() ? "" : ",") + (isMessage ? line : message("process", line));
  }
}

std::string lineOf(std::string const& name, int code, std::string const& result,
                   std::string const& messages) {
  return deviceLineHead(jsonText(name), code) + result +
         (messages.empty() ? "" : ",\"messages\":[" + messages + "]") + "}";
}

}  // namespace

std::string deviceLineHead(std::string_view name, int code) {
  return R"({"schema":"naxel-device","version":1,"file":)" + std::string(name) +
         ",\"code\":" + std::to_string(code);
}

std::string deviceLine(std::string const& name, int code, std::string const& out,
                       std::string const& err, std::string const& trouble) {
  std::string result;
  if (!out.empty() && nlohmann::json::accept(out))
    result = ",\"result\":" + onOneLine(out);
  else if (!out.empty())
    result = ",\"output\":" + jsonText(out);
  std::string messages;
  addMessages(messages, err);
  if (!trouble.empty()) messages += (messages.empty() ? "" : ",") + message("process", trouble);
  return lineOf(name, code, result, messages);
}

std::string troubleLine(std::string const& name, ExitCode code, std::string const& trouble) {
  return lineOf(name, static_cast<int>(code), {}, message("input", trouble));
}

std::string signalName(int number) {
  char const* const text = strsignal(number);
  return "signal " + std::to_string(number) + (text ? " (" + std::string(text) + ")" : "");
}

}  // namespace NaxelTool
