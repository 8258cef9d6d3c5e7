// Emulates the keypad /dev/input/event0: input events of a 32-bit kernel, which wait in the driver until they
// are read.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "posix/file_descriptor.h"
#include "simulator/phone/device_model.h"

namespace simulator {

class Keypad : public DeviceModel {
 public:
  struct State {
    size_t event_bytes = 16;  // fewer: events come short
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

}  // namespace simulator
