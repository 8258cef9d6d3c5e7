// AT commands: the SIM check and the host's own command, with a modem that answers in many ways.
#include <termios.h>

#include <fstream>
#include <thread>

#include "simulator/models/modem_at_port.h"
#include "tests/phone/call_tracer.h"
#include "tests/phone/phone_test.h"

namespace {

using simulator::ModemAtPort;
using Clock = std::chrono::steady_clock;
using Pieces = std::vector<ModemAtPort::Piece>;
using namespace std::string_literals;

constexpr uint32_t SIM_CHECK = 0x25;
constexpr uint32_t AT_COMMAND = 0x3B;
const std::string PORT = "/dev/csmi_tty/6";
const std::string OPENED = "open " + PORT + " rw+noctty";

Pieces AtOnce(const std::string& answer) {
  return {{0ms, answer}};
}

class ModemAtTest : public PhoneTest {
 protected:
  ModemAtTest() {
    Boot();
  }

  void SetModem(const std::function<void(ModemAtPort::State&)>& change) {
    Phone().With<ModemAtPort>([&](ModemAtPort& modem) { change(modem.state); });
  }
  void Script(const std::string& command, const Pieces& answer) {
    SetModem([&](ModemAtPort::State& state) { state.scripts[command] = answer; });
  }
  // Status and reply of one command of the host's, and how long it took.
  struct Reply {
    int32_t status;
    std::string text;  // the reply's 32 bytes without the zeros at the end
    std::chrono::duration<double> time;
  };
  Reply Exchange(const std::string& command, uint32_t timeout_ms) {
    Bytes request = FromText(command);
    request.resize(32);
    const Clock::time_point start = Clock::now();
    const Bytes answer = Ask(AT_COMMAND, request + Words({timeout_ms}), 36, 30s);
    const Clock::time_point end = Clock::now();
    std::string text(answer.begin() + 4, answer.end());
    text.erase(text.find_last_not_of('\0') + 1);
    return {StatusOf(answer), text, end - start};
  }
  int32_t CheckSim() {
    return AskStatus(SIM_CHECK, Words({0}), 30s);
  }

  void FillServersStack() {
    constexpr size_t CHUNK = 1024;
    std::ofstream(Phone().Root().Outside("/dev/mtd/6"), std::ios::binary) << std::string(CHUNK, 'x');
    EXPECT_EQ(Ask(0x34, Words({0}), 4 + CHUNK), Words({CHUNK}) + Bytes(CHUNK, 'x'));
  }

  // What the server printed since the last call must be exactly this.
  void ExpectPrinted(const std::string& expected) {
    const size_t size = printed_ + expected.size();
    for (int i = 0; i < 200 && Phone().ConsoleText().size() < size; ++i) std::this_thread::sleep_for(5ms);
    const std::string text = Phone().ConsoleText();
    EXPECT_EQ(text.substr(printed_), expected);
    printed_ = text.size();
  }

 private:
  size_t printed_ = 0;
};

std::string Sent(const std::string& escaped) {
  return "value " + PORT + " \"" + escaped + "\"";
}

TEST_F(ModemAtTest, SendsTheHostsCommandAsItIsAndGivesTheReplysBeginning) {
  const Reply identity = Exchange("at+cgsn\r", 1000);
  EXPECT_EQ(identity.status, 0);
  EXPECT_EQ(identity.text, "\r\n004999010640000\r\n\r\nOK\r\n");
  EXPECT_EQ(LinesSince(), (Lines{OPENED, Sent("at\\n\\r"), Sent("at+cgsn\\r")}));

  MarkJournal();
  SetModem([](ModemAtPort::State& state) { state.surplus = 60; });
  EXPECT_EQ(Exchange("AT+CSQ\n\r", 1000).text, "\r\n" + std::string(30, 'x')) << "32 of 85 bytes";
  SetModem([](ModemAtPort::State& state) { state.surplus = 0; });
  // A command that fills its field has no zero after it. Neither the time-out's first byte nor what an
  // earlier command left in memory belongs to it: a chunk of the modem's image leaves a kilobyte of letters
  // on the server's stack.
  FillServersStack();
  MarkJournal();
  const std::string longest = "at+" + std::string(28, 'z') + "\r";
  const Reply unknown = Exchange(longest, 0x41414141);
  EXPECT_EQ(unknown.status, 0) << "an error is an answer";
  EXPECT_EQ(unknown.text, "\r\nERROR\r\n");
  EXPECT_EQ(LinesSince(AtPath(PORT) && OfKind({JournalKind::Value})),
            (Lines{Sent("at\\n\\r"), Sent("at+" + std::string(28, 'z') + "\\r")}));
  ExpectPrinted("");

  // No line end is added, so a modem does not answer a command without one.
  EXPECT_EQ(Exchange("at+csq", 1).status, GENERAL_FAILURE);
  ExpectPrinted("no response\n");
  EXPECT_EQ(Exchange("\rta+csq\r", 1).status, GENERAL_FAILURE) << "the modem takes no other line";
  ExpectPrinted("no response\n");
}

TEST_F(ModemAtTest, CountsRoundsAndPieces) {
  const std::string filling(300, 'x');
  const struct {
    const char* what;
    Pieces answer;
    uint32_t timeout_ms;
    int32_t status;
    std::string reply;
  } CASES[] = {
      {"OK comes in two pieces", {{0ms, "\r\nO"}, {200ms, "K\r\n"}}, 3000, 0, "\r\nOK\r\n"},
      {"each piece counts twice", {{0ms, "a"}, {250ms, "b"}, {250ms, "OK"}}, 3000, -9991, "ab"},
      {"a fifth round is enough for it", {{0ms, "a"}, {250ms, "b"}, {250ms, "OK"}}, 5000, 0, "abOK"},
      {"a piece steps over a single round", {{0ms, "a"}, {250ms, "OK"}}, 1000, -9991, "a"},
      {"it comes in the second of two seconds", {{1500ms, "OK"}}, 1001, 0, "OK"},
      {"garbage goes before", AtOnce("\xFF\x80~\x01\r\n\r\nOK\r\n"), 1000, 0, "\xFF\x80~\x01\r\n\r\nOK\r\n"},
      {"a zero byte goes before", AtOnce("\0\r\nOK\r\n"s), 1000, 0, "\0\r\nOK\r\n"s},
      {"the error is an extended one", AtOnce("\r\n+CME ERROR: 10\r\n"), 1000, 0, "\r\n+CME ERROR: 10\r\n"},
      {"lower case is no OK", AtOnce("ok error"), 1000, -9991, "ok error"},
      {"the last two of 128 bytes", AtOnce(filling.substr(0, 126) + "OK"), 9000, 0, filling.substr(0, 32)},
      {"OK reaches beyond the buffer", AtOnce(filling.substr(0, 127) + "OK"), 9000, -9991,
       filling.substr(0, 32)},
      {"ERROR reaches beyond it", AtOnce(filling.substr(0, 124) + "ERROR"), 9000, -9991,
       filling.substr(0, 32)},
      {"exactly full", AtOnce(filling.substr(0, 128)), 9000, -9991, filling.substr(0, 32)},
      {"longer than the buffer", AtOnce(filling + "\r\nOK\r\n"), 9000, -9991, filling.substr(0, 32)},
      {"126 bytes leave room",
       {{0ms, filling.substr(0, 126)}, {250ms, "OK"}},
       9000,
       0,
       filling.substr(0, 32)},
      {"127 bytes do not",
       {{0ms, filling.substr(0, 126) + "O"}, {250ms, "K"}},
       9000,
       -9991,
       filling.substr(0, 32)},
      {"too long a time-out counts modulo 32 bits", {{1500ms, "OK"}}, 0x7FFFFC19, -9991, ""},
      {"the longest is waited for", {{1500ms, "OK"}}, 0x7FFFFC18, 0, "OK"},
  };
  for (const auto& c : CASES) {
    SCOPED_TRACE(c.what);
    Script("at+x", c.answer);
    const Reply reply = Exchange("at+x\r", c.timeout_ms);
    EXPECT_EQ(reply.status, c.status);
    EXPECT_EQ(reply.text, c.reply);
    ExpectPrinted(c.status == 0 ? "" : "no response\n");
    EXPECT_LT(reply.time, 5s) << "a buffer that is full ends the wait";
    // Late pieces must not reach the next case.
    for (const auto& piece : c.answer) std::this_thread::sleep_for(piece.pause);
  }
  EXPECT_EQ(Exchange("at+csq\r", 1000).text, "\r\n+CSQ: 20,99\r\n\r\nOK\r\n") << "old bytes are dropped";
}

TEST_F(ModemAtTest, WaitsWholeSecondsForASilentModem) {
  Script("at+x", {});
  const struct {
    uint32_t timeout_ms;
    int seconds;
  } CASES[] = {
      {0, 0},
      {static_cast<uint32_t>(-1), 0},
      {static_cast<uint32_t>(-1998), 0},
      {static_cast<uint32_t>(-1999), 1},  // a negative number of rounds ends after one
      {0x80000000, 1},
      {0x7FFFFFFF, 1},  // does not fit
      {1, 1},
      {1000, 1},
      {1001, 2},
  };
  for (const auto& c : CASES) {
    const Reply reply = Exchange("at+x\r", c.timeout_ms);
    EXPECT_EQ(reply.status, GENERAL_FAILURE) << c.timeout_ms;
    EXPECT_EQ(reply.text, "") << c.timeout_ms;
    EXPECT_GT(reply.time, c.seconds * 1s - 10ms) << c.timeout_ms;
    EXPECT_LT(reply.time, c.seconds * 1s + 950ms) << c.timeout_ms;
    ExpectPrinted("no response\n");
  }
  SetModem([](ModemAtPort::State& state) { state.silent = true; });
  EXPECT_GT(Exchange("at+x\r", 0).time, 2990ms) << "the wake-up has three seconds";
  ExpectPrinted("no response\nno response\n");
  EXPECT_TRUE(StillAnswers());
}

// What the modem says without a SIM, in the form that it was asked for.
TEST_F(ModemAtTest, GivesErrorsInTheChosenForm) {
  SetModem([](ModemAtPort::State& state) { state.sim_inserted = false; });
  const std::pair<const char*, const char*> CASES[] = {
      {"at+cmee=0\r", "\r\nERROR\r\n"},
      {"at+cmee=1\r", "\r\n+CME ERROR: 10\r\n"},
      {"at+cmee=2\r", "\r\n+CME ERROR: SIM not inserted\r\n"}};
  for (const auto& [choice, error] : CASES) {
    EXPECT_EQ(Exchange(choice, 1000).text, "\r\nOK\r\n");
    EXPECT_EQ(Exchange("at+cpin?\r", 1000).text, error);
  }
}

TEST_F(ModemAtTest, TellsCommandsThatCannotBeSent) {
  const Reply empty = Exchange("", 1000);
  EXPECT_EQ(empty.status, GENERAL_FAILURE);
  EXPECT_EQ(empty.text, "\r\nOK\r\n") << "what the wake-up brought";
  ExpectPrinted("\nparam error\n");

  // The command's write alone fails, or takes nothing.
  for (const CallFate fate :
       {CallFate{CallFate::Kind::Refused, 0, EIO}, CallFate{CallFate::Kind::Shortened}}) {
    const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) {
      return call.IsWrite() && call.Size() == 7 ? fate : CallFate{};
    });
    const Reply refused = Exchange("at+csq\r", 1000);
    EXPECT_EQ(refused.status, GENERAL_FAILURE);
    EXPECT_EQ(refused.text, "\r\nOK\r\n");
    ExpectPrinted("write error, at+csq\r\n");
  }

  SetModem([](ModemAtPort::State& state) { state.fails_writes = true; });
  const Reply refused = Exchange("at+csq\r", 1000);
  EXPECT_EQ(refused.status, GENERAL_FAILURE);
  EXPECT_EQ(refused.text, "");
  ExpectPrinted("write error, at\n\r\nwrite error, at+csq\r\n");
  EXPECT_EQ(CheckSim(), GENERAL_FAILURE);
  ExpectPrinted("write error, at+cmee=1\n\r\n");
  SetModem([](ModemAtPort::State& state) { state.fails_writes = false; });
  EXPECT_EQ(CheckSim(), 0);
}

// It counts as 255 bytes, more than any buffer takes: the exchange is over.
TEST_F(ModemAtTest, EndsAtOnceWhenAReadFails) {
  SetModem([](ModemAtPort::State& state) { state.fails_reads = true; });
  const Reply reply = Exchange("at+csq\r", 60000);
  EXPECT_EQ(reply.status, GENERAL_FAILURE);
  EXPECT_EQ(reply.text, "");
  EXPECT_LT(reply.time, 3s);
  ExpectPrinted("no response\nno response\n");
  EXPECT_EQ(LinesSince(AtPath(PORT)), (Lines{OPENED, Sent("at\\n\\r"), Sent("at+csq\\r")}));
  EXPECT_EQ(CheckSim(), GENERAL_FAILURE);
  ExpectPrinted("no response\n");
  SetModem([](ModemAtPort::State& state) { state.fails_reads = false; });
  EXPECT_EQ(CheckSim(), 0);
}

TEST_F(ModemAtTest, SurvivesAModemThatHangsUp) {
  SetModem([](ModemAtPort::State& state) { state.hangs_up = true; });
  const Reply reply = Exchange("at+csq\r", 60000);
  EXPECT_EQ(reply.status, GENERAL_FAILURE);
  EXPECT_EQ(reply.text, "");
  ExpectPrinted("no response\nwrite error, at+csq\r\n");
  EXPECT_EQ(CheckSim(), GENERAL_FAILURE);
  ExpectPrinted("no response\n");
  SetModem([](ModemAtPort::State& state) { state.hangs_up = false; });
  EXPECT_EQ(CheckSim(), 0);
}

TEST_F(ModemAtTest, TellsAPortThatCannotBeOpened) {
  Phone().TakeAway(PORT);
  EXPECT_EQ(CheckSim(), OPEN_FAILED);
  const Reply reply = Exchange("at+csq\r", 60000);
  EXPECT_EQ(reply.status, GENERAL_FAILURE);
  EXPECT_EQ(reply.text, "");
  EXPECT_EQ(LinesSince(), (Lines{OPENED + " -> ENOENT", OPENED + " -> ENOENT"}));
  ExpectPrinted("");
  Phone().PutBack(PORT);
  Phone().GetFaults().FailOpen(PORT, ENODEV, 2, 1);
  EXPECT_EQ(CheckSim(), OPEN_FAILED) << "the second open of the check";
  EXPECT_EQ(CheckSim(), 0);
}

TEST_F(ModemAtTest, ChecksTheSimByTheModemsOk) {
  EXPECT_EQ(CheckSim(), 0);
  EXPECT_EQ(LinesSince(), (Lines{OPENED, Sent("at+cmee=1\\n\\r"), OPENED, Sent("at+cpin?\\n\\r")}));

  const std::string filling(200, 'x');
  const struct {
    const char* what;
    std::string first, second;  // answers; an empty one is the modem's own
    int32_t status;
  } CASES[] = {
      {"an error to the first", "\r\nERROR\r\n", "", -9990},
      {"an OK behind a zero byte", "\0\r\nOK\r\n"s, "", -9990},
      {"text before the zero byte", "\r\n+X\r\n\0OK"s, "", -9990},
      {"OK within a word", "\r\nxOKx\r\n", "", 0},
      {"OK as the last of 200 bytes", filling.substr(0, 198) + "OK", "", 0},
      {"200 bytes without OK", filling, "", -9991},
      {"a SIM that wants its PIN", "", "\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n", 0},
      {"an error to the second", "", "\r\n+CME ERROR: 10\r\n", -9996},
      {"an OK behind a zero byte and a line", "", "\r\n+CPIN: READY\r\n\0OK\r\n"s, -9996},
      {"nothing before a zero byte", "", "\r\n\0OK\r\n"s, -9990},
      {"OK as the last of 200 bytes again", "", filling.substr(0, 198) + "OK", 0},
      {"200 bytes without OK again", "", filling, -9991},
  };
  for (const auto& c : CASES) {
    SCOPED_TRACE(c.what);
    SetModem([&](ModemAtPort::State& state) {
      state.scripts.clear();
      if (!c.first.empty()) state.scripts["at+cmee=1"] = AtOnce(c.first);
      if (!c.second.empty()) state.scripts["at+cpin?"] = AtOnce(c.second);
    });
    MarkJournal();
    EXPECT_EQ(CheckSim(), c.status);
    const bool second_asked = !c.second.empty() || c.status == 0;
    EXPECT_EQ(LinesSince(OfKind({JournalKind::Value})).size(), second_asked ? 2u : 1u);
  }
  SetModem([](ModemAtPort::State& state) {
    state.scripts.clear();
    state.sim_inserted = false;
  });
  EXPECT_EQ(CheckSim(), SIM_NOT_READY);
  SetModem([](ModemAtPort::State& state) {
    state.sim_inserted = true;
    state.piece_size = 5;
    state.pause = 50ms;
  });
  EXPECT_EQ(CheckSim(), 0) << "in four pieces";
  SetModem([](ModemAtPort::State& state) { state.piece_size = 3; });
  EXPECT_EQ(CheckSim(), GENERAL_FAILURE) << "ten rounds are over with the fifth piece";
}

TEST_F(ModemAtTest, GivesTheSimCheckTenSeconds) {
  SetModem([](ModemAtPort::State& state) { state.silent = true; });
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(CheckSim(), GENERAL_FAILURE);
  EXPECT_GT(Clock::now() - start, 9950ms);
  EXPECT_LT(Clock::now() - start, 11s);
  ExpectPrinted("no response\n");
  EXPECT_EQ(LinesSince(AtPath(PORT)), (Lines{OPENED, Sent("at+cmee=1\\n\\r")}));
}

TEST_F(ModemAtTest, SetsTheLineWholeAndFlushesBeforeAndAfter) {
  const std::string terminal =
      Phone().With<ModemAtPort>([](ModemAtPort& modem) { return modem.PhoneSide().DevicePath(); });
  const TerminalCalls calls(Phone().ServerProcess());
  EXPECT_EQ(Exchange("at+csq\r", 1000).status, 0);
  EXPECT_EQ(calls.Of(terminal), (Lines{"flush 0", "set", "flush 2"})) << "input; both directions";
  EXPECT_EQ(CheckSim(), 0);
  EXPECT_EQ(calls.Of(terminal).size(), 9u) << "and for each exchange of the SIM check";

  const termios line = Phone().With<ModemAtPort>([](ModemAtPort& modem) {
    termios settings = {};
    tcgetattr(modem.PhoneSide().DeviceDescriptor(), &settings);
    return settings;
  });
  EXPECT_EQ(line.c_iflag, tcflag_t{IGNPAR});
  EXPECT_EQ(line.c_oflag, tcflag_t{0});
  EXPECT_EQ(line.c_cflag, tcflag_t{0x800008BF});
  EXPECT_EQ(line.c_lflag, tcflag_t{0});
  for (int index = 0; index < NCCS; ++index) {
    EXPECT_EQ(line.c_cc[index], index == VMIN ? 1 : 0) << "control character " << index;
  }
}

}  // namespace
