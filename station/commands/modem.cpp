// The modem's AT port, driver queries, lines and data port.
#include "protocol/result_codes.h"
#include "station/commands/rows.h"

namespace station {

namespace {

using Kind = AnswerField::Kind;

}  // namespace

std::vector<Command> ModemRows() {
  return {
      {
          .code = 0x23,
          .name = "read modem information",
          .action = "Asks the modem driver for its six information words.",
          .request = {Ignored(4)},
          .answer = {Status(),
                     {Kind::Number, 4, "word-0", "first information word"},
                     {Kind::Number, 4, "word-1", "second information word"},
                     {Kind::Number, 4, "word-2", "third information word"},
                     {Kind::Number, 4, "word-3", "fourth information word"},
                     {Kind::Number, 4, "word-4", "fifth information word"},
                     {Kind::Number, 4, "word-5", "sixth information word"}},
          .answer_time = PROMPT,
          .statuses = {{OPEN_FAILED, "the modem's control port could not be opened"},
                       {REQUEST_FAILED, "the modem driver refused the query"},
                       {GENERAL_FAILURE, "the modem driver's reply is of another kind"}},
          .verbs = {{"modem info", "read the modem's six information words"}},
      },
      {
          .code = 0x25,
          .name = "check SIM",
          .action = "Switches verbose errors on with \"at+cmee=1\" and asks for the SIM's state with "
                    "\"at+cpin?\" on "
                    "the modem's AT port.",
          .request = {Ignored(4)},
          .answer = {Status()},
          // Two AT commands of up to ten seconds each.
          .answer_time = std::chrono::milliseconds{25'000},
          .statuses = {{OPEN_FAILED, "the modem's AT port could not be opened"},
                       {GENERAL_FAILURE, "the modem does not answer"},
                       {CONTENT_MISMATCH, "the modem answered \"at+cmee=1\" without \"OK\", or with nothing"},
                       {SIM_NOT_READY,
                        "the modem answered \"at+cpin?\" without \"OK\": no SIM, or not ready"}},
          .verbs = {{"sim-check", "check through the modem that the SIM is ready (takes up to 20 s)"}},
      },
      {
          .code = 0x30,
          .name = "read modem status word",
          .action = "Asks the modem driver for its information words and answers the second of them.",
          .request = {Ignored(4)},
          .answer = {Status(), {Kind::Number, 4, "word", "second information word"}},
          .answer_time = PROMPT,
          .statuses = {{GENERAL_FAILURE,
                        "the modem's control port could not be opened or gave no good reply"}},
          .verbs = {{"modem status-word", "read the second of the modem's information words"}},
      },
      {
          .code = 0x3B,
          .name = "AT command",
          .action = "Wakes the modem with \"at\", sends the text as it is and waits for \"OK\" or \"ERROR\", "
                    "in rounds "
                    "of one second. The answer holds the reply's first 32 bytes.",
          .request = {Text("command", 32, "the AT command, at most 32 bytes with its line ending"),
                      Number("timeout", "how long the modem may take, in milliseconds").Optional("3000")},
          .answer = {Status(), {Kind::Text, 32, "reply", "the first 32 bytes of the modem's reply"}},
          // Waking the modem takes up to three seconds of its own; the last round may run a second over.
          .answer_time = std::chrono::milliseconds{6'000},
          .statuses = {{GENERAL_FAILURE,
                        "the modem's AT port could not be opened, or no \"OK\" or \"ERROR\" came"}},
          .verbs = {},
          .waits_for = "timeout",
      },
      {
          .code = 0x3D,
          .name = "modem pass-through",
          .action = "Answers, then relays bytes between the host and the modem's data port until the host "
                    "sends the "
                    "20-byte leave frame in one piece.",
          .request = {Ignored(4)},
          .answer = {Status()},
          .answer_time = PROMPT,
          .statuses = {},
          .verbs = {},
      },
      {
          .code = 0x3E,
          .name = "check modem state",
          .action = "Reads the modem state word from the GPIO driver; 1 is good.",
          .request = {Ignored(4)},
          .answer = {Status()},
          .answer_time = PROMPT,
          .statuses = {{MODEM_STATE_ZERO, "the modem state word is 0"},
                       {REQUEST_FAILED, "the modem state word could not be read, or is neither 0 nor 1"},
                       {OPEN_FAILED, "the GPIO device could not be opened"}},
          .verbs = {{"modem state", "check that the modem's state word is 1"}},
      },
      {
          .code = 0x3F,
          .name = "set modem lines",
          .action = "Switches the three modem lines on or off, in order.",
          .request = {Number("first", "first line; 0 is off").Choices({{"on", 1}, {"off", 0}}),
                      Number("second", "second line; 0 is off").Choices({{"on", 1}, {"off", 0}}),
                      Number("third", "third line; 0 is off").Choices({{"on", 1}, {"off", 0}})},
          .answer = {Status()},
          .answer_time = PROMPT,
          .statuses = {{OPEN_FAILED, "the GPIO device could not be opened"}},
          .verbs = {{"modem lines", "switch the three modem lines on or off"}},
      },
      {
          .code = 0x46,
          .name = "modem control",
          .action = "Gives the modem driver its control request with 0 or 1, then saves the modem's "
                    "file-system image "
                    "into the partition \"GSM FFS\".",
          .request = {Number("value", "0, or 1 (as any other number)").Choices({{"off", 0}, {"on", 1}})},
          .answer = {Status()},
          .answer_time = std::chrono::milliseconds{20'000},
          .statuses = {{OPEN_FAILED, "the modem's control port could not be opened"}},
          .verbs = {{"modem control", "give the modem its control request and save its file-system image"}},
      },
      {
          .code = 0x48,
          .name = "read modem line status",
          .action = "Asks the modem driver for its line status byte.",
          .request = {Ignored(4)},
          .answer = {Status(), {Kind::Number, 4, "line", "the line status byte, 0 to 255"}},
          .answer_time = PROMPT,
          .statuses = {{OPEN_FAILED, "the modem's control port could not be opened"},
                       {GENERAL_FAILURE, "the modem driver's reply is of another kind"}},
          .verbs = {{"modem line", "read the modem's line status byte"}},
      },
  };
}

}  // namespace station
