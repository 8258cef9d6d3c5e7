#include "simulator/models/model_table.h"

#include <cerrno>

#include "simulator/models/bluetooth_tool.h"
#include "simulator/models/capture_device.h"
#include "simulator/models/controls.h"
#include "simulator/models/flash.h"
#include "simulator/models/front_panel.h"
#include "simulator/models/memory_card.h"
#include "simulator/models/modem_at_port.h"
#include "simulator/models/modem_driver.h"
#include "simulator/models/programs.h"
#include "simulator/models/radio.h"
#include "simulator/models/real_time_clock.h"
#include "simulator/models/serial_ports.h"
#include "simulator/models/sound.h"

namespace simulator {
namespace {

// The devices that every system has. The PC's own do the same.
class StandardDevices : public DeviceModel {
 public:
  using DeviceModel::DeviceModel;
  std::vector<std::string> Paths() const override {
    return {"/dev/null", "/dev/zero", "/dev/full", "/dev/random", "/dev/urandom"};
  }
  OpenAnswer Open(const OpenCall& call) override {
    posix::FileDescriptor device(open(call.path.c_str(), call.ModeFlags() | O_CLOEXEC));
    if (!device.IsOpen()) return OpenAnswer::Refusal(errno);
    return OpenAnswer::PlainDescriptor(std::move(device));
  }
};

template <typename... Model>
std::vector<std::unique_ptr<DeviceModel>> Make(PhoneServices& phone) {
  std::vector<std::unique_ptr<DeviceModel>> models;
  (models.push_back(std::make_unique<Model>(phone)), ...);
  return models;
}

}  // namespace

std::vector<std::unique_ptr<DeviceModel>> MakeModels(PhoneServices& phone) {
  return Make<StandardDevices,   //
              Tools,             //
              HostPort,          //
              Gpio,              //
              Framebuffer,       //
              TextControls,      //
              Sound,             //
              MediaPlayer,       //
              Keypad,            //
              TouchPanel,        //
              Radio,             //
              CaptureDevice,     //
              OneTimeArea,       //
              FlashPartitions,   //
              ModemMemory,       //
              ModemControlPort,  //
              ModemAtPort,       //
              ModemDataPort,     //
              BluetoothTool,     //
              RealTimeClock,     //
              MemoryCard,        //
              Launcher>(phone);
}

}  // namespace simulator
