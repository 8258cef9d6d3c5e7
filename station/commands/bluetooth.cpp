// The seven functions of the phone's Bluetooth test tool. What a function does inside the Bluetooth stack is
// the tool's business; the names say what is sent and what comes back.
#include "protocol/result_codes.h"
#include "station/commands/rows.h"

namespace station {

namespace {

using Kind = AnswerField::Kind;

// The tool has no time limit of its own.
constexpr std::chrono::milliseconds TOOL{60'000};

const StatusRow TOOL_FAILED = {REQUEST_FAILED,
                               "the Bluetooth test tool could not be run or printed no status"};

AnswerField ToolStatus() {
  return {Kind::Status, 4, "status", "the number that the tool printed, or a result code"};
}

Command ToolFunction(std::uint32_t code, int function, std::string name, std::vector<Argument> request,
                     std::vector<AnswerField> answer, Verb verb) {
  return {
      .code = code,
      .name = std::move(name),
      .action =
          "Runs function " + std::to_string(function) + " of the Bluetooth test tool and waits for its end.",
      .request = std::move(request),
      .answer = std::move(answer),
      .answer_time = TOOL,
      .statuses = {TOOL_FAILED},
      .verbs = {std::move(verb)},
  };
}

}  // namespace

std::vector<Command> BluetoothRows() {
  return {
      ToolFunction(0x07, 2, "Bluetooth address", {Ignored(4)},
                   {ToolStatus(), {Kind::Address, 6, "address", "the chip's device address"}},
                   {"bluetooth address", "ask the Bluetooth chip for its device address"}),
      ToolFunction(0x35, 1, "Bluetooth three numbers",
                   {Number("a", "first number"), Number("b", "second number"), Number("c", "third number")},
                   {ToolStatus()},
                   {"bluetooth three-numbers", "function 1: send three numbers, get the status alone"}),
      ToolFunction(0x36, 3, "Bluetooth number for two numbers",
                   {Number("a", "first number"), Number("b", "second number"), Ignored(4)},
                   {ToolStatus(), {Kind::Integer, 4, "result", "the tool's number"}},
                   {"bluetooth number-for-two-numbers", "function 3: send two numbers, get a number"}),
      ToolFunction(0x42, 4, "Bluetooth data for data",
                   {Address("address", "address of the other device"),
                    Number("length", "number of data bytes, at most 16; as many as given").LengthOf("data"),
                    Data("data", 16, "up to 16 bytes for the other device")},
                   {ToolStatus(),
                    {Kind::Length, 4, "count", "number of result bytes, at most 16"},
                    {Kind::Block, 16, "data", "the result bytes"}},
                   {"bluetooth data-for-data", "function 4: send an address and data, get data"}),
      ToolFunction(
          0x43, 5, "Bluetooth bytes for code",
          {Address("address", "address of the other device"),
           Text("code", 4, "up to four characters, such as a PIN")},
          {ToolStatus(),
           {Kind::Block, 23, "data", "23 result bytes"},
           {Kind::Constant, 1, "", "always 0xFF"}},
          {"bluetooth bytes-for-code", "function 5: send an address and a short code, get 23 bytes"}),
      ToolFunction(0x44, 6, "Bluetooth number for number", {Number("a", "the number")},
                   {ToolStatus(), {Kind::Integer, 4, "result", "the tool's number"}},
                   {"bluetooth number-for-number", "function 6: send a number, get a number"}),
      ToolFunction(0x49, 7, "Bluetooth address for number", {Number("a", "the number")},
                   {ToolStatus(), {Kind::Address, 6, "address", "a device address"}, Padding(4)},
                   {"bluetooth address-for-number", "function 7: send a number, get a device address"}),
  };
}

}  // namespace station
