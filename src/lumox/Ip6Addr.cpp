#include "lumox/Ip6Addr.h"

#include <array>
#include <charconv>

namespace Lumox {

namespace {

using Groups = std::array<uint16_t, 8>;

bool isHex(char ch) {
  return (ch >= '0' && ch <= '9') || (ch >= 'a' && ch <= 'f') || (ch >= 'A' && ch <= 'F');
}

/// Parser of one address whose text is known from end to end.
class Reader {
 public:
  Reader(Mox::TextCursor const& where, std::string_view text) : where_(where), text_(text) {}

  Groups read() {
    Groups head{};
    Groups tail{};
    size_t const headCount = readGroups(head, true);
    bool const gap = text_.starts_with("::");
    size_t tailCount = 0;
    if (gap) {
      text_.remove_prefix(2);
      tailCount = readGroups(tail, false);
    }
    // "::" stands for at least one group of zeros.
    if (!text_.empty() || headCount + tailCount > (gap ? 7u : 8u) || (!gap && headCount != 8))
      fail();
    for (size_t i = 0; i < tailCount; ++i) head[8 - tailCount + i] = tail[i];
    return head;
  }

 private:
  [[noreturn]] void fail() const { where_.fail("expected an IPv6 address"); }

  /// Reads groups separated by single colons; stops before "::" or at the end of the text.
  size_t readGroups(Groups& groups, bool first) {
    size_t count = 0;
    if (text_.empty() || text_.starts_with("::")) {
      if (!first && !text_.empty()) fail();
      return 0;
    }
    for (;;) {
      if (count == 8) fail();
      size_t digits = 0;
      while (digits < text_.size() && isHex(text_[digits])) ++digits;
      if (digits < text_.size() && text_[digits] == '.') return count + readEmbedded(groups, count);
      if (digits == 0 || digits > 4) fail();
      uint16_t value = 0;
      std::from_chars(text_.data(), text_.data() + digits, value, 16);
      groups[count++] = value;
      text_.remove_prefix(digits);
      if (text_.empty() || text_.starts_with("::")) return count;
      if (text_[0] != ':') fail();
      text_.remove_prefix(1);
    }
  }
  /// The last two groups as an IPv4 address.
  size_t readEmbedded(Groups& groups, size_t at) {
    if (at > 6) fail();
    Mox::TextCursor cursor(text_);
    uint32_t const addr = readIp4(cursor);
    if (!cursor.atEnd()) fail();
    text_ = {};
    groups[at] = static_cast<uint16_t>(addr >> 16);
    groups[at + 1] = static_cast<uint16_t>(addr);
    return 2;
  }

  Mox::TextCursor const& where_;
  std::string_view text_;
};

void writeHex(std::string& out, uint16_t group) {
  char buffer[4];
  auto const end = std::to_chars(buffer, buffer + sizeof buffer, group, 16).ptr;
  out.append(buffer, end);
}

}  // namespace

uint32_t readIp4(Mox::TextCursor& c) {
  uint32_t addr = 0;
  for (int i = 0; i < 4; ++i) {
    if (i > 0) c.expect(".");
    addr = addr << 8 | static_cast<uint32_t>(c.takeNumber(255));
  }
  return addr;
}

void writeIp4(std::string& out, uint32_t addr) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    out += std::to_string(addr >> shift & 255);
    if (shift > 0) out += '.';
  }
}

}  // namespace Lumox

void Mox::TextForm<Lumox::Ip6Addr>::read(TextCursor& c, Lumox::Ip6Addr& v) {
  // Errors are reported at the beginning of the address, which is read as a whole.
  TextCursor const before = c;
  std::string_view const text =
      c.takeWhile([](char ch) { return Lumox::isHex(ch) || ch == ':' || ch == '.'; });
  auto const g = Lumox::Reader(before, text).read();
  auto const word = [&](size_t i) {
    return uint64_t{g[i]} << 48 | uint64_t{g[i + 1]} << 32 | uint64_t{g[i + 2]} << 16 | g[i + 3];
  };
  v = Lumox::Ip6Addr(word(0), word(4));
}

void Mox::TextForm<Lumox::Ip6Addr>::write(std::string& out, Lumox::Ip6Addr const& v) {
  // The longest run of at least two zero groups is shortened, the first of several.
  unsigned runStart = 8;
  unsigned runLength = 1;
  for (unsigned i = 0; i < 8;) {
    unsigned j = i;
    while (j < 8 && v.group(j) == 0) ++j;
    if (j - i > runLength) {
      runStart = i;
      runLength = j - i;
    }
    i = j == i ? i + 1 : j;
  }
  if (v.hi() == 0 && v.lo() >> 32 == 0xffff) {  // IPv4-mapped
    out += "::ffff:";
    return Lumox::writeIp4(out, static_cast<uint32_t>(v.lo()));
  }
  for (unsigned i = 0; i < 8;) {
    if (i == runStart) {
      out += "::";
      i += runLength;
      continue;
    }
    if (i > 0 && i != runStart + runLength) out += ':';
    Lumox::writeHex(out, v.group(i));
    ++i;
  }
}
