#include "simulator/models/gpio.h"

#include <fmt/format.h>

#include "simulator/phone/command_words.h"

namespace simulator {
namespace {

constexpr const char* PATH = "/dev/misc/omap730_gpio";

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

}  // namespace

Gpio::Gpio(PhoneServices& phone) : DeviceModel(phone) {
  for (const LineRequest& request : LINE_REQUESTS) state.lines[request.line] = false;
}

std::vector<std::string> Gpio::Paths() const {
  return {PATH};
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
  return {{"gpio", "[modem-state N | stop-flag N]", "shows the GPIO lines, or sets what the driver reports",
           [this](const std::vector<std::string>& words) { return words.empty() ? Show() : Set(words); }}};
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

}  // namespace simulator
