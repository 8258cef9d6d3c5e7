#include "simulator/phone/journal.h"

#include <utility>

namespace simulator {

JournalFilter OfKind(std::initializer_list<JournalKind> kinds) {
  return [wanted = std::vector<JournalKind>(kinds)](const JournalEntry& entry) {
    for (JournalKind kind : wanted) {
      if (entry.kind == kind) return true;
    }
    return false;
  };
}

JournalFilter AtPath(std::string path) {
  return [path = std::move(path)](const JournalEntry& entry) { return entry.path == path; };
}

JournalFilter Below(std::string path_start) {
  return [path_start = std::move(path_start)](const JournalEntry& entry) {
    return entry.path.starts_with(path_start);
  };
}

JournalFilter LineIs(std::string line) {
  return [line = std::move(line)](const JournalEntry& entry) { return entry.Line() == line; };
}

JournalFilter operator&&(JournalFilter left, JournalFilter right) {
  return [left = std::move(left), right = std::move(right)](const JournalEntry& entry) {
    return left(entry) && right(entry);
  };
}

JournalFilter operator||(JournalFilter left, JournalFilter right) {
  return [left = std::move(left), right = std::move(right)](const JournalEntry& entry) {
    return left(entry) || right(entry);
  };
}

void Journal::Add(JournalEntry entry) {
  const std::lock_guard lock(mutex_);
  entry.time =
      std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start_);
  entries_.push_back(std::move(entry));
  if (listener_) listener_(entries_.back());
  added_.notify_all();
}

size_t Journal::Mark() const {
  const std::lock_guard lock(mutex_);
  return entries_.size();
}

std::vector<JournalEntry> Journal::Entries(size_t since, const JournalFilter& filter) const {
  const std::lock_guard lock(mutex_);
  std::vector<JournalEntry> passed;
  for (size_t index = since; index < entries_.size(); ++index) {
    if (!filter || filter(entries_[index])) passed.push_back(entries_[index]);
  }
  return passed;
}

std::vector<std::string> Journal::Lines(size_t since, const JournalFilter& filter) const {
  std::vector<std::string> lines;
  for (const JournalEntry& entry : Entries(since, filter)) lines.push_back(entry.Line());
  return lines;
}

std::optional<JournalEntry> Journal::WaitFor(const JournalFilter& filter, size_t since,
                                             std::chrono::milliseconds time_out) const {
  const auto deadline = std::chrono::steady_clock::now() + time_out;
  std::unique_lock lock(mutex_);
  size_t next = since;
  while (true) {
    for (; next < entries_.size(); ++next) {
      if (!filter || filter(entries_[next])) return entries_[next];
    }
    if (added_.wait_until(lock, deadline) == std::cv_status::timeout && next >= entries_.size()) {
      return std::nullopt;
    }
  }
}

void Journal::SetListener(std::function<void(const JournalEntry&)> listener) {
  const std::lock_guard lock(mutex_);
  listener_ = std::move(listener);
}

}  // namespace simulator
