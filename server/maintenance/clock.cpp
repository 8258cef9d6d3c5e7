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

int32_t GetRtcTime(uint32_t* year, uint32_t* month, uint32_t* day, uint32_t* hour, uint32_t* minute,
                   uint32_t* second) {
  return WithDevice(RTC_DEVICE, O_RDONLY, GENERAL_FAILURE, [&](int rtc) {
    RtcTime time = {};
    if (IssueRequest(rtc, RTC_READ_TIME, &time) < 0) return GENERAL_FAILURE;
    *year = static_cast<uint32_t>(time.year) + FIRST_YEAR;
    *month = static_cast<uint32_t>(time.month) + 1;
    *day = static_cast<uint32_t>(time.day);
    *hour = static_cast<uint32_t>(time.hour);
    *minute = static_cast<uint32_t>(time.minute);
    *second = static_cast<uint32_t>(time.second);
    return SUCCESS;
  });
}

int32_t SetRtcTime(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute, int32_t second) {
  return WithDevice(RTC_DEVICE, O_WRONLY, GENERAL_FAILURE, [&](int rtc) {
    RtcTime time = {};
    time.second = second;
    time.minute = minute;
    time.hour = hour;
    time.day = day;
    // The host may send any word, and the driver checks the values. So the differences may wrap.
    time.month = static_cast<int32_t>(static_cast<uint32_t>(month) - 1);
    time.year = static_cast<int32_t>(static_cast<uint32_t>(year) - FIRST_YEAR);
    return IssueRequest(rtc, RTC_WRITE_TIME, &time) < 0 ? GENERAL_FAILURE : SUCCESS;
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
