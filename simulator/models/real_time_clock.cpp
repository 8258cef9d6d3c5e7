#include "simulator/models/real_time_clock.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cstdio>
#include <limits>
#include <optional>
#include <stdexcept>

namespace simulator {
namespace {

using std::chrono::floor;
using std::chrono::seconds;
using std::chrono::steady_clock;
using std::chrono::sys_days;
using std::chrono::sys_seconds;
using std::chrono::system_clock;

RtcRecord ToRecord(sys_seconds time) {
  const auto day = floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  const auto new_year = sys_days(date.year() / std::chrono::January / 1);
  RtcRecord record{};
  record.second = static_cast<int32_t>(clock.seconds().count());
  record.minute = static_cast<int32_t>(clock.minutes().count());
  record.hour = static_cast<int32_t>(clock.hours().count());
  record.day = static_cast<int32_t>(static_cast<unsigned>(date.day()));
  record.month = static_cast<int32_t>(static_cast<unsigned>(date.month())) - 1;
  record.year = static_cast<int>(date.year()) - 1900;
  record.weekday = static_cast<int32_t>(std::chrono::weekday(day).c_encoding());
  record.day_of_year = static_cast<int32_t>((day - new_year).count());
  return record;
}

bool IsBelow(int32_t value, int32_t limit) {
  return value >= 0 && value < limit;
}

// What the driver takes: from 1970 on, dates and times of the calendar. It looks at neither weekday nor day
// of the year.
std::optional<sys_seconds> FromRecord(const RtcRecord& record) {
  constexpr int32_t LAST_YEAR = 32767 - 1900;  // of the calendar here; the driver's own lies beyond
  if (record.year < 70 || record.year > LAST_YEAR || !IsBelow(record.month, 12)) return std::nullopt;
  if (!IsBelow(record.hour, 24) || !IsBelow(record.minute, 60) || !IsBelow(record.second, 60))
    return std::nullopt;
  if (!IsBelow(record.day, 32)) return std::nullopt;
  const std::chrono::year_month_day date(std::chrono::year(record.year + 1900),
                                         std::chrono::month(static_cast<unsigned>(record.month + 1)),
                                         std::chrono::day(static_cast<unsigned>(record.day)));
  if (!date.ok()) return std::nullopt;
  return sys_days(date) + std::chrono::hours(record.hour) + std::chrono::minutes(record.minute) +
         seconds(record.second);
}

}  // namespace

RealTimeClock::RealTimeClock(PhoneServices& phone) : DeviceModel(phone) {
  Set(floor<seconds>(system_clock::now()));
}

void RealTimeClock::Set(sys_seconds time) {
  state.set_to = time;
  state.set_at = steady_clock::now();
}

sys_seconds RealTimeClock::Now() const {
  if (!state.ticks) return state.set_to;
  return state.set_to + floor<seconds>(steady_clock::now() - state.set_at);
}

OpenAnswer RealTimeClock::Open(const OpenCall& call) {
  return OpenAnswer::Descriptor(device_.Open(call));
}

RequestAnswer RealTimeClock::Request(DriverRequest& request) {
  if (state.error != 0) return RequestAnswer::Refusal(state.error);
  if (request.number == RTC_READ_REQUEST) {
    return request.WriteRecord(ToRecord(Now())) ? RequestAnswer::Success() : RequestAnswer::Refusal(EFAULT);
  }
  if (request.number == RTC_SET_REQUEST) {
    const auto record = request.ReadRecord<RtcRecord>();
    if (!record) return RequestAnswer::Refusal(EFAULT);
    const auto time = FromRecord(*record);
    if (!time) return RequestAnswer::Refusal(EINVAL);
    Set(*time);
    return RequestAnswer::Success();
  }
  return RequestAnswer::Refusal(ENOTTY);
}

std::string RealTimeClock::Command(const std::vector<std::string>& words) {
  if (words.size() == 2) {
    RtcRecord record{};
    char end = 0;
    const std::string text = words[0] + " " + words[1];
    const int fields = std::sscanf(text.c_str(), "%d-%d-%d %d:%d:%d%c", &record.year, &record.month,
                                   &record.day, &record.hour, &record.minute, &record.second, &end);
    record.year -= 1900;
    record.month -= 1;
    const auto time = FromRecord(record);
    if (fields != 6 || !time)
      throw std::invalid_argument("the clock takes a date and time as 2006-01-15 08:30:00");
    Set(*time);
  } else if (words == std::vector<std::string>{"stop"} || words == std::vector<std::string>{"run"}) {
    Set(Now());
    state.ticks = words[0] == "run";
  } else if (!words.empty()) {
    throw std::invalid_argument("the clock takes a date and time, \"stop\", \"run\" or nothing");
  }
  return fmt::format("{:%Y-%m-%d %H:%M:%S}{}\n", fmt::gmtime(system_clock::to_time_t(Now())),
                     state.ticks ? "" : ", stopped");
}

std::vector<ModelCommand> RealTimeClock::Commands() {
  return {{"clock",
           "[DATE TIME | stop | run]",
           "tells or sets the real-time clock",
           [this](const std::vector<std::string>& words) { return Command(words); },
           {},
           {{"stop"}}}};
}

}  // namespace simulator
