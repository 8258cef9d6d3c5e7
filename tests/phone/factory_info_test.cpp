// The factory information record, and through it how partitions are looked up.
#include "tests/phone/call_tracer.h"
#include "tests/phone/flash_test.h"

namespace {

using Kind = CallFate::Kind;

// The kernel's list is read in pieces of 63 characters, and a number begins at the
// fourth character of the piece that holds the name, whatever that is.

using FactoryInfoTest = FlashTest;

TEST_F(FactoryInfoTest, LooksPartitionsUpInTheKernelsList) {
  Boot();
  const std::string pad(63, 'x');
  const Bytes scratch = Answer(0, Bytes(128, 0xFF));
  const Bytes failed = Answer(-9991, Bytes(128, 0));
  const struct {
    const char* what;
    std::string list;
    Lines opened;
    Bytes answer;
  } CASES[] = {
      {"an empty list", "", {}, failed},
      {"the first of two lines",
       "mtd0: 1 1 \"Factory Info\"\nmtd6: 1 1 \"Factory Info\"\n",
       {OpenOf(0, "r")},
       scratch},
      {"a longer name", "mtd0: 1 1 \"My Factory Info 2\"\n", {OpenOf(0, "r")}, scratch},
      {"a part of the name", "mtd0: 1 1 \"Factory Inf\"\n", {}, failed},
      {"no line end", "mtd0: 1 1 \"Factory Info\"", {OpenOf(0, "r")}, scratch},
      {"no number", "mtd: 1 1 \"Factory Info\"\n", {OpenOf(0, "r")}, scratch},
      {"a number that is missing", "mtd-1: 1 1 \"Factory Info\"\n", {}, failed},
      {"a negative number", "mtd-2: 1 1 \"Factory Info\"\n", {}, failed},
      {"a device that is not there",
       "mtd17: 1 1 \"Factory Info\"\n",
       {OpenOf(17, "r") + " -> ENOENT"},
       failed},
      {"more than a word holds",
       "mtd99999999999: \"Factory Info\"\n",
       {OpenOf(2147483647, "r") + " -> ENOENT"},
       failed},
      {"the rest of a long line", pad + "abc0 Factory Info\n", {OpenOf(0, "r")}, scratch},
      {"the rest of a long line, shorter than a number", pad + "Factory Info", {OpenOf(0, "r")}, scratch},
      {"a name that a piece ends in", std::string(55, 'x') + "Factory Info\n", {}, failed},
  };
  for (const auto& row : CASES) {
    SCOPED_TRACE(row.what);
    Phone().Root().PutFile("/proc/mtd", row.list);
    MarkJournal();
    EXPECT_EQ(Ask(0x11, IGNORED, 132), row.answer);
    EXPECT_EQ(FlashLines(), Lines{LOOKUP} + row.opened);
  }
  Phone().TakeAway("/proc/mtd");
  EXPECT_EQ(Ask(0x11, IGNORED, 132), failed);
}

TEST_F(FactoryInfoTest, WritesAndReadsTheFactoryInformation) {
  Boot();
  Bytes block(128);
  for (size_t index = 0; index < block.size(); ++index) block[index] = static_cast<uint8_t>(200 - index);
  EXPECT_EQ(AskStatus(0x32, block), 0);
  EXPECT_EQ(LinesSince(OfKind({JournalKind::Sleep, JournalKind::Shell}) || AtPath("/dev/mtdblock_bbs/3")),
            Lines{"sleep 1.000"} + RewriteOf(3));
  EXPECT_TRUE(Flash("Factory Info") == AsText(block) + std::string(16384 - 128, '\xFF'));

  MarkJournal();
  EXPECT_EQ(Ask(0x11, IGNORED, 132), Answer(0, block));
  EXPECT_EQ(Ask(0x31, IGNORED, 132), Answer(0, block));
  EXPECT_EQ(Ask(0x05, IGNORED, 14), Answer(0, Bytes(block.begin(), block.begin() + 10)));
  EXPECT_EQ(Ask(0x08, IGNORED, 14), Answer(0, Bytes(block.begin() + 21, block.begin() + 31)));
  EXPECT_EQ(FlashLines(), ReadOf(3) + ReadOf(3) + ReadOf(3) + ReadOf(3));

  MarkJournal();
  EXPECT_EQ(AskStatus(0x06, FromText("0123456789")), -9994);
  EXPECT_EQ(AskStatus(0x09, FromText("0123456789")), -9994);
  EXPECT_EQ(LinesSince(), Lines{}) << "single fields are not written";
}

TEST_F(FactoryInfoTest, TellsEveryFailureOfTheFactoryInformation) {
  Boot();
  const std::string content = Flash("Factory Info");
  const Bytes nothing(10);
  const auto expect_failures = [&](const Bytes& read) {
    EXPECT_EQ(Ask(0x05, IGNORED, 14), Answer(-9991, nothing));
    EXPECT_EQ(Ask(0x08, IGNORED, 14), Answer(-9991, nothing));
    EXPECT_EQ(Ask(0x11, IGNORED, 132), Answer(-9991, read));
  };
  SetListed("Factory Info", false);
  expect_failures(Bytes(128));
  EXPECT_EQ(AskStatus(0x32, Bytes(128, 0x11)), -9991);
  EXPECT_TRUE(Flash("Factory Info") == content);
  SetListed("Factory Info", true);

  // After a short read the answer with the whole record holds what came, the answer with a field holds
  // nothing.
  Phone().GetFaults().ShortenFile("/dev/mtdblock_bbs/3", 127);
  Bytes partial = FromText(content.substr(0, 127));
  partial.push_back(0);
  expect_failures(partial);
  Phone().GetFaults().Clear();

  {
    const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
      if (call.thread == Phone().ServerProcess() && call.IsWrite() && call.Size() == 128)
        return {Kind::Shortened, 127};
      return {};
    });
    EXPECT_EQ(AskStatus(0x32, Bytes(128, 0x22)), -9991);
  }
  EXPECT_TRUE(Flash("Factory Info") == std::string(127, 0x22) + std::string(16384 - 127, '\xFF'));

  Phone().TakeAway("/dev/mtdblock_bbs/3");
  expect_failures(Bytes(128));
  EXPECT_EQ(AskStatus(0x32, Bytes(128, 0x33)), -9991);
  EXPECT_TRUE(Flash("Factory Info") == std::string(16384, '\xFF')) << "erased before the open failed";

  // A failed erase is not reported: the record is written over the old content.
  Phone().PutBack("/dev/mtdblock_bbs/3");
  SetFlash("Factory Info", std::string(200, 0x44));
  Phone().TakeAway("/dev/mtd/3");
  EXPECT_EQ(AskStatus(0x32, Bytes(128, 0x55)), 0);
  Phone().PutBack("/dev/mtd/3");
  EXPECT_EQ(Flash("Factory Info").substr(0, 200), std::string(128, 0x55) + std::string(72, 0x44));
  EXPECT_TRUE(StillAnswers());
}

}  // namespace
