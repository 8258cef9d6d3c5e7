#include "tests/phone/every_command.h"

#include <algorithm>
#include <iterator>
#include <ostream>

namespace protocol {

void PrintTo(const CommandDescription& command, std::ostream* out) {
  *out << command.name;
}

}  // namespace protocol

using namespace protocol;

std::vector<CommandDescription> CommandsThatReturn() {
  constexpr uint32_t OTHERS[] = {POWER_OFF, STOP_USER_INTERFACE, RUN_IN, PASS_THROUGH};
  std::vector<CommandDescription> commands(COMMANDS.begin(), COMMANDS.end());
  std::erase_if(commands, [&](const CommandDescription& command) {
    return std::ranges::count(OTHERS, command.code) != 0;
  });
  return commands;
}

Bytes RequestFor(const CommandDescription& command) {
  switch (command.code) {
    case CONTROL_RADIO:
      return Words({RADIO_MEASURE, 1400, 30000, 1, 0});
    case CONTROL_TONE:
      return Words({2100, 1600, 0, 0, 40, 2, 1});
    case CONTROL_TOUCH_TEST:
      return Words({TOUCH_RESTART, 0});
    case SHOW_DISPLAY:
      return Words({RED, BLACK, 50, 0});
    case PLAY_MEDIA:
      return Words({CLIP_AMR, 2, 0});
    case TEST_CAMERA:
      return Words({CAPTURE_BLEMISH, 400, 300, 90});
    case READ_PICTURE:
      return Words({READ_BLEMISH});
    case SET_CLOCK:
      return Words({2006, 11, 15, 8, 30, 0, 0, 0});
    case WRITE_CALIBRATION:
      return Words({1});
    case SET_AUDIO_PATH:
      return Words({1, 2});
    case EXCHANGE_AT:
      return FromText("at+cgmi\r") + Bytes(24) + Words({1000});
    case WRITE_IDENTITY:
      return FromText("004999010640000");
    default:
      return Bytes(RequestSize(command));
  }
}

bool IsStatedAnswer(const CommandDescription& command, const Bytes& answer) {
  if (answer.size() != AnswerSize(command)) return false;
  if (answer.empty() || StatusOf(answer) >= 0) return true;
  return std::ranges::any_of(command.statuses,
                             [&](const auto& row) { return row.status == StatusOf(answer); });
}
