// The real-time clock /dev/misc/rtc with the Linux RTC driver's interface: it ticks from what it was set to,
// and refuses dates that do not exist. Starts with the PC's time.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "simulator/models/driver_records.h"
#include "simulator/phone/device_descriptors.h"
#include "simulator/phone/device_model.h"

namespace simulator {

constexpr uint32_t RTC_READ_REQUEST = 0x80247009;
constexpr uint32_t RTC_SET_REQUEST = 0x4024700A;

class RealTimeClock : public DeviceModel {
 public:
  struct State {
    std::chrono::sys_seconds set_to;                 // in the phone's time, whatever its zone
    std::chrono::steady_clock::time_point set_at{};  // since then it ticks
    bool ticks = true;                               // a clock whose oscillator is dead stands still
    int error = 0;                                   // errno of every request, for a driver in trouble
  };

  explicit RealTimeClock(PhoneServices& phone);
  std::vector<std::string> Paths() const override {
    return {"/dev/misc/rtc"};
  }
  OpenAnswer Open(const OpenCall& call) override;
  RequestAnswer Request(DriverRequest& request) override;
  std::vector<ModelCommand> Commands() override;

  void Set(std::chrono::sys_seconds time);
  std::chrono::sys_seconds Now() const;

  State state;

 private:
  std::string Command(const std::vector<std::string>& words);

  DeviceMemory device_{0};
};

}  // namespace simulator
