// What is fuzzed by direct call: a name, and a function that takes any bytes. The functions are tried by
// libFuzzer (tools/fuzz), and by an ordinary test with the inputs kept in corpus/NAME/.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

// An input, taken piece by piece. After its end come zeros.
class Input {
 public:
  explicit Input(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  uint8_t Byte() {
    if (bytes_.empty()) return 0;
    const uint8_t byte = bytes_.front();
    bytes_ = bytes_.subspan(1);
    return byte;
  }
  uint32_t Word() {
    uint32_t word = 0;
    for (int shift = 0; shift < 32; shift += 8) word |= uint32_t{Byte()} << shift;
    return word;
  }
  std::vector<uint8_t> Bytes(size_t count) {
    std::vector<uint8_t> taken(count);
    for (uint8_t& byte : taken) byte = Byte();
    return taken;
  }
  // All that is left.
  std::string Text() {
    std::string text(bytes_.begin(), bytes_.end());
    bytes_ = {};
    return text;
  }
  // Up to the next line end.
  std::string Line() {
    std::string line;
    while (!bytes_.empty()) {
      const char next = static_cast<char>(Byte());
      if (next == '\n') break;
      line += next;
    }
    return line;
  }
  bool IsEmpty() const {
    return bytes_.empty();
  }

 private:
  std::span<const uint8_t> bytes_;
};

struct FuzzTarget {
  const char* name;
  void (*run)(Input input);
};

// Each file of targets adds its own: `const bool added = AddTargets({...});`
std::vector<FuzzTarget>& Targets();
inline bool AddTargets(std::initializer_list<FuzzTarget> targets) {
  Targets().insert(Targets().end(), targets);
  return true;
}

// A target's own expectation.
inline void Check(bool holds, const char* what) {
  if (holds) return;
  fprintf(stderr, "does not hold: %s\n", what);
  abort();
}
