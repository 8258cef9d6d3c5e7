// The seven functions of the Bluetooth test tool: the command line that each request makes, and the answer
// to each output.
#include "simulator/models/bluetooth_tool.h"
#include "tests/phone/call_tracer.h"
#include "tests/phone/phone_test.h"

namespace {

using simulator::BluetoothTool;
using Scenario = BluetoothTool::Scenario;
using Shape = Scenario::Shape;
using namespace std::string_literals;

const Bytes ADDRESS = {0x0A, 0xFF, 0x00, 0x10, 0x7F, 0x80};
const Bytes DATA = {0xDE, 0xAD, 0x0F, 0xF0, 0x00, 0x01, 0x02, 0x03, 4, 5, 6, 7, 8, 9, 0x1A, 0x2B};
const std::string DATA_TEXT =
    "DEAD0FF000010203040506070809"
    "1A2B";
constexpr uint32_t MINIMUM = 0x80000000;

Bytes Minus(int32_t number) {
  return Words({static_cast<uint32_t>(-number)});
}

struct Function {
  uint32_t code;
  int number;  // of the tool's switch -f
  Bytes request;
  size_t answer_size;
};
const Function FUNCTIONS[] = {
    {0x07, 2, Words({0}), 10},
    {0x35, 1, Words({1, 2, 3}), 4},
    {0x36, 3, Words({1, 2, 3}), 8},
    {0x42, 4, ADDRESS + Words({16}) + DATA, 24},
    {0x43, 5, ADDRESS + FromText("1234"), 28},
    {0x44, 6, Words({1}), 8},
    {0x49, 7, Words({1}), 14},
};

const Function& FunctionOf(uint32_t code) {
  for (const Function& function : FUNCTIONS) {
    if (function.code == code) return function;
  }
  throw std::logic_error("no such function");
}

// The status and the fields, then zeros up to the code's size. 0x43 has a mark at its end.
Bytes AnswerOf(uint32_t code, int32_t status, const Bytes& fields = {}) {
  Bytes answer = Words({static_cast<uint32_t>(status)}) + fields;
  answer.resize(FunctionOf(code).answer_size);
  if (code == 0x43) answer.back() = 0xFF;
  return answer;
}

Bytes Counting(uint8_t first, uint8_t last) {
  Bytes bytes;
  for (unsigned byte = first; byte <= last; ++byte) bytes.push_back(static_cast<uint8_t>(byte));
  return bytes;
}

class BluetoothTest : public PhoneTest {
 protected:
  BluetoothTest() {
    Boot();
  }

  void SetScenario(int function, const Scenario& scenario) {
    Phone().With<BluetoothTool>([&](BluetoothTool& tool) { tool.SetScenario(function, scenario); });
  }
  void SetExecutable(bool executable) {
    Phone().With<BluetoothTool>([&](BluetoothTool& tool) { tool.SetExecutable(executable); });
  }
  Bytes Run(const Function& function) {
    return Ask(function.code, function.request, function.answer_size);
  }
  Lines ShellLines() {
    return LinesSince(OfKind({JournalKind::Shell}));
  }
};

TEST_F(BluetoothTest, MakesTheCommandLineOfEachFunctionAndPassesItsResultsOn) {
  const Bytes sent = Counting(0xB0, 0xC0);  // what the tool prints after the code's characters
  const struct {
    uint32_t code;
    Bytes request;
    std::string switches;
    Bytes fields;
  } CASES[] = {
      {0x07, Words({0xDEADBEEF}), "-f2", {0x00, 0x02, 0x5B, 0x0A, 0xFF, 0x10}},
      {0x35, Words({1}) + Minus(2) + Words({MINIMUM}), "-f1 -a1 -b-2 -c-2147483648", {}},
      {0x36, Words({7}) + Minus(10) + Words({99}), "-f3 -a7 -b-10", Minus(3)},
      {0x44, Words({MINIMUM}), "-f6 -a-2147483648", Words({MINIMUM})},
      {0x44, Words({0x7FFFFFFF}), "-f6 -a2147483647", Words({0x7FFFFFFF})},
      {0x49, Words({26}), "-f7 -a26", {0x00, 0x02, 0x5B, 0x0A, 0xFF, 0x1A}},
      {0x42, ADDRESS + Words({3}) + DATA, "-f4 -a0AFF00107F80 -b3 -cDEAD0F",
       Words({3}) + Bytes{0xDE, 0xAD, 0x0F}},
      {0x42, ADDRESS + Words({0}) + DATA, "-f4 -a0AFF00107F80 -b0 -c", Words({0})},
      {0x42, ADDRESS + Words({15}) + DATA, "-f4 -a0AFF00107F80 -b15 -c" + DATA_TEXT.substr(0, 30),
       Words({15}) + Bytes(DATA.begin(), DATA.end() - 1)},
      {0x42, ADDRESS + Words({16}) + DATA, "-f4 -a0AFF00107F80 -b16 -c" + DATA_TEXT, Words({16}) + DATA},
      {0x42, ADDRESS + Words({256}) + DATA, "-f4 -a0AFF00107F80 -b16 -c" + DATA_TEXT, Words({16}) + DATA},
      {0x42, ADDRESS + Words({0xFFFFFFFF}) + DATA, "-f4 -a0AFF00107F80 -b16 -c" + DATA_TEXT,
       Words({16}) + DATA},
      {0x43, ADDRESS + FromText("12aZ"), "-f5 -a0AFF00107F80 -b12aZ",
       ADDRESS + FromText("12aZ") + Counting(0xB0, 0xBC)},
      {0x43,
       ADDRESS + FromText("1\0"
                          "34"s),
       "-f5 -a0AFF00107F80 -b1", ADDRESS + FromText("1") + Counting(0xB0, 0xBF)},
  };
  for (const auto& c : CASES) {
    SCOPED_TRACE(c.switches);
    MarkJournal();
    EXPECT_EQ(Ask(c.code, c.request, FunctionOf(c.code).answer_size), AnswerOf(c.code, 0, c.fields));
    EXPECT_EQ(ShellLines(), Lines{"shell /root/bt_cit_test " + c.switches});
  }
  // An empty code is not accepted by this tool.
  EXPECT_EQ(Ask(0x43, ADDRESS + Words({0}), 28), AnswerOf(0x43, REQUEST_FAILED));
  EXPECT_EQ(ShellLines().back(), "shell /root/bt_cit_test -f5 -a0AFF00107F80 -b");
}

TEST_F(BluetoothTest, GivesEveryFunctionsFailuresAFixedAnswer) {
  const struct {
    const char* what;
    Scenario scenario;
    int32_t status;
  } CASES[] = {
      {"no output", {.shape = Shape::None}, REQUEST_FAILED},
      {"no status", {.output = "ResultA=01:02; ResultB=03; status=5\n"}, REQUEST_FAILED},
      {"a status without a number", {.output = "Status="}, 0},
      {"a status that is none", {.output = "Status=x"}, 0},
      {"an error status", {.output = "Status=-7\n"}, -7},
      {"the tool's own failure is as ours", {.output = "Status=-9992"}, REQUEST_FAILED},
      {"the output ends within a word", {.shape = Shape::Short}, 0},
      {"a zero byte ends the text", {.output = "\0Status=5"s}, REQUEST_FAILED},
      {"a status at the end of what is kept", {.output = std::string(246, '.') + "Status=56"}, 56},
      {"a number cut", {.output = std::string(247, '.') + "Status=56"}, 5},
      {"a number cut off", {.output = std::string(248, '.') + "Status=56"}, 0},
      {"a status cut", {.output = std::string(249, '.') + "Status=56"}, REQUEST_FAILED},
      {"a status beyond it", {.output = std::string(300, '.') + "Status=56"}, REQUEST_FAILED},
  };
  for (const auto& c : CASES) {
    for (const Function& function : FUNCTIONS) {
      SetScenario(function.number, c.scenario);
      EXPECT_EQ(Run(function), AnswerOf(function.code, c.status)) << c.what << ", -f" << function.number;
    }
  }
  Phone().Command({"bluetooth", "all", "status", "5"});
  for (const Function& function : FUNCTIONS) {
    EXPECT_EQ(StatusOf(Run(function)), 5) << "-f" << function.number;
  }
  MarkJournal();
  for (const Function& function : FUNCTIONS) SetScenario(function.number, {});
  SetExecutable(false);
  for (const Function& function : FUNCTIONS) {
    EXPECT_EQ(Run(function), AnswerOf(function.code, REQUEST_FAILED)) << "-f" << function.number;
  }
  EXPECT_EQ(ShellLines().size(), std::size(FUNCTIONS));
  SetExecutable(true);

  MarkJournal();
  {
    const CallTracer tracer(Phone().ServerProcess(), [](const TracedCall& call) {
      const bool makes_pipe = call.number == (call.narrow ? 331 : 293);  // pipe2
      return makes_pipe ? CallFate{CallFate::Kind::Refused, 0, EMFILE} : CallFate{};
    });
    for (const Function& function : FUNCTIONS) {
      EXPECT_EQ(Run(function), AnswerOf(function.code, REQUEST_FAILED)) << "no pipe, -f" << function.number;
    }
  }
  EXPECT_EQ(ShellLines(), Lines());
  EXPECT_EQ(Run(FunctionOf(0x44)), AnswerOf(0x44, 0, Words({1})));
  EXPECT_EQ(Phone().ConsoleText().find("Status"), std::string::npos);
}

TEST_F(BluetoothTest, ScansTheOutputUpToTheFirstMismatch) {
  const std::string sixteen = "10:11:12:13:14:15:16:17:18:19:1A:1B:1C:1D:1E:1F";
  const struct {
    uint32_t code;
    std::string output;
    int32_t status;
    Bytes fields;
  } CASES[] = {
      {0x36, "Status=1; ResultA=-3", 1, Minus(3)},
      {0x36, "Status=1;ResultA=5", 1, Words({5})},  // a blank in the format matches no blank too
      {0x36, "Status=1, ResultA=5", 1, {}},
      {0x36, "Status=1; ResultB=5", 1, {}},
      {0x36, "Status=1; ResultA=x", 1, {}},
      {0x36, "ResultA=9; Status=2", 2, {}},
      {0x36, "log line\nStatus=3; ResultA=8\nStatus=4; ResultA=9", 3, Words({8})},
      {0x44, "Status=2147483647; ResultA=-2147483648", 0x7FFFFFFF, Words({MINIMUM})},
      {0x35, "ResultA=1\nStatus=12; ResultA=5", 12, {}},

      {0x07, "Status=0; ResultA=01:02:7X:04:05:06", 0, {1, 2, 7}},
      {0x07, "Status=0; ResultA=01:02:03:04:05", 0, {1, 2, 3, 4, 5}},
      {0x07, "Status=0; ResultA=01-02", 0, {1}},
      {0x07, "Status=8; ResultA=a:b:c:d:e:ff", 8, {10, 11, 12, 13, 14, 255}},
      {0x07, "ResultA=01:02:03:04:05:06; Status=5", 5, {}},
      {0x49, "Status=-1; ResultA=FF:FE:FD:FC:FB:FA:F9", -1, {0xFF, 0xFE, 0xFD, 0xFC, 0xFB, 0xFA}},
      {0x49, "Status=0; ResultA=F", 0, {0x0F}},

      {0x42, "Status=0; ResultA=-1; ResultB=" + sixteen, 0, Words({16}) + Counting(0x10, 0x1F)},
      {0x42, "Status=0; ResultA=16; ResultB=" + sixteen + ":20", 0, Words({16}) + Counting(0x10, 0x1F)},
      {0x42, "Status=0; ResultA=-2147483648; ResultB=01:02", 0, Words({16}) + Bytes{1, 2}},
      {0x42, "Status=0; ResultA=17; ResultB=01:02", 0, Words({16}) + Bytes{1, 2}},
      {0x42, "Status=0; ResultA=2; ResultB=01:02:03", 0, Words({2}) + Bytes{1, 2}},
      {0x42, "Status=0; ResultA=0; ResultB=01:02", 0, Words({0})},
      {0x42, "Status=6; ResultA=2", 6, Words({2})},
      {0x42, "ResultB=0A:0B Status=3; ResultA=2; ResultB=0C:0D", 3, Words({2}) + Bytes{0x0A, 0x0B}},
      {0x42, "ResultA=2; ResultB=0A:0B; Status=3", 3, {}},
      {0x42, "Status=0; ResultA=4; ResultB=7X:12:GG:9", 0, Words({4}) + Bytes{7, 0x12, 0, 9}},
      {0x42, "Status=0; ResultA=2; ResultB=01023", 0, Words({2}) + Bytes{1, 0x23}},  // a separator is one
      {0x42, std::string(222, '.') + "Status=0; ResultA=3; ResultB=AB:CD:EF", 0,
       Words({3}) + Bytes{0xAB, 0x0C}},  // cut within a pair
      {0x42, std::string(225, '.') + "Status=0; ResultA=-1; ResultB=AB", 0, Words({16})},  // before one

      {0x43, "Status=0; ResultA=01:7X:03", 0, {1, 7, 3}},
      {0x43, "ResultA=FE:FD Status=9; ResultB=GG", 9, {0xFE, 0xFD}},
      {0x43, "Status=0; ResultB=01:02", 0, {}},
      {0x43, "Status=0; ResultA=" + sixteen + ":20:21:22:23:24:25:26:27:28", 0,
       Counting(0x10, 0x1F) + Counting(0x20, 0x26)},
      {0x43, std::string(221, '.') + "Status=7 ResultA=" + sixteen, 7, Counting(0x10, 0x15)},
  };
  for (const auto& c : CASES) {
    SetScenario(FunctionOf(c.code).number, {.output = c.output});
    EXPECT_EQ(Run(FunctionOf(c.code)), AnswerOf(c.code, c.status, c.fields)) << c.output;
  }
  // A failure status does not hold the results back. More output than is kept does not spoil them.
  SetScenario(3, {.status = -5});
  EXPECT_EQ(Run(FunctionOf(0x36)), AnswerOf(0x36, -5, Words({3})));
  SetScenario(3, {.shape = Shape::Long});
  EXPECT_EQ(Run(FunctionOf(0x36)), AnswerOf(0x36, 0, Words({3})));
}

TEST_F(BluetoothTest, WaitsForASlowToolAndForItsLastPiece) {
  SetScenario(6, {.delay = 2500ms});
  EXPECT_EQ(Run(FunctionOf(0x44)), AnswerOf(0x44, 0, Words({1})));
  SetScenario(3, {.shape = Shape::Pieces, .delay = 300ms});
  EXPECT_EQ(Run(FunctionOf(0x36)), AnswerOf(0x36, 0, Words({3})));
  EXPECT_TRUE(StillAnswers());
}

// A request has one second to arrive. The two with an address have two.
// A process that the tool started and that lives on holds the pipe open.
TEST_F(BluetoothTest, DoesNotWaitForWhatTheToolLeavesBehind) {
  Phone().Root().PutFile("/root/bt_cit_test",
                         "#!/bin/sh\n"
                         "sleep 30 &\n"
                         "printf 'Status=7; '\n"
                         "sleep 1\n"
                         "printf 'ResultA=8'\n",
                         0755);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Ask(0x44, Words({1}), 8), Words({7, 8}));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5000ms);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 1000ms) << "waits only for the tool itself";
  EXPECT_TRUE(StillAnswers());

  // A tool that has closed its output is still waited for.
  Phone().Root().PutFile("/root/bt_cit_test", "#!/bin/sh\necho 'Status=3'\nexec >&-\nsleep 1\n", 0755);
  const auto closed = std::chrono::steady_clock::now();
  EXPECT_EQ(AskStatus(0x35, Words({1, 2, 3})), 3);
  EXPECT_GE(std::chrono::steady_clock::now() - closed, 900ms);
}

TEST_F(BluetoothTest, RunsNothingForARequestThatDoesNotArrive) {
  for (const Function& function : FUNCTIONS) {
    SCOPED_TRACE(function.number);
    const bool long_time = function.code == 0x42 || function.code == 0x43;
    MarkJournal();
    SendCommand(function.code, Bytes(function.request.begin(), function.request.end() - 1));
    EXPECT_TRUE(host.IsQuiet(1500ms));
    if (long_time) {
      host.Send({function.request.back()});
      EXPECT_EQ(host.Receive(function.answer_size).size(), function.answer_size);
    }
    EXPECT_EQ(ShellLines().size(), long_time ? 1u : 0u);
    EXPECT_TRUE(StillAnswers());
  }
  SendCommand(0x42, Bytes(25));
  EXPECT_TRUE(host.IsQuiet(2500ms));
  EXPECT_TRUE(StillAnswers());
}

}  // namespace
