// A 32-bit word that a command and a thread of its own share without a lock.
#pragma once

#include <atomic>
#include <cstdint>

using SharedWord = std::atomic<int32_t>;
static_assert(sizeof(SharedWord) == sizeof(int32_t));

// Plain loads and stores on every machine: no order among several words is needed beyond what creating and
// joining the thread gives, and the phone's processor has neither barriers nor atomic instructions to give
// more.
inline int32_t ReadWord(const SharedWord& word) {
  return word.load(std::memory_order_relaxed);
}

inline void WriteWord(SharedWord& word, int32_t value) {
  word.store(value, std::memory_order_relaxed);
}
