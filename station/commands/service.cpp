// Commands of the command service itself.
#include "station/commands/rows.h"

namespace station {

std::vector<Command> ServiceRows() {
  return {
      {
          .code = 0x00,
          .name = "ping",
          .action = "Nothing: answers 1, the sign that the test server is running.",
          .request = {Ignored(4)},
          .answer = {{AnswerField::Kind::Alive, 4, "alive", "always 1"}},
          .answer_time = PROMPT,
          .statuses = {},
          .verbs = {{"ping", "ask whether the phone's test server answers"}},
      },
      {
          .code = 0x01,
          .name = "no operation",
          .action = "Nothing, and answers nothing.",
          .request = {Ignored(4)},
          .answer = {},
          .answer_time = PROMPT,
          .statuses = {},
          .verbs = {{"no-operation", "send the command that does nothing and is never answered"}},
      },
      {
          .code = 0x3C,
          .name = "pause link",
          .action =
              "Answers, closes its end of the serial port, sleeps, opens and configures the port again. What "
              "arrives meanwhile is lost.",
          .request = {Number("seconds", "how long the phone keeps the port closed")},
          .answer = {Status()},
          .answer_time = PROMPT,
          .statuses = {},
          .verbs = {},
      },
  };
}

}  // namespace station
