// Emulates the touch panel /dev/touchscreen/tsc2046: records of raw readings, delivered to every program that
// has the device open at the time of the touch.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "posix/file_descriptor.h"
#include "simulator/phone/device_model.h"

namespace simulator {

// As the driver delivers it: readings of the panel's converter.
struct TouchReading {
  uint32_t x, y;
  uint32_t pen;  // 0 up, 1 down
};
static_assert(sizeof(TouchReading) == 12);

class TouchPanel : public DeviceModel {
 public:
  struct State {
    size_t reading_bytes = sizeof(TouchReading);  // fewer: readings come short
  };

  using DeviceModel::DeviceModel;
  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
  std::vector<ModelCommand> Commands() override;

  // Gives how many openings of the device got the reading.
  size_t Deliver(const TouchReading& reading);
  // What the panel reads for a pen at a pixel of the screen.
  static TouchReading ReadingAt(int32_t screen_x, int32_t screen_y);

  State state;

 private:
  std::string Touch(const std::vector<std::string>& words);

  std::vector<posix::FileDescriptor> readers_;
};

}  // namespace simulator
