// Random conversations. A command's request has its size and any content. It may come in pieces, late or cut
// short, or together with other commands. Some answers are not read, and some bytes are noise. After each
// exchange the same process must answer a ping. In a build with sanitizers, their report ends the server and
// is printed here.
//
// $EXCHANGES is how many, and $SEED repeats a run.
#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <random>
#include <thread>

#include "simulator/models/front_panel.h"
#include "simulator/models/sound.h"
#include "tests/phone/every_command.h"
#include "tests/phone/phone_test.h"

namespace {

using namespace protocol;
using namespace simulator;

// A pseudo-terminal holds 4096 bytes. More answers than this are not asked for in one write.
constexpr size_t MOST_ANSWERED_AT_ONCE = 2000;

// Part of what goes out, and how much of an answer it must bring.
struct Exchange {
  Bytes bytes;
  size_t answer_size = 0;
  std::vector<const CommandDescription*> commands;
};

class ConversationFuzzTest : public PhoneTest {
 protected:
  ConversationFuzzTest() {
    options.instant_sleeps = true;
    Start();
    // Those that start many programs, close the port or wait come less often.
    for (const CommandDescription& command : commands_) {
      const bool slow = command.code == FACTORY_RESET || command.code == PAUSE_LINK ||
                        command.code == SAVE_MODEM_IMAGE || command.code == CONTROL_MODEM ||
                        command.code == SET_PARTITION_WORD;
      weights_.push_back(slow ? 0.1 : 1);
    }
  }

  void Start() {
    Phone().GetJournal().Keep(2000);
    Phone().With<Sound>([](Sound& sound) { sound.state.paced = false; });
    Boot();
  }

  uint32_t Random(size_t limit) {
    return static_cast<uint32_t>(random_() % limit);
  }
  bool OneIn(size_t count) {
    return Random(count) == 0;
  }

  const CommandDescription& RandomCommand() {
    return commands_[std::discrete_distribution<size_t>(weights_.begin(), weights_.end())(random_)];
  }

  // A number that a routine may handle in a way of its own.
  uint32_t Interesting(const Field& field) {
    const uint32_t limits[] = {0,   1,   2,   3,   15,         16,         17,
                               127, 128, 255, 256, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    switch (Random(4)) {
      case 0:
        if (!field.choices.empty())
          return static_cast<uint32_t>(field.choices[Random(field.choices.size())].value);
        [[fallthrough]];
      case 1:
        if (field.range.lowest <= field.range.highest) {
          const auto span = static_cast<uint32_t>(field.range.highest - field.range.lowest + 3);
          return static_cast<uint32_t>(field.range.lowest - 1) + Random(span);
        }
        [[fallthrough]];
      case 2:
        return limits[Random(std::size(limits))];
      default:
        return static_cast<uint32_t>(random_());
    }
  }

  Bytes Noise(size_t size) {
    Bytes bytes(size);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(OneIn(3) ? Random(4) : Random(256));
    return bytes;
  }

  Bytes RandomRequest(const CommandDescription& command) {
    if (OneIn(8)) return RequestFor(command);
    Bytes request;
    for (const Field& field : command.request) {
      Bytes bytes = Noise(field.size);
      if (field.size % 4 == 0 && field.form != Form::Text && field.form != Form::Digits) {
        bytes.clear();
        while (bytes.size() < field.size) bytes = bytes + Words({Interesting(field)});
      } else if (!OneIn(3)) {
        for (uint8_t& byte : bytes)
          byte = static_cast<uint8_t>(field.form == Form::Digits ? '0' + Random(10) : 32 + Random(95));
      }
      request = request + bytes;
    }
    Tame(command, request);
    return request;
  }

  void SetWord(Bytes& bytes, size_t offset, uint32_t word) {
    std::ranges::copy(Words({word}), bytes.begin() + static_cast<ptrdiff_t>(offset));
  }

  // What would only take long: real time-outs, large pictures, a tone that goes on.
  void Tame(const CommandDescription& command, Bytes& request) {
    if (command.code == EXCHANGE_AT) SetWord(request, 32, OneIn(40) ? 1000 : 0);
    if (command.code == CONTROL_TONE && !OneIn(3)) SetWord(request, 24, 0);
    if (command.code == TEST_CAMERA && !OneIn(40)) {
      for (const size_t offset : {4, 8}) {
        const uint32_t extent = WordAt(request, offset);
        if (extent <= MAX_PICTURE_HEIGHT) SetWord(request, offset, extent % 100);
      }
    }
  }

  void Add(Exchange& exchange, const CommandDescription& command, const Bytes& request) {
    exchange.bytes = exchange.bytes + Words({command.code}) + request;
    exchange.answer_size += AnswerSize(command);
    exchange.commands.push_back(&command);
  }

  // In bytes whose borders the server may see elsewhere than we do, no four may be a code that ends the
  // service, or waits as long as its request says.
  void LeaveOutCodesThatEnd(Bytes& bytes) {
    const auto ends = [&](size_t offset) {
      const uint32_t code =
          offset + 4 <= bytes.size()
              ? WordAt(bytes, offset)
              : WordAt(Bytes(bytes.begin() + static_cast<ptrdiff_t>(offset), bytes.end()) + Bytes(3), 0);
      return code == POWER_OFF || code == STOP_USER_INTERFACE || code == RUN_IN || code == PASS_THROUGH ||
             code == EXCHANGE_AT;
    };
    bytes.insert(bytes.begin(), 3, 0);  // the ping before it
    for (size_t offset = 0; offset < bytes.size(); ++offset) {
      if (ends(offset)) bytes[std::max<size_t>(offset, 3)] = 0xFE;
    }
    bytes.erase(bytes.begin(), bytes.begin() + 3);
  }

  // The server's own process, still there, or what it said at its end.
  void ExpectAlive() {
    if (Phone().IsRunning() && Phone().ServerProcess() == server_) return;
    std::string said;
    for (const std::string& line : LinesSince(OfKind({JournalKind::Console}))) said += line + "\n";
    const auto end = Phone().WaitForEnd(10s);
    throw std::runtime_error(
        fmt::format("the {}; it said:\n{}", end ? end->Text() : "server is another", said));
  }

  Bytes ReceiveAll(size_t size) {
    return host.Receive(size, 120s, [this] { return Phone().IsRunning(); });
  }

  void ExpectPing() {
    SendCommand(PING, Words({0}));
    const Bytes answer = ReceiveAll(4);
    ExpectAlive();
    ASSERT_EQ(answer, Words({1}));
  }

  // The kernel lists the call in which the server waits: `select` has no time-out only in the wait for a
  // code.
  bool AwaitsCode() {
    std::ifstream file(fmt::format("/proc/{}/syscall", Phone().ServerProcess()));
    long number = -1;
    uint64_t count = 0, readable = 0, others = 0, time_out = 1;
    file >> number >> std::hex >> count >> readable >> others >> others >> time_out;
    // select and pselect6 of 64 bits; _newselect, pselect6 and pselect6_time64 of 32
    constexpr long WAITS[] = {23, 270, 142, 308, 413};
    return std::ranges::count(WAITS, number) != 0 && readable != 0 && time_out == 0;
  }

  // After bytes that were lost or taken for others: fills with zeros what the server may still be reading, to
  // the byte, until it waits for a code. No command but the ping can be seen in zeros.
  void FindTheServerAgain() {
    host.Send(Bytes(640));
    ASSERT_TRUE(Eventually(
        [this] {
          ExpectAlive();
          while (!host.Receive(4096, 10ms).empty()) continue;
          if (AwaitsCode() && host.IsQuiet(10ms) && AwaitsCode()) return true;
          host.Send(Bytes(1));
          return false;
        },
        120s));
  }

  void SendInPieces(const Bytes& bytes) {
    for (size_t from = 0; from < bytes.size();) {
      // A code is read in one piece or dropped.
      const size_t to = from < 4 ? 4 + Random(5) : from + 1 + Random(40);
      const auto at = [&](size_t offset) {
        return bytes.begin() + static_cast<ptrdiff_t>(std::min(offset, bytes.size()));
      };
      host.Send(Bytes(at(from), at(to)));
      if (OneIn(4)) std::this_thread::sleep_for(1ms);
      from = to;
    }
  }

  // Commands whose answers are known: each must have its size and a stated status.
  void TryCommands() {
    Exchange exchange;
    for (uint32_t count = OneIn(4) ? 2 + Random(8) : 1; count > 0; --count) {
      const CommandDescription& command = RandomCommand();
      if (command.code == PAUSE_LINK || exchange.answer_size + AnswerSize(command) > MOST_ANSWERED_AT_ONCE) {
        if (!exchange.commands.empty()) break;
      }
      if (command.code == POLL_KEYPAD && !OneIn(20)) {  // otherwise it waits for half a second
        Phone().With<Keypad>([this](Keypad& keypad) { keypad.PutEvent(static_cast<uint32_t>(random_())); });
      }
      Add(exchange, command, RandomRequest(command));
      if (command.code == PAUSE_LINK || command.code == CONTROL_TOUCH_TEST) break;
    }
    if (exchange.commands.size() == 1 && OneIn(4)) {
      SendInPieces(exchange.bytes);
    } else {
      host.Send(exchange.bytes);
    }
    // A touch test that is stopped looks at that after the next touch only.
    const bool touches = exchange.commands.back()->code == CONTROL_TOUCH_TEST;
    for (Bytes answers; answers.size() < exchange.answer_size;) {
      const Bytes piece = touches ? host.Receive(exchange.answer_size - answers.size(), 2ms)
                                  : ReceiveAll(exchange.answer_size - answers.size());
      answers = answers + piece;
      if (touches) Phone().With<TouchPanel>([](TouchPanel& panel) { panel.Deliver({100, 100, 1}); });
      ExpectAlive();
      if (!touches || answers.size() == exchange.answer_size) ExpectStated(exchange, answers);
      if (!touches) break;
    }
    if (exchange.commands.back()->code == PAUSE_LINK) FindTheServerAgain();
  }

  void ExpectStated(const Exchange& exchange, const Bytes& answers) {
    ASSERT_EQ(answers.size(), exchange.answer_size);
    auto start = answers.begin();
    for (const CommandDescription* command : exchange.commands) {
      const Bytes answer(start, start + static_cast<ptrdiff_t>(AnswerSize(*command)));
      start += static_cast<ptrdiff_t>(answer.size());
      // Only the Bluetooth tool chooses its status itself.
      EXPECT_TRUE(IsStatedAnswer(*command, answer)) << command->name << testing::PrintToString(answer);
    }
  }

  void TryUnread() {
    for (uint32_t count = 1 + Random(20); count > 0; --count) {
      const CommandDescription& command = RandomCommand();
      if (command.code == CONTROL_TOUCH_TEST || command.code == PAUSE_LINK) continue;
      SendCommand(command.code, RandomRequest(command));
    }
    FindTheServerAgain();
  }

  // A request that comes short or late, or noise of any length.
  void TryBroken() {
    const CommandDescription& command = RandomCommand();
    Bytes bytes = Words({command.code}) + RandomRequest(command);
    size_t cut = bytes.size();
    if (OneIn(2)) {
      bytes = Noise(1 + Random(2000));
      cut = bytes.size();
    } else {
      cut = 1 + Random(bytes.size() - 1);
    }
    LeaveOutCodesThatEnd(bytes);
    const auto border = bytes.begin() + static_cast<ptrdiff_t>(cut);
    host.Send(Bytes(bytes.begin(), border));
    if (OneIn(2)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(Random(1500)));
      host.Send(Bytes(border, bytes.end()));
    }
    FindTheServerAgain();
  }

  // The four that end the service or hold it: noise follows, and then the phone is switched on again.
  void TryLast() {
    const uint32_t code = (const uint32_t[]){POWER_OFF, STOP_USER_INTERFACE, RUN_IN, PASS_THROUGH}[Random(4)];
    const CommandDescription& command = *std::ranges::find(COMMANDS, code, &CommandDescription::code);
    SendCommand(code, RandomRequest(command));
    if (code != POWER_OFF) host.Send(Noise(Random(3000)));
    const auto end = Phone().WaitForEnd(code == POWER_OFF ? 120s : 100ms);
    if (code == POWER_OFF) {
      if (!end || end->reason != PhoneEnd::Reason::PoweredOff) ExpectAlive();
    } else {
      ExpectAlive();
    }
    DiscardPhone();
    Start();
    server_ = Phone().ServerProcess();
  }

  void TryOne() {
    if (OneIn(200)) return TryLast();
    if (OneIn(100)) return TryBroken();
    if (OneIn(30)) return TryUnread();
    TryCommands();
  }

  const std::vector<CommandDescription> commands_ = CommandsThatReturn();
  std::vector<double> weights_;
  std::mt19937_64 random_;
  pid_t server_ = 0;
};

TEST_F(ConversationFuzzTest, ServesWhateverComes) {
  const size_t count = EnvironmentNumber("EXCHANGES", 150);
  const uint64_t seed = EnvironmentNumber("SEED", std::random_device()());
  RecordProperty("seed", std::to_string(seed));
  SCOPED_TRACE(fmt::format("SEED={} EXCHANGES={}", seed, count));
  std::cout << fmt::format("SEED={} EXCHANGES={}\n", seed, count) << std::flush;
  random_.seed(seed);
  server_ = Phone().ServerProcess();
  const auto start = std::chrono::steady_clock::now();
  size_t done = 0;
  for (; done < count && !HasFailure(); ++done) {
    SCOPED_TRACE(fmt::format("exchange {}", done));
    TryOne();
    if (!HasFailure()) ExpectPing();
  }
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
  std::cout << fmt::format("{} exchanges in {:.0f} s, {:.0f} a second\n", done, time.count(),
                           static_cast<double>(done) / time.count());
  ExpectAlive();
}

}  // namespace
