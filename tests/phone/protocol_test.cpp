// The whole protocol at once: every command that is stated takes a request of its size and returns an answer
// of its size, with nothing after it, whatever the request holds.
#include <algorithm>
#include <random>
#include <thread>

#include "tests/phone/every_command.h"
#include "tests/phone/phone_test.h"

namespace {

using namespace protocol;

class ProtocolTest : public PhoneTest {
 protected:
  ProtocolTest() {
    options.instant_sleeps = true;
    Boot();
  }

  void ExpectAnswer(const CommandDescription& command, const Bytes& request) {
    if (AnswerSize(command) != 0) {
      if (command.code == PAUSE_LINK) MarkJournal();
      Ask(command.code, request, AnswerSize(command), 60s);
      // The pause closes the port and opens it again. That drops what has come by then, so the next command
      // has to wait for that.
      if (command.code == PAUSE_LINK) {
        EXPECT_TRUE(Appears(LineIs("open /dev/usb/tts/0 rw+cloexec")));
        std::this_thread::sleep_for(200ms);
      }
      return;
    }
    SendCommand(command.code, request);
    EXPECT_TRUE(host.IsQuiet(100ms));
  }
};

TEST_F(ProtocolTest, EveryCommandTakesItsRequestAndGivesItsAnswer) {
  for (const CommandDescription& command : CommandsThatReturn()) {
    SCOPED_TRACE(command.name);
    ExpectAnswer(command, Bytes(RequestSize(command), 0));
    ASSERT_TRUE(StillAnswers());
  }
}

TEST_F(ProtocolTest, NoCommandActsOnARequestThatComesShort) {
  for (const CommandDescription& command : CommandsThatReturn()) {
    // Each takes a second, so this tries about a quarter of them: the longest requests, and some others.
    if (command.code % 7 != 0 && RequestSize(command) <= 20) continue;
    SCOPED_TRACE(command.name);
    SendCommand(command.code, Bytes(RequestSize(command) - 1, 0));
    EXPECT_TRUE(host.IsQuiet(command.request_timeout_ms * 1ms + 200ms));
    ASSERT_TRUE(StillAnswers());
  }
  EXPECT_TRUE(LinesSince(OfKind({JournalKind::Shell, JournalKind::Request, JournalKind::Open})).empty());
}

TEST_F(ProtocolTest, SurvivesRequestsOfAnyContent) {
  std::mt19937 random(20061115);
  const uint32_t interesting[] = {0,  1,  2,  3,   10,         14,         15,        16,
                                  20, 24, 90, 255, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
  for (int round = 0; round < 6; ++round) {
    for (const CommandDescription& command : CommandsThatReturn()) {
      SCOPED_TRACE(testing::Message() << command.name << ", round " << round);
      Bytes request;
      while (request.size() < RequestSize(command)) {
        const uint32_t word = random() % 2 != 0 ? interesting[random() % std::size(interesting)]
                                                : static_cast<uint32_t>(random());
        request = request + Words({word});
      }
      request.resize(RequestSize(command));
      // The time-out of an AT command is real time, and so is the music of a tone until it is stopped.
      if (command.code == EXCHANGE_AT) std::fill(request.begin() + 32, request.end(), 0);
      if (command.code == CONTROL_TONE) request[24] = static_cast<uint8_t>(round % 2);
      ExpectAnswer(command, request);
      ASSERT_TRUE(StillAnswers());
    }
  }
  // Ends what the requests have started.
  EXPECT_EQ(WordAt(Ask(CONTROL_TOUCH_TEST, Words({0, 0}), 12), 0), 0u);
}

}  // namespace
