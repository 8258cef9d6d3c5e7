#include "server/maintenance/clock.h"

#include <sys/time.h>

#include <ctime>

#include "protocol/result_codes.h"
#include "server/base/device.h"

constexpr char RTC_DEVICE[] = "/dev/misc/rtc";

// The driver's `struct rtc_time` and requests (linux/rtc.h).
struct RtcTime {
  int32_t second, minute, hour;
  int32_t day;    // of the month, from 1
  int32_t month;  // from 0
  int32_t year;   // since 1900
  int32_t weekday, day_of_year, daylight_saving;
};
static_assert(sizeof(RtcTime) == 36);

constexpr unsigned long RTC_READ_TIME = 0x80247009;   // RTC_RD_TIME
constexpr unsigned long RTC_WRITE_TIME = 0x4024700A;  // RTC_SET_TIME

constexpr uint32_t FIRST_YEAR = 1900;
// 1 January 2000, 00:00:00.
constexpr RtcTime RESET_TIME = {0, 0, 0, 1, 0, 100, 0, 0, 0};

int32_t GetRtcTime(protocol::Moment& time) {
  return WithDevice(RTC_DEVICE, O_RDONLY, GENERAL_FAILURE, [&](int rtc) {
    RtcTime driver_time = {};
    if (IssueRequest(rtc, RTC_READ_TIME, &driver_time) < 0) return GENERAL_FAILURE;
    time.year = static_cast<uint32_t>(driver_time.year) + FIRST_YEAR;
    time.month = static_cast<uint32_t>(driver_time.month) + 1;
    time.day = static_cast<uint32_t>(driver_time.day);
    time.hour = static_cast<uint32_t>(driver_time.hour);
    time.minute = static_cast<uint32_t>(driver_time.minute);
    time.second = static_cast<uint32_t>(driver_time.second);
    return SUCCESS;
  });
}

int32_t SetRtcTime(const protocol::Moment& time) {
  return WithDevice(RTC_DEVICE, O_WRONLY, GENERAL_FAILURE, [&](int rtc) {
    RtcTime driver_time = {};
    driver_time.second = static_cast<int32_t>(time.second);
    driver_time.minute = static_cast<int32_t>(time.minute);
    driver_time.hour = static_cast<int32_t>(time.hour);
    driver_time.day = static_cast<int32_t>(time.day);
    // The host may send any word, and the driver is to see what it makes of it: the differences may wrap.
    driver_time.month = static_cast<int32_t>(time.month - 1);
    driver_time.year = static_cast<int32_t>(time.year - FIRST_YEAR);
    return IssueRequest(rtc, RTC_WRITE_TIME, &driver_time) < 0 ? GENERAL_FAILURE : SUCCESS;
  });
}

int32_t ResetClock() {
  WithDevice(RTC_DEVICE, O_WRONLY, GENERAL_FAILURE, [](int rtc) {
    RtcTime time = {};
    if (IssueRequest(rtc, RTC_READ_TIME, &time) < 0) return GENERAL_FAILURE;
    time = RESET_TIME;
    IssueRequest(rtc, RTC_WRITE_TIME, &time);
    return SUCCESS;
  });
  tm date = {};
  date.tm_mday = RESET_TIME.day;
  date.tm_mon = RESET_TIME.month;
  date.tm_year = RESET_TIME.year;
  timeval now = {};
  now.tv_sec = mktime(&date);
  settimeofday(&now, nullptr);
  return SUCCESS;
}
