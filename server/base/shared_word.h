// A 32-bit word that the command thread and a test's own thread share without a lock.
#pragma once

#include <atomic>
#include <cstdint>

using SharedWord = std::atomic<int32_t>;
static_assert(sizeof(SharedWord) == sizeof(int32_t));

// Plain loads and stores on every machine. No order among several words is needed beyond what creating and
// joining the thread brings, and the phone's processor has no barriers or atomic instructions for more.
inline int32_t ReadWord(const SharedWord& word) {
  return word.load(std::memory_order_relaxed);
}

inline void WriteWord(SharedWord& word, int32_t value) {
  word.store(value, std::memory_order_relaxed);
}
