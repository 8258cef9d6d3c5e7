// The identity in one-time-programmable flash: packed digits, programmed once, and failures.
#include <filesystem>

#include "simulator/models/flash.h"
#include "tests/phone/call_tracer.h"
#include "tests/phone/flash_test.h"

namespace {

using simulator::OneTimeArea;
using Kind = CallFate::Kind;

class IdentityTest : public FlashTest {
 protected:
  // How often the area was programmed, and its first bytes.
  int Programmings() {
    return Phone().With<OneTimeArea>([](OneTimeArea& area) { return area.Settled().programmings; });
  }
  std::string Cells(size_t size) {
    return Phone().With<OneTimeArea>([&](OneTimeArea& area) { return area.Settled().cells.substr(0, size); });
  }
  void PutInBlankArea() {
    Phone().With<OneTimeArea>([](OneTimeArea& area) { area.MakeBlank(); });
  }
  int32_t Program(const std::string& digits) {
    return AskStatus(0x0C, FromText(digits));
  }
};

TEST_F(IdentityTest, ProgramsTheIdentityOnce) {
  Boot();
  EXPECT_EQ(Ask(0x0B, IGNORED, 19), Answer(0, FromText("000000011234564"))) << "what a blank area reads as";
  EXPECT_EQ(AskStatus(0x47, IGNORED), 0);

  EXPECT_EQ(Program("123456789012345"), 0);
  const std::string programmed =
      std::string(
          "\x12\x34\x56\x78\x90\x12\x34\x50\xED\xCB\xA9\x87\x6F\xED\xCB\xAF\x05\0\0\0\xFA\xFF\xFF\xFF", 24) +
      std::string(16384 - 24, '\xFF');
  EXPECT_TRUE(Cells(16384) == programmed);
  EXPECT_EQ(Programmings(), 1);
  EXPECT_EQ(Ask(0x0B, IGNORED, 19), Answer(0, FromText("123456789012345")));
  EXPECT_EQ(AskStatus(0x47, IGNORED), -9990);

  EXPECT_EQ(Program("123456789012345"), 0) << "the same number again is accepted";
  EXPECT_EQ(Program("123456789012346"), -9990);
  EXPECT_EQ(Programmings(), 1) << "but is not programmed again";
  EXPECT_TRUE(Flash("OTP") == programmed);
  EXPECT_EQ(LinesSince(OfKind({JournalKind::Tool}) && AtPath("/home/utils/eraseall")), Lines{});
  // The simulated cells show a second programming, and lose the bits that it cannot set.
  SetFlash("OTP", "\xF0");
  EXPECT_EQ(Programmings(), 2);
  EXPECT_EQ(Cells(2), "\x10\x34");
}

// The digits are packed as they are, modulo 256, and unpacked as half-bytes.
TEST_F(IdentityTest, NeitherChecksDigitsNorComplement) {
  Boot();
  const struct {
    std::string written;
    std::string packed;
    std::string read;
  } CASES[] = {
      {":;<=>?:;<=>?:;<", "\xAB\xCD\xEF\xAB\xCD\xEF\xAB\xC0", ":;<=>?:;<=>?:;<"},
      {std::string(15, '\0'), std::string("\xD0\xD0\xD0\xD0\xD0\xD0\xD0\0", 8), "=0=0=0=0=0=0=00"},
      {std::string(15, '\x7F'), "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xF0", "???????????????"},
      {std::string(15, '\xFF'), "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xF0", "???????????????"},
  };
  for (const auto& row : CASES) {
    PutInBlankArea();
    EXPECT_EQ(Program(row.written), 0);
    EXPECT_EQ(Cells(8), row.packed);
    EXPECT_EQ(Ask(0x0B, IGNORED, 19), Answer(0, FromText(row.read)));
  }
  PutInBlankArea();
  SetFlash("OTP", std::string("\x98\x76\x54\x32\x10\x12\x34\x5F\0\1\2\3\4\5\6\7", 16));
  EXPECT_EQ(Ask(0x0B, IGNORED, 19), Answer(0, FromText("987654321012345")));
  EXPECT_EQ(Program("987654321012345"), -9990);
  PutInBlankArea();
  SetFlash("OTP", std::string("\x98\x76\x54\x32\x10\x12\x34\x50\0\1\2\3\4\5\6\7", 16));
  EXPECT_EQ(Program("987654321012345"), -9990) << "the same number with another complement";
}

TEST_F(IdentityTest, TakesBlankForWhatTheFirstBytesAre) {
  Boot();
  const struct {
    size_t place;  // of a byte that is not blank
    int32_t blank;
    int32_t programmed;
    const char* read;
  } CASES[] = {{0, -9990, -9990, "?>?????????????"},
               {15, -9990, -9990, "???????????????"},
               {16, -9990, 0, "000000011234564"},
               {8191, -9990, 0, "000000011234564"},
               {8192, 0, 0, "000000011234564"}};
  for (const auto& row : CASES) {
    SCOPED_TRACE(row.place);
    PutInBlankArea();
    SetFlash("OTP", Erased(row.place) + "\xFE");
    EXPECT_EQ(AskStatus(0x47, IGNORED), row.blank);
    EXPECT_EQ(Ask(0x0B, IGNORED, 19), Answer(0, FromText(row.read)));
    EXPECT_EQ(Program("000000000000000"), row.programmed);
    EXPECT_EQ(Cells(1), row.programmed == 0 ? std::string(1, '\0') : Flash("OTP").substr(0, 1));
  }
}

TEST_F(IdentityTest, LastsFromOneBootToTheNextWithTheOtherRecords) {
  const std::string directory = testing::TempDir() + "phone-state-" + std::to_string(getpid());
  options.state_directory = directory;
  Boot();
  EXPECT_EQ(Program("123456789012345"), 0);
  EXPECT_EQ(AskStatus(0x04, Words({4711})), 0);
  DiscardPhone();
  Boot();
  EXPECT_EQ(Ask(0x0B, IGNORED, 19), Answer(0, FromText("123456789012345")));
  EXPECT_EQ(Program("123456789012346"), -9990);
  EXPECT_EQ(Flash("Partition Info Bak").substr(12, 4), AsText(Words({4711})));
  DiscardPhone();
  std::filesystem::remove_all(directory);
}

TEST_F(IdentityTest, TellsEveryFailure) {
  Boot();
  const Bytes nothing(15);
  const auto expect_failures = [&](int32_t status) {
    EXPECT_EQ(Ask(0x0B, IGNORED, 19), Answer(status, nothing));
    EXPECT_EQ(Program("123456789012345"), status);
    EXPECT_EQ(AskStatus(0x47, IGNORED), status);
  };
  SetListed("OTP", false);
  expect_failures(-9991);
  SetListed("OTP", true);

  Phone().TakeAway("/dev/mtd/4");
  expect_failures(-9989);
  Phone().PutBack("/dev/mtd/4");

  Phone().GetFaults().ShortenFile("/dev/mtd/4", 15);
  expect_failures(-9987);
  Phone().GetFaults().Clear();
  Phone().GetFaults().ShortenFile("/dev/mtd/4", 8191);
  EXPECT_EQ(AskStatus(0x47, IGNORED), -9987);
  Phone().GetFaults().Clear();
  EXPECT_EQ(Programmings(), 0);

  // The result of a programming is not checked.
  {
    const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
      return call.IsWrite() && call.Size() == 512 ? CallFate{Kind::Refused, 0, EIO} : CallFate{};
    });
    EXPECT_EQ(Program("123456789012345"), 0);
  }
  EXPECT_EQ(Programmings(), 0);
  EXPECT_TRUE(StillAnswers());
}

#if !defined(__SANITIZE_ADDRESS__) && \
    !defined(__SANITIZE_THREAD__)  // whose allocators end the program if there is no memory
TEST_F(IdentityTest, TellsThatMemoryIsOut) {
  Boot();
  EXPECT_EQ(AskWithoutMemory("/dev/mtd/4", 0x47, IGNORED), -9988);
  EXPECT_EQ(AskStatus(0x47, IGNORED), 0);
  EXPECT_TRUE(StillAnswers());
}
#endif

}  // namespace
