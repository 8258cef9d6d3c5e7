// The whole protocol at once: every code takes a request of its size and gives an answer of its size, with
// nothing behind it, whatever the request holds.
#include <random>
#include <thread>

#include "tests/phone/phone_test.h"

namespace {

struct Command {
  uint32_t code;
  size_t request_size;
  size_t answer_size;  // 0: never answered
};

// All but those that end the service (0x02, 0x0D, 0x38) or hold it (0x3D).
constexpr Command COMMANDS[] = {
    {0x00, 4, 4},  {0x01, 4, 0},   {0x03, 4, 4},   {0x04, 4, 4},    {0x05, 4, 14},   {0x06, 10, 4},
    {0x07, 4, 10}, {0x08, 4, 14},  {0x09, 10, 4},  {0x0A, 4, 132},  {0x0B, 4, 19},   {0x0C, 15, 4},
    {0x0E, 18, 4}, {0x0F, 4, 132}, {0x10, 4, 132}, {0x11, 4, 132},  {0x22, 4, 132},  {0x23, 4, 28},
    {0x24, 16, 4}, {0x25, 4, 4},   {0x26, 4, 4},   {0x27, 4, 4},    {0x28, 16, 4},   {0x29, 28, 4},
    {0x2A, 8, 4},  {0x2B, 8, 4},   {0x2C, 20, 12}, {0x2D, 8, 12},   {0x2E, 4, 36},   {0x2F, 32, 4},
    {0x30, 4, 8},  {0x31, 4, 132}, {0x32, 128, 4}, {0x33, 4, 4},    {0x34, 4, 1028}, {0x35, 12, 4},
    {0x36, 12, 8}, {0x37, 18, 4},  {0x39, 8, 4},   {0x3A, 8, 4},    {0x3B, 36, 36},  {0x3C, 4, 4},
    {0x3E, 4, 4},  {0x3F, 12, 4},  {0x40, 12, 4},  {0x41, 4, 1028}, {0x42, 26, 24},  {0x43, 10, 28},
    {0x44, 4, 8},  {0x45, 4, 4},   {0x46, 4, 4},   {0x47, 4, 4},    {0x48, 4, 8},    {0x49, 4, 14},
};

constexpr uint32_t PAUSE = 0x3C;  // closes the host port and opens it again

class ProtocolTest : public PhoneTest {
 protected:
  ProtocolTest() {
    options.instant_sleeps = true;
    Boot();
  }

  void ExpectAnswer(const Command& command, const Bytes& request) {
    if (command.answer_size != 0) {
      if (command.code == PAUSE) MarkJournal();
      Ask(command.code, request, command.answer_size, 60s);
      // Opening the port again drops what has come by then, so the next command has to wait for that.
      if (command.code == PAUSE) {
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
  for (const Command& command : COMMANDS) {
    SCOPED_TRACE(testing::Message() << "code 0x" << std::hex << command.code);
    ExpectAnswer(command, Bytes(command.request_size, 0));
    ASSERT_TRUE(StillAnswers());
  }
}

TEST_F(ProtocolTest, NoCommandActsOnARequestThatComesShort) {
  for (const Command& command : COMMANDS) {
    if (command.code % 7 != 0 && command.request_size <= 20)
      continue;  // each takes a second: a good dozen of them
    SCOPED_TRACE(testing::Message() << "code 0x" << std::hex << command.code);
    SendCommand(command.code, Bytes(command.request_size - 1, 0));
    EXPECT_TRUE(host.IsQuiet(command.code == 0x42 || command.code == 0x43 ? 2200ms : 1200ms));
    ASSERT_TRUE(StillAnswers());
  }
  EXPECT_TRUE(LinesSince(OfKind({JournalKind::Shell, JournalKind::Request, JournalKind::Open})).empty());
}

TEST_F(ProtocolTest, SurvivesRequestsOfAnyContent) {
  std::mt19937 random(20061115);
  const uint32_t interesting[] = {0,  1,  2,  3,   10,         14,         15,        16,
                                  20, 24, 90, 255, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
  for (int round = 0; round < 6; ++round) {
    for (const Command& command : COMMANDS) {
      SCOPED_TRACE(testing::Message()
                   << "code 0x" << std::hex << command.code << " round " << std::dec << round);
      Bytes request;
      while (request.size() < command.request_size) {
        const uint32_t word = random() % 2 != 0 ? interesting[random() % std::size(interesting)]
                                                : static_cast<uint32_t>(random());
        request = request + Words({word});
      }
      request.resize(command.request_size);
      // The time-out of an AT command is real time, and so is the music of a tone until it is stopped.
      if (command.code == 0x3B) std::fill(request.begin() + 32, request.end(), 0);
      if (command.code == 0x29) request[24] = static_cast<uint8_t>(round % 2);
      ExpectAnswer(command, request);
      ASSERT_TRUE(StillAnswers());
    }
  }
  // Ends what the requests have started.
  EXPECT_EQ(WordAt(Ask(0x2D, Words({0, 0}), 12), 0), 0u);
}

}  // namespace
