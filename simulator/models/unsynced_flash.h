// A flash partition behind a driver that keeps writes back until they are synced, as a block layer does.
#pragma once

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

class UnsyncedFlash {
 public:
  static constexpr size_t PAGE = 512;

  // `content` has whole pages.
  explicit UnsyncedFlash(std::string content) : synced_(std::move(content)) {}

  void Write(uint64_t place, std::string_view bytes);
  void Sync();
  // The content after a power cut now: all, nothing or any part of what was not synced has reached the flash,
  // in any order. A page holds one of the contents that it has had since the sync, or the beginning of one
  // before the rest of the one before.
  std::string AfterPowerCut(std::mt19937_64& random) const;

 private:
  std::string synced_;
  std::map<size_t, std::vector<std::string>> unsynced_;  // by page, its contents after each write, in order
};

}  // namespace simulator
