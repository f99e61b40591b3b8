#include "input/ClassBenchReader.h"

#include "input/InputFile.h"

#include <charconv>
#include <stdexcept>

namespace NaxelTool {

namespace {

constexpr std::string_view blanks = " \t\r\v\f";

/// One line, taken apart from left to right. Errors are std::invalid_argument.
class Line {
 public:
  explicit Line(std::string_view text) : rest_(text) {
    rest_ = rest_.substr(0, rest_.find_last_not_of(blanks) + 1);
    skipBlanks();
  }

  bool atEnd() const { return rest_.empty(); }

  void expect(char ch) {
    if (atEnd() || rest_[0] != ch) failBefore(std::string("expected '") + ch + "'");
    rest_.remove_prefix(1);
    skipBlanks();
  }
  std::string_view word() {
    std::string_view const out = rest_.substr(0, rest_.find_first_of(blanks));
    if (out.empty()) failBefore("expected a prefix");
    rest_.remove_prefix(out.size());
    skipBlanks();
    return out;
  }
  uint32_t decimal(uint32_t max) { return number(10, max); }
  uint32_t hex(uint32_t max) {
    if (!rest_.starts_with("0x") && !rest_.starts_with("0X"))
      failBefore("expected a number that begins with 0x");
    rest_.remove_prefix(2);
    return number(16, max);
  }
  void expectEnd() {
    if (!atEnd()) failBefore("expected the end of the line");
  }

 private:
  void skipBlanks() {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(blanks), rest_.size()));
  }

  uint32_t number(int base, uint32_t max) {
    uint64_t value = 0;
    auto const [end, error] =
        std::from_chars(rest_.data(), rest_.data() + rest_.size(), value, base);
    if (end == rest_.data()) failBefore("expected a number");
    if (error != std::errc() || value > max)
      failBefore("the number must be at most " + std::to_string(max));
    rest_.remove_prefix(static_cast<size_t>(end - rest_.data()));
    skipBlanks();
    return static_cast<uint32_t>(value);
  }
  [[noreturn]] void failBefore(std::string const& what) const {
    throw std::invalid_argument(
        what + (atEnd() ? " at the end of the line" : " before '" + std::string(rest_) + "'"));
  }

  std::string_view rest_;
};

struct ValueMask {
  uint32_t value = 0;
  uint32_t mask = 0;
};

ValueMask takeValueMask(Line& line, uint32_t max) {
  ValueMask out;
  out.value = line.hex(max);
  line.expect('/');
  out.mask = line.hex(max);
  return out;
}

Lumox::IpGenPrefix takePrefix(Line& line) {
  Lumox::IpGenPrefix const prefix = prefixFromText(line.word());
  if (prefix.af() != Lumox::ipv4()) throw std::invalid_argument("the prefix is not of IPv4");
  return prefix;
}

Naxel::L4PortRange takePorts(Line& line) {
  uint32_t const first = line.decimal(Naxel::L4PortRange::bound);
  line.expect(':');
  uint32_t const last = line.decimal(Naxel::L4PortRange::bound);
  if (first > last)
    throw std::invalid_argument("the port range starts at " + std::to_string(first) +
                                ", above its end " + std::to_string(last));
  return {first, last};
}

/// Uses the flags if a rule can say them. TCP: SYN without ACK. ICMP: the high byte is the type.
bool applyFlags(ValueMask const& proto, ValueMask const& flags, Naxel::RuleFilter& filter) {
  constexpr uint32_t icmpProtocol = 1;
  constexpr uint32_t tcpProtocol = 6;
  if (proto.mask == 0) return false;
  if (proto.value == tcpProtocol && flags.value == 0x0200 && flags.mask == 0x1200) {
    filter.matchTcpInitIs(true);
    return true;
  }
  if (proto.value == icmpProtocol && flags.mask == 0xff00 && (flags.value & 0xff) == 0) {
    filter.icmpTypeIs({flags.value >> 8, flags.value >> 8});
    return true;
  }
  return false;
}

/// What a line says, and no rule can.
class CannotRead : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

/// Fills the filter from a line. Returns false if it carries flags that were not used.
bool readRule(Line line, FlagsMode mode, Naxel::RuleFilter& filter) {
  line.expect('@');
  if (auto const p = takePrefix(line); p.length()) filter.sourceIs()->addrIs(p);
  if (auto const p = takePrefix(line); p.length()) filter.destinationIs()->addrIs(p);
  if (auto const r = takePorts(line); !r.isAny()) filter.sportRangeIs(r);
  if (auto const r = takePorts(line); !r.isAny()) filter.dportRangeIs(r);
  ValueMask const proto = takeValueMask(line, 0xff);
  if (proto.mask != 0 && proto.mask != 0xff)
    throw std::invalid_argument("the protocol mask must be 0x00 or 0xff");
  if (proto.mask) filter.protoIs({proto.value, proto.value});
  ValueMask flags;
  if (!line.atEnd()) flags = takeValueMask(line, 0xffff);
  line.expectEnd();
  if (flags.mask == 0) return true;
  if (mode == FlagsMode::ignore) return false;
  if (!applyFlags(proto, flags, filter)) {
    char text[80];
    std::snprintf(text, sizeof text,
                  "a rule cannot say the flags 0x%04x/0x%04x of protocol 0x%02x/0x%02x",
                  flags.value, flags.mask, proto.value, proto.mask);
    throw CannotRead(text);
  }
  return true;
}

}  // namespace

void readClassBench(RuleReading& reading) {
  auto const acl = reading.aclIs(baseName(reading.path()), Lumox::ipv4(), {});
  size_t unused = 0;
  uint32_t index = 0;
  size_t lineNumber = 0;
  for (std::string_view rest = reading.content(); !rest.empty();) {
    ++lineNumber;
    size_t const newline = rest.find('\n');
    std::string_view const text = rest.substr(0, newline);
    rest.remove_prefix(newline == std::string_view::npos ? rest.size() : newline + 1);
    if (text.find_first_not_of(blanks) == std::string_view::npos) continue;
    ++reading.counts().read;
    Naxel::RuleConfig& rule = reading.ruleIs(*acl, index, "r" + std::to_string(index),
                                             {0, {lineNumber, 0}, index, false, {}});
    try {
      if (!readRule(Line(text), reading.options().flags, *rule.ruleFilterIs())) ++unused;
      ++reading.counts().compiled;
    } catch (CannotRead const& e) {
      ++reading.counts().reported;
      ++reading.counts().leftOut;
      acl->ruleByNameDel(rule.name());
      reading.unsupported({{lineNumber, 0}}, e.what());
    } catch (std::invalid_argument const& e) {
      ++reading.counts().reported;
      reading.error({{lineNumber, 0}}, "syntax", e.what());
    }
    ++index;
  }
  if (unused)
    reading.note({}, "unused-flags",
                 std::to_string(unused) + (unused == 1 ? " rule carries" : " rules carry") +
                     " flags that are not used");
}

}  // namespace NaxelTool
