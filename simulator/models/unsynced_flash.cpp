#include "simulator/models/unsynced_flash.h"

#include <algorithm>

namespace simulator {

void UnsyncedFlash::Write(uint64_t place, std::string_view bytes) {
  while (!bytes.empty()) {
    const size_t page = place / PAGE;
    const size_t offset = place % PAGE;
    const size_t size = std::min(bytes.size(), PAGE - offset);
    std::vector<std::string>& contents = unsynced_[page];
    std::string content = contents.empty() ? synced_.substr(page * PAGE, PAGE) : contents.back();
    content.replace(offset, size, bytes.substr(0, size));
    contents.push_back(std::move(content));
    bytes.remove_prefix(size);
    place += size;
  }
}

void UnsyncedFlash::Sync() {
  for (const auto& [page, contents] : unsynced_) synced_.replace(page * PAGE, PAGE, contents.back());
  unsynced_.clear();
}

std::string UnsyncedFlash::AfterPowerCut(std::mt19937_64& random) const {
  enum Reached { NOTHING, EVERYTHING, KINDS = 4 };  // otherwise each page by itself
  const uint64_t reached = random() % KINDS;
  std::string left = synced_;
  for (const auto& [page, contents] : unsynced_) {
    const size_t count = contents.size();
    const size_t which = reached == NOTHING ? 0 : reached == EVERYTHING ? count : random() % (count + 1);
    if (which > 0) left.replace(page * PAGE, PAGE, contents[which - 1]);
    if (reached == EVERYTHING || reached == NOTHING || which == count) continue;
    const size_t torn = random() % PAGE;
    left.replace(page * PAGE, torn, contents[which], 0, torn);
  }
  return left;
}

}  // namespace simulator
