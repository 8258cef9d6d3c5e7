// What a person sees and touches: the screen, the keys, the touch panel.
#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "posix/file_descriptor.h"
#include "simulator/models/driver_records.h"
#include "simulator/phone/device_descriptors.h"
#include "simulator/phone/device_model.h"

namespace simulator {

// Emulates the LCD's framebuffer /dev/fb/0: 240 x 320 pixels, RGB565, rows from top to bottom, mapped or
// written.
class Framebuffer : public DeviceModel {
 public:
  static constexpr unsigned WIDTH = 240;
  static constexpr unsigned HEIGHT = 320;

  struct State {
    bool refuses_mapping = false;  // opens, but mmap fails
  };
  State state;

  using DeviceModel::DeviceModel;

  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
  std::vector<ModelCommand> Commands() override;

  // All pixels as they are now, row after row.
  std::vector<uint16_t> Pixels() const;
  std::string Png() const;  // the bytes of a PNG file
  // The memory itself, for a program that looks at it: little-endian words, row after row.
  posix::FileDescriptor OpenToRead() const;

 private:
  DeviceMemory memory_{size_t{WIDTH} * HEIGHT * 2};
};

// Emulates the keypad /dev/input/event0: input events of a 32-bit kernel, which wait in the driver until they
// are read.
class Keypad : public DeviceModel {
 public:
  struct State {
    size_t event_bytes = 16;          // fewer: events come short
    std::vector<uint32_t> dead_keys;  // their values; pressing them does nothing
  };

  explicit Keypad(PhoneServices& phone);
  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
  std::vector<ModelCommand> Commands() override;

  // One event: the key in the value's upper half, its state in the low byte; 0 is a release.
  void PutEvent(uint32_t value);

  State state;

 private:
  std::string Press(const std::vector<std::string>& words);

  posix::FileDescriptor reading_, writing_;
};

// Emulates the touch panel /dev/touchscreen/tsc2046: records of raw readings, delivered to every program that
// has the device open at the time of the touch.
class TouchPanel : public DeviceModel {
 public:
  struct State {
    size_t reading_bytes = sizeof(TouchReading);  // fewer: readings come short
    uint32_t noise = 0;  // a reading is off by so much at most, either way, in each axis
  };

  using DeviceModel::DeviceModel;
  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
  std::vector<ModelCommand> Commands() override;

  // Returns how many openings of the device received the reading.
  size_t Deliver(const TouchReading& reading);
  // What the panel reads for a pen at a pixel of the screen.
  static TouchReading ReadingAt(int32_t screen_x, int32_t screen_y);

  State state;

 private:
  std::string Touch(const std::vector<std::string>& words);
  std::string TouchAt(const std::string& what, int64_t x, int64_t y);
  void AddNoise(uint32_t& value);

  bool dead_ = false;
  uint32_t chance_ = 1;
  std::list<posix::FileDescriptor> readers_;  // our ends; one goes when the phone has closed its end
};

}  // namespace simulator
