// Requests of the production and maintenance commands that come in pieces, late, or not whole. These tests
// wait in real time: a request has 1000 ms to arrive.
#include <thread>

#include "tests/phone/flash_test.h"

namespace {

class LateRequestTest : public FlashTest {
 protected:
  void SendInPieces(const Bytes& bytes, size_t first, std::chrono::milliseconds pause) {
    host.Send(Bytes(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(first)));
    std::this_thread::sleep_for(pause);
    host.Send(Bytes(bytes.begin() + static_cast<ptrdiff_t>(first), bytes.end()));
  }
};

TEST_F(LateRequestTest, DoesNothingWithoutTheWholeRequest) {
  Boot();
  const std::pair<uint32_t, size_t> SHORT[] = {{0x02, 3},  {0x03, 0},  {0x04, 3},   {0x0C, 14}, {0x0D, 3},
                                               {0x0E, 17}, {0x2F, 31}, {0x32, 127}, {0x33, 3}};
  for (const auto& [code, size] : SHORT) {
    SCOPED_TRACE(code);
    MarkJournal();
    SendCommand(code, Bytes(size, '1'));
    EXPECT_TRUE(host.IsQuiet(1200ms));
    EXPECT_EQ(LinesSince(), code == 0x32 ? Lines{"sleep 1.000"} : Lines{});
    EXPECT_TRUE(StillAnswers()) << "and takes the next code for what it is";
  }
}

TEST_F(LateRequestTest, JoinsPiecesAndDropsWhatComesTooLate) {
  Boot();
  SendInPieces(Words({0x0C}) + FromText("123456789012345"), 4 + 7, 700ms);
  EXPECT_EQ(host.Receive(4), Words({0}));

  // The last byte of the request comes too late and is dropped as a code that is not whole.
  const std::string record = Flash("Partition Info");
  SendInPieces(Words({0x04, 0x01020304}), 4 + 3, 1300ms);
  EXPECT_TRUE(host.IsQuiet(300ms));
  EXPECT_TRUE(Flash("Partition Info") == record);
  EXPECT_TRUE(StillAnswers());
}

// The time for the factory information begins after the command's own second of sleep.
TEST_F(LateRequestTest, WaitsForTheFactoryInformationAfterItsSleep) {
  options.instant_sleeps = false;
  Boot();
  SendInPieces(Words({0x32}) + Bytes(128, 'a'), 4 + 64, 1600ms);
  EXPECT_EQ(host.Receive(4), Words({0}));
  EXPECT_EQ(Flash("Factory Info").substr(0, 129), std::string(128, 'a') + Erased(1));

  const auto sent = std::chrono::steady_clock::now();
  EXPECT_EQ(AskStatus(0x32, Bytes(128, 'b')), 0) << "bytes that came at once have waited";
  EXPECT_GE(std::chrono::steady_clock::now() - sent, 1s);
}

}  // namespace
