#include "simulator/phone_state.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <span>
#include <vector>

#include "protocol/selectors.h"
#include "simulator/models/bluetooth_tool.h"
#include "simulator/models/capture_device.h"
#include "simulator/models/controls.h"
#include "simulator/models/flash.h"
#include "simulator/models/front_panel.h"
#include "simulator/models/memory_card.h"
#include "simulator/models/modem_at_port.h"
#include "simulator/models/programs.h"
#include "simulator/models/radio.h"
#include "simulator/models/real_time_clock.h"
#include "simulator/models/serial_ports.h"
#include "simulator/models/sound.h"
#include "simulator/simulated_phone.h"

namespace simulator {
namespace {

using StateObject = nlohmann::ordered_json;

std::string Dump(const StateObject& object) {
  return object.dump(-1, ' ', false, StateObject::error_handler_t::replace) + "\n";
}

// The codec's mode by which the server chooses where the sound goes.
const char* SoundPath(const Sound& sound) {
  constexpr uint32_t MODE = 0x2244;
  const auto found = sound.state.controls.find(MODE);
  if (found == sound.state.controls.end() || found->second.size() < 2) return "none";
  switch (found->second[0] | found->second[1] << 8) {
    case 15:
      return "speaker";
    case 48:
      return "earpiece";
    case 768:
      return "headset";
    default:
      return "none";
  }
}

StateObject SoundState(const Sound& sound) {
  constexpr uint32_t SWITCH_OFF = 0x2242;
  const auto off = sound.state.controls.find(SWITCH_OFF);
  return {{"open", sound.OpenStreams()},
          {"path", SoundPath(sound)},
          {"off", off != sound.state.controls.end() && off->second[0] != 0},
          {"volume", sound.state.pcm_volume},
          {"recordings", sound.Recordings().size()}};
}

StateObject PlayerState(const MediaPlayer& player) {
  if (player.Playing().empty() || player.state.starts.empty()) return nullptr;
  return player.state.starts.back().arguments;
}

StateObject RadioState(const Radio& radio) {
  StateObject stations = StateObject::array();
  for (const Radio::Station& station : radio.state.stations) {
    stations.push_back({{"frequency", Radio::Megahertz(station.frequency)},
                        {"signal", station.strength},
                        {"stereo", station.stereo}});
  }
  return {{"frequency", Radio::Megahertz(radio.state.frequency)},
          {"signal", radio.Signal()},
          {"volume", radio.state.volume},
          {"muted", radio.state.muted},
          {"stations", std::move(stations)}};
}

StateObject ModemState(const ModemAtPort& modem) {
  StateObject lines = StateObject::array();
  for (const ModemAtPort::Line& line : modem.state.lines) {
    lines.push_back({{"from_phone", line.from_phone}, {"text", line.text}});
  }
  return {{"sim", modem.state.sim_inserted},
          {"signal", modem.state.signal},
          {"silent", modem.state.silent},
          {"lines", std::move(lines)}};
}

std::string PartitionBytes(SimulatedPhone& phone, std::string_view name) {
  const FlashPartition& partition = FindFlashPartition(name);
  return phone.Root().ReadFile(CharacterDevice(partition), partition.size);
}

bool Verifies(const std::string& record) {
  return RecordVerifies({reinterpret_cast<const uint8_t*>(record.data()), record.size()});
}

uint32_t WordAtOffset(const std::string& record, size_t offset) {
  uint32_t word = 0;
  for (size_t index = 0; index < 4 && offset + index < record.size(); ++index) {
    word |= static_cast<uint32_t>(static_cast<uint8_t>(record[offset + index])) << 8 * index;
  }
  return word;
}

bool IsErased(const std::string& bytes) {
  return bytes.find_first_not_of(static_cast<char>(ERASED)) == std::string::npos;
}

// Up to the first byte that is no character.
std::string LeadingText(std::string_view bytes) {
  const auto end =
      std::ranges::find_if(bytes, [](char character) { return character < 0x20 || character > 0x7E; });
  return {bytes.begin(), end};
}

StateObject PartitionCopy(SimulatedPhone& phone, std::string_view name) {
  const std::string record = PartitionBytes(phone, name);
  constexpr size_t WORD_OFFSET = 12;
  return {{"name", name},
          {"verifies", Verifies(record)},
          {"check_sum", WordAtOffset(record, 0)},
          {"word", WordAtOffset(record, WORD_OFFSET)}};
}

// The texts of the factory information, each ended by zero bytes.
StateObject FactoryTexts(const std::string& record) {
  StateObject texts = StateObject::array();
  for (size_t place = 0; place < record.size(); ++place) {
    const std::string text = LeadingText(std::string_view(record).substr(place));
    if (text.size() > 1) texts.push_back(text);
    place += text.size();
  }
  return texts;
}

// Of the chip's start-up script: the parameters of the record that sets the address.
std::string BluetoothAddress(const std::string& script) {
  constexpr std::string_view RECORD_START = "\x06\xFC\x06";
  const size_t place = script.find(RECORD_START);
  if (place == std::string::npos) return {};
  std::string text;
  for (const char byte : script.substr(place + RECORD_START.size(), BLUETOOTH_ADDRESS_SIZE)) {
    text += fmt::format("{}{:02X}", text.empty() ? "" : ":", static_cast<uint8_t>(byte));
  }
  return text;
}

// Fifteen packed decimal digits and their complement.
std::string Identity(const std::string& area) {
  constexpr size_t PACKED_SIZE = 8;
  if (IsErased(area.substr(0, 2 * PACKED_SIZE))) return {};
  std::string digits;
  for (size_t index = 0; index < PACKED_SIZE; ++index) {
    const auto pair = static_cast<uint8_t>(area[index]);
    if (static_cast<uint8_t>(~pair) != static_cast<uint8_t>(area[PACKED_SIZE + index])) return "damaged";
    digits += fmt::format("{:02X}", pair);
  }
  return digits.substr(0, IDENTITY_DIGITS);
}

}  // namespace

std::string StateAsJson(SimulatedPhone& phone) {
  StateObject state;
  phone.With<TextControls>([&](const TextControls& controls) {
    state["backlight"] = controls.BacklightLevel();
    state["motor"] = controls.MotorRuns();
    state["led"] = {{"colour", controls.LedColour()}, {"timing", controls.Value("/proc/cLED_wlpg/timing")}};
    state["uart_rx"] = controls.Value("/proc/gpio/gsm_uart_rx");
    state["standby_held"] = controls.StandbyHeld();
  });
  phone.With<Gpio>([&](const Gpio& gpio) {
    state["lines"] = gpio.state.lines;
    state["modem_state"] = gpio.state.modem_state;
    state["stop_flag"] = gpio.state.stop_flag;
  });
  phone.With<HostPort>([&](const HostPort& port) { state["plugged"] = port.state.plugged; });
  phone.With<Sound>([&](const Sound& sound) { state["sound"] = SoundState(sound); });
  phone.With<MediaPlayer>([&](const MediaPlayer& player) { state["player"] = PlayerState(player); });
  phone.With<Radio>([&](const Radio& radio) { state["radio"] = RadioState(radio); });
  phone.With<MemoryCard>([&](const MemoryCard& card) {
    state["card"] = {{"inserted", card.state.inserted},
                     {"read_only", card.state.read_only},
                     {"serial", card.state.serial_number}};
  });
  phone.With<ModemAtPort>([&](const ModemAtPort& modem) { state["modem"] = ModemState(modem); });
  phone.With<BluetoothTool>([&](BluetoothTool& tool) {
    state["bluetooth"] = StateObject::array();
    for (const auto& [line, printed] : tool.Calls())
      state["bluetooth"].push_back({{"line", line}, {"printed", printed}});
  });
  phone.With<RealTimeClock>(
      [&](const RealTimeClock& clock) { state["clock"] = fmt::format("{:%Y-%m-%d %H:%M:%S}", clock.Now()); });
  phone.With<TouchPanel>([&](const TouchPanel& panel) { state["touch_noise"] = panel.state.noise; });
  state["camera"] = phone.Command({"camera"});
  state["faults"] = phone.GetFaults().List();
  return Dump(state);
}

std::string RecordsAsJson(SimulatedPhone& phone) {
  const std::string one_time_area =
      phone.With<OneTimeArea>([](OneTimeArea& area) { return area.Settled().cells; });
  const std::string factory = PartitionBytes(phone, "Factory Info").substr(0, FACTORY_INFO_SIZE);
  StateObject records;
  records["identity"] = Identity(one_time_area);
  records["bluetooth"] = BluetoothAddress(PartitionBytes(phone, "Bluetooth Info"));
  records["factory"] = IsErased(factory) ? StateObject::array() : FactoryTexts(factory);
  records["partition"] = {PartitionCopy(phone, "Partition Info"), PartitionCopy(phone, "Partition Info Bak")};
  return Dump(records);
}

}  // namespace simulator
