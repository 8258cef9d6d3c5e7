#include "simulator/models/controls.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "simulator/phone/device_descriptors.h"
#include "simulator/phone/device_model.h"
#include "simulator/phone/journal.h"

namespace simulator {

namespace {

constexpr const char* GPIO = "/dev/misc/omap730_gpio";

struct LineRequest {
  uint32_t number;
  const char* line;
  bool on;
};

// _IOW('O', nr, 4); none of them carries an argument.
constexpr LineRequest LINE_REQUESTS[] = {
    {0x40044F28, "audio-a", true},  {0x40044F29, "audio-a", false}, {0x40044F32, "audio-b", true},
    {0x40044F33, "audio-b", false}, {0x40044F0E, "modem-1", true},  {0x40044F0F, "modem-1", false},
    {0x40044F35, "modem-2", true},  {0x40044F36, "modem-2", false}, {0x40044F38, "modem-3", true},
    {0x40044F39, "modem-3", false},
};
constexpr uint32_t SERVICE_START = 0x40044F3B;
constexpr uint32_t POWER_OFF = 0x40044F3E;
constexpr uint32_t READ_STOP_FLAG = 0x80044F3F;
constexpr uint32_t READ_MODEM_STATE = 0x80044F65;

constexpr const char* BACKLIGHT = "/proc/backlight/lcd";
constexpr const char* MOTOR = "/proc/gpio/motor";  // 1 runs it, 0 stops it
constexpr const char* STANDBY = "/proc/vantu_pm/prohibit_standby";
constexpr const char* LED_FORCED_OFF = "/proc/cLED_wlpg/force_led_off";
constexpr const char* LED_COLOUR = "/proc/cLED_wlpg/color";

struct TextRow {
  const char* path;
  const char* initial;
};
constexpr TextRow TEXT_ROWS[] = {
    {BACKLIGHT, "100"},
    {MOTOR, "0"},
    {"/proc/gpio/gsm_uart_rx", "0"},  // the receive line of the modem's serial port
    {LED_FORCED_OFF, "0"},
    {"/proc/cLED_wlpg/timing", "0"},
    {LED_COLOUR, "0"},
    {STANDBY, "0"},  // no standby while any program holds it open
};

}  // namespace

Gpio::Gpio(PhoneServices& phone) : DeviceModel(phone) {
  for (const LineRequest& request : LINE_REQUESTS) state.lines[request.line] = false;
}

std::vector<std::string> Gpio::Paths() const {
  return {GPIO};
}

OpenAnswer Gpio::Open(const OpenCall& call) {
  return OpenAnswer::Descriptor(memory_.Open(call));
}

RequestAnswer Gpio::Request(DriverRequest& request) {
  for (const LineRequest& line : LINE_REQUESTS) {
    if (line.number != request.number) continue;
    state.lines[line.line] = line.on;
    return RequestAnswer::Success();
  }
  switch (request.number) {
    case SERVICE_START:
    case POWER_OFF:
      return RequestAnswer::Success();
    case READ_STOP_FLAG:
      return request.WriteRecord(state.stop_flag) ? RequestAnswer::Success() : RequestAnswer::Refusal(EFAULT);
    case READ_MODEM_STATE:
      return request.WriteRecord(state.modem_state) ? RequestAnswer::Success()
                                                    : RequestAnswer::Refusal(EFAULT);
    default:
      return RequestAnswer::Refusal(EINVAL);
  }
}

std::vector<ModelCommand> Gpio::Commands() {
  return {{"gpio",
           "[modem-state N | stop-flag N]",
           "shows the GPIO lines, or sets what the driver reports",
           [this](const std::vector<std::string>& words) { return words.empty() ? Show() : Set(words); },
           {},
           {{"modem-state", "0"}}}};
}

std::string Gpio::Show() const {
  std::string text;
  for (const auto& [line, on] : state.lines) text += fmt::format("{} {}\n", line, on ? "on" : "off");
  return text + fmt::format("modem-state {}\nstop-flag {}\n", state.modem_state, state.stop_flag);
}

std::string Gpio::Set(const std::vector<std::string>& words) {
  if (words.size() != 2) throw std::invalid_argument("gpio takes modem-state N or stop-flag N.");
  const int64_t value = NumberWord(words[1]);
  if (words[0] == "modem-state") {
    state.modem_state = static_cast<int32_t>(value);
  } else if (words[0] == "stop-flag") {
    state.stop_flag = static_cast<uint32_t>(value);
  } else {
    throw std::invalid_argument(fmt::format("The GPIO driver has no {} to set.", words[0]));
  }
  return Show();
}

TextControls::TextControls(PhoneServices& phone) : DeviceModel(phone) {
  for (const TextRow& row : TEXT_ROWS) values_[row.path] = row.initial;
}

std::vector<std::string> TextControls::Paths() const {
  std::vector<std::string> paths;
  for (const TextRow& row : TEXT_ROWS) paths.emplace_back(row.path);
  return paths;
}

OpenAnswer TextControls::Open(const OpenCall& call) {
  const auto opening = std::make_shared<const bool>();  // lives in `take` until the caller closes
  const auto take = [this, path = call.path, opening](std::string text) { Take(path, std::move(text)); };
  const std::string text = Value(call.path) + "\n";
  if (!call.Writes()) return OpenAnswer::PlainDescriptor(TextSnapshot(text));
  if (call.path == STANDBY) {
    std::erase_if(standby_holds_, [](const auto& hold) { return hold.expired(); });
    standby_holds_.push_back(opening);
  }
  if (!call.Reads()) return OpenAnswer::PlainDescriptor(ValuePipe(phone_.loop, call, take));
  return OpenAnswer::PlainDescriptor(ValueSocket(phone_.loop, call, text, take));
}

void TextControls::Take(const std::string& path, std::string text) {
  static constexpr const char* WHITE_SPACE = " \t\r\n";
  phone_.journal.Add({.kind = JournalKind::Value, .path = path, .text = text});
  text.erase(text.find_last_not_of(WHITE_SPACE) + 1);
  text.erase(0, text.find_first_not_of(WHITE_SPACE));
  values_[path] = std::move(text);
}

const std::string& TextControls::Value(const std::string& path) const {
  return values_.at(path);
}

const std::string& TextControls::BacklightLevel() const {
  return Value(BACKLIGHT);
}

bool TextControls::MotorRuns() const {
  return Value(MOTOR) != "0";
}

bool TextControls::StandbyHeld() const {
  return std::ranges::any_of(standby_holds_, [](const auto& hold) { return !hold.expired(); });
}

std::string TextControls::LedColour() const {
  return Value(LED_FORCED_OFF) == "0" ? Value(LED_COLOUR) : "0";
}

}  // namespace simulator
