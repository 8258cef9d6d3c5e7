// The serial channel and the dispatcher: which bytes become commands, and which do not.
#include <thread>

#include "tests/phone/phone_test.h"

namespace {

constexpr uint32_t PING = 0x00;
constexpr uint32_t NO_OPERATION = 0x01;
constexpr uint32_t MOTOR = 0x2B;

class ChannelTest : public PhoneTest {
 protected:
  ChannelTest() {
    options.instant_sleeps = true;
    Boot();
  }
};

TEST_F(ChannelTest, AnswersThePingAndSaysNothingToNoOperation) {
  EXPECT_EQ(Ask(PING, Words({0xFFFFFFFF}), 4), Words({1}));
  SendCommand(NO_OPERATION, Words({0}));
  EXPECT_TRUE(host.IsQuiet(200ms));
  EXPECT_TRUE(StillAnswers());
  EXPECT_TRUE(LinesSince().empty()) << testing::PrintToString(LinesSince());
}

TEST_F(ChannelTest, JoinsARequestThatComesInPieces) {
  const Bytes request = Words({1, 0});
  host.Send(Words({MOTOR}));
  for (const uint8_t byte : request) {
    std::this_thread::sleep_for(60ms);
    host.Send({byte});
  }
  EXPECT_EQ(host.Receive(4), Words({0}));
  EXPECT_EQ(LinesSince(OfKind({JournalKind::Shell})), Lines{"shell echo 1 > /proc/gpio/motor"});
}

TEST_F(ChannelTest, DropsARequestThatComesShortAndForgetsItsBytes) {
  host.Send(Words({MOTOR, 1}));  // 4 of 8 bytes
  EXPECT_TRUE(host.IsQuiet(1300ms));
  EXPECT_TRUE(StillAnswers()) << "the next command starts afresh";
  EXPECT_TRUE(LinesSince().empty()) << "the routine does not run";
  // A whole request after the time-out is taken for a code, which is unknown and is drained.
  host.Send(Words({MOTOR}));
  std::this_thread::sleep_for(1200ms);
  host.Send(Words({0x7777, 0}));
  EXPECT_TRUE(host.IsQuiet(1300ms));
  EXPECT_TRUE(StillAnswers());
}

TEST_F(ChannelTest, GivesARequestItsWholeSecond) {
  host.Send(Words({MOTOR, 0}));
  std::this_thread::sleep_for(800ms);
  host.Send(Words({0}));
  EXPECT_EQ(host.Receive(4), Words({0}));
}

TEST_F(ChannelTest, DropsACodeInTwoPieces) {
  host.Send({0x00, 0x00});
  std::this_thread::sleep_for(50ms);
  host.Send({0x00, 0x00});
  std::this_thread::sleep_for(50ms);
  // Both halves are gone, so this is the code and not the request of a ping.
  EXPECT_EQ(Ask(PING, Words({0}), 4), Words({1}));
}

TEST_F(ChannelTest, ReadsCommandsThatComeAtOnceOneAfterTheOther) {
  host.Send(Words({PING, 0, MOTOR, 1, 0, PING, 0}));
  EXPECT_EQ(host.Receive(12), Words({1, 0, 1}));
  EXPECT_TRUE(host.IsQuiet());
}

TEST_F(ChannelTest, DrainsWhatFollowsAnUnknownCode) {
  // Codes between and after those of the tables, and a known code at the wrong end of the word.
  for (const uint32_t code : {0x12u, 0x21u, 0x4Au, 0x22000000u, 0x00000122u}) {
    host.Send(Words({code, PING, 0}));  // the valid command is lost
    EXPECT_TRUE(host.IsQuiet(1200ms)) << std::hex << code;
    EXPECT_TRUE(StillAnswers()) << std::hex << code;
  }
  // The drain ends early at 512 bytes. The next command begins after them.
  Bytes flood = Words({0x12});
  flood.resize(4 + 512);
  host.Send(flood + Words({MOTOR, 1, 0}));
  EXPECT_EQ(host.Receive(4, 500ms), Words({0}));
  EXPECT_EQ(LinesSince(OfKind({JournalKind::Shell})), Lines{"shell echo 1 > /proc/gpio/motor"});
}

TEST_F(ChannelTest, WaitsWithoutBurningTheProcessor) {
  const long before = ProcessorTicks();
  std::this_thread::sleep_for(1s);
  EXPECT_LT(ProcessorTicks() - before, 5);
}

}  // namespace
