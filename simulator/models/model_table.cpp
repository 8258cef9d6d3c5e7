#include "simulator/models/model_table.h"

#include "simulator/models/backlight.h"
#include "simulator/models/bluetooth_tool.h"
#include "simulator/models/capture_device.h"
#include "simulator/models/flash_partitions.h"
#include "simulator/models/framebuffer.h"
#include "simulator/models/gpio.h"
#include "simulator/models/gsm_uart_line.h"
#include "simulator/models/host_port.h"
#include "simulator/models/keypad.h"
#include "simulator/models/launcher.h"
#include "simulator/models/led.h"
#include "simulator/models/media_player.h"
#include "simulator/models/memory_card.h"
#include "simulator/models/modem_at_port.h"
#include "simulator/models/modem_control_port.h"
#include "simulator/models/modem_data_port.h"
#include "simulator/models/modem_memory.h"
#include "simulator/models/motor.h"
#include "simulator/models/one_time_area.h"
#include "simulator/models/radio.h"
#include "simulator/models/real_time_clock.h"
#include "simulator/models/sound.h"
#include "simulator/models/standard_devices.h"
#include "simulator/models/standby.h"
#include "simulator/models/tools.h"
#include "simulator/models/touch_panel.h"

namespace simulator {
namespace {

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
              Backlight,         //
              Motor,             //
              Led,               //
              GsmUartLine,       //
              Standby,           //
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
