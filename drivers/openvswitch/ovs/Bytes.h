#pragma once

/// Numbers in network byte order, into a string and out of a part of one. Reading never leaves what is there:
/// where it ends too early, reading fails once and for all, and whoever reads asks for that at the end.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace NaxelOvs {

template <class T>
void put(std::string& out, T value) {
  for (size_t i = sizeof(T); i-- > 0;) out += static_cast<char>(value >> (8 * i));
}
inline void putZeros(std::string& out, size_t count) { out.append(count, '\0'); }
/// Overwrites a number of 16 bits that lies wholly within `out`.
inline void put16At(std::string& out, size_t at, size_t value) {
  out[at] = static_cast<char>(value >> 8);
  out[at + 1] = static_cast<char>(value);
}
/// Fills up with zeros to a multiple of 8 bytes, counted from `start`.
inline void padTo8(std::string& out, size_t start) {
  putZeros(out, (8 - (out.size() - start) % 8) % 8);
}

class Reader {
 public:
  explicit Reader(std::string_view bytes) : rest_(bytes) {}

  template <class T>
  T get() {
    T value = 0;
    for (char c : bytes(sizeof(T))) value = static_cast<T>(value << 8 | static_cast<uint8_t>(c));
    return value;
  }
  /// The next so many bytes; none where there are fewer.
  std::string_view bytes(size_t count) {
    if (count > rest_.size()) {
      failed_ = true;
      rest_ = {};
      return {};
    }
    std::string_view const out = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return out;
  }
  void skip(size_t count) { static_cast<void>(bytes(count)); }
  std::string_view rest() const { return rest_; }
  bool failed() const { return failed_; }

 private:
  std::string_view rest_;
  bool failed_ = false;
};

}  // namespace NaxelOvs
