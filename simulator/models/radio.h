// Emulates the FM radio /dev/v4l/radio0 with Video4Linux 1's records as a 32-bit kernel lays them out: a
// tuner for 87.5 to 108 MHz in steps of 1/16 MHz, and the stations around the phone.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/phone/device_descriptors.h"
#include "simulator/phone/device_model.h"

namespace simulator {

class Radio : public DeviceModel {
 public:
  struct Station {
    uint32_t frequency;  // 1/16 MHz, as the driver counts
    uint16_t strength;
    bool stereo;
  };
  struct State {
    std::vector<Station> stations;
    uint16_t noise = 1200;  // the signal between the stations
    uint32_t frequency = 1400;
    uint16_t volume = 0;
    bool muted = true;
    bool stereo = false;          // what the program wants
    int32_t extra[2] = {};        // the driver's private request
    bool writes_nothing = false;  // requests succeed, and their answers never come
  };

  explicit Radio(PhoneServices& phone);
  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
  RequestAnswer Request(DriverRequest& request) override;
  std::vector<ModelCommand> Commands() override;

  // What people read: the driver counts in 1/16 MHz.
  static double Megahertz(uint32_t frequency) {
    return frequency / 16.0;
  }

  uint16_t Signal() const;  // at the tuned frequency

  State state;

 private:
  bool HearsStereo() const;
  RequestAnswer SetFrequency(DriverRequest& request);
  RequestAnswer SetAudio(DriverRequest& request);
  RequestAnswer SetExtra(DriverRequest& request);
  RequestAnswer GetTuner(DriverRequest& request);
  template <typename Record>
  RequestAnswer Deliver(DriverRequest& request, const Record& record);
  std::string Command(const std::vector<std::string>& words);

  DeviceMemory device_{0};
};

}  // namespace simulator
