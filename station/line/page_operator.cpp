#include "station/line/page_operator.h"

#include <algorithm>
#include <atomic>

#include "station/link/interruption.h"

namespace station {

namespace {

std::uint64_t NextNumber() {
  static std::atomic<std::uint64_t> last = 0;
  return ++last;
}

}  // namespace

void PageOperator::Ask(const std::string&, const std::string&, std::chrono::milliseconds time_limit,
                       Answer& answer) {
  {
    const std::lock_guard lock(mutex_);
    open_ = OpenQuestion{NextNumber(), answer.question};
    given_.reset();
  }
  changed_();
  const auto given = WaitForReply(time_limit);
  changed_();
  answer.reply = given ? given->reply : Answer::Reply::Silence;
  answer.by = given ? given->by : "";
  answer.at = given ? given->at : std::time(nullptr);
  if (!given) CheckInterruption();
}

std::optional<PageOperator::Given> PageOperator::WaitForReply(std::chrono::milliseconds time_limit) {
  // The run's stop has a descriptor and no condition variable: it is looked for this often.
  constexpr std::chrono::milliseconds LOOK{50};
  const auto end = std::chrono::steady_clock::now() + time_limit;
  std::unique_lock lock(mutex_);
  while (!given_ && !Interrupted()) {
    const auto now = std::chrono::steady_clock::now();
    if (now >= end) break;
    answered_.wait_until(lock, std::min(end, now + LOOK));
  }
  open_.reset();
  return given_;
}

std::optional<OpenQuestion> PageOperator::Open() const {
  const std::lock_guard lock(mutex_);
  return given_ ? std::nullopt : open_;
}

bool PageOperator::Reply(std::uint64_t question, Answer::Reply reply, const std::string& by) {
  const std::lock_guard lock(mutex_);
  if (!open_ || open_->number != question || given_) return false;
  given_ = Given{reply, by, std::time(nullptr)};
  answered_.notify_all();
  return true;
}

}  // namespace station
