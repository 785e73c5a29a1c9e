#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// A fuzz target takes any bytes and must neither crash, nor hang, nor break a sanitizer's rule; what must
/// hold besides it checks with `require`. `FUZZ_TARGET(name) { ... }` has them in `input`. Built with
/// libFuzzer each target is a program of its own; elsewhere all of them are one program that replays the
/// corpora.
namespace fuzz {

/// Takes an input apart. Where it has ended there are zeros.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : m_bytes(data, data + size) {}

  bool empty() const { return m_at == m_bytes.size(); }
  std::size_t left() const { return m_bytes.size() - m_at; }
  std::uint8_t byte() { return empty() ? std::uint8_t{0} : m_bytes[m_at++]; }
  std::uint32_t below(std::uint32_t limit) { return byte() % limit; }
  int number() {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
      value = value << 8U | byte();
    }
    return static_cast<int>(value);
  }
  std::vector<unsigned char> bytes(std::size_t count) {
    const std::size_t taken = std::min(count, left());
    const auto first = m_bytes.begin() + static_cast<std::ptrdiff_t>(m_at);
    m_at += taken;
    return {first, first + static_cast<std::ptrdiff_t>(taken)};
  }
  std::vector<unsigned char> rest() { return bytes(left()); }
  std::string text(std::size_t count) {
    const auto taken = bytes(count);
    return {taken.begin(), taken.end()};
  }

 private:
  std::vector<unsigned char> m_bytes;
  std::size_t m_at = 0;
};

/// Ends the program, as a crash does, if `holds` is false.
void require(bool holds, const char* what);

using Function = void (*)(Input input);
int enroll(const char* name, Function function);
const std::vector<std::pair<std::string, Function>>& targets();

}  // namespace fuzz

#define FUZZ_TARGET(name)                                               \
  static void name##Target(fuzz::Input input);                          \
  static const int name##Enrolled = fuzz::enroll(#name, &name##Target); \
  static void name##Target([[maybe_unused]] fuzz::Input input)
