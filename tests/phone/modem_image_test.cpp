// The modem's file-system image: copied from the modem's memory into flash, read back in chunks.
#include "simulator/models/modem_driver.h"
#include "tests/phone/call_tracer.h"
#include "tests/phone/flash_test.h"

namespace {

using Kind = CallFate::Kind;

constexpr size_t IMAGE_CHUNK = 1024;

class ModemImageTest : public FlashTest {
 protected:
  // Status and what was delivered; the rest of the data area must be zero.
  std::pair<int32_t, std::string> NextChunk() {
    const Bytes answer = Ask(0x34, IGNORED, 4 + IMAGE_CHUNK);
    const std::string data = AsText(answer).substr(4);
    const size_t size = static_cast<size_t>(std::max(StatusOf(answer), 0));
    EXPECT_EQ(data.substr(size), std::string(IMAGE_CHUNK - size, '\0'));
    return {StatusOf(answer), data.substr(0, size)};
  }
  void ExpectWholeImage(const std::string& image) {
    for (size_t place = 0; place < image.size(); place += IMAGE_CHUNK) {
      const std::string expected = image.substr(place, IMAGE_CHUNK);
      ASSERT_EQ(NextChunk(), std::pair(static_cast<int32_t>(expected.size()), expected)) << place;
    }
  }
};

TEST_F(ModemImageTest, SavesTheModemsMemoryAndDeliversItInChunks) {
  Boot();
  EXPECT_EQ(AskStatus(0x33, IGNORED), 0);
  EXPECT_EQ(FlashLines(), (Lines{LOOKUP, EraseOf(6),
                                 "shell dd if=/dev/mem of=/dev/mtdblock_bbs/6 bs=4096 skip=81678 count=20",
                                 OpenOf(6, "w+create+truncate"), "shell sync"}));
  const std::string image = simulator::ModemImage();
  ASSERT_EQ(image.size(), 80 * IMAGE_CHUNK);
  EXPECT_TRUE(Flash("GSM FFS") == image);

  MarkJournal();
  ExpectWholeImage(image);
  EXPECT_EQ(NextChunk(), std::pair(0, std::string()));
  EXPECT_EQ(FlashLines(), (Lines{LOOKUP, OpenOf(6, "r+cloexec")})) << "one open for the whole image";
  EXPECT_EQ(NextChunk(), std::pair(1024, image.substr(0, IMAGE_CHUNK))) << "and from the start again";
  EXPECT_EQ(FlashLines().size(), 4u);
}

TEST_F(ModemImageTest, StartsAgainAfterAnIncompleteChunk) {
  Boot();
  AskStatus(0x33, IGNORED);
  std::filesystem::resize_file(Phone().Root().Outside("/dev/mtd/6"), 2 * IMAGE_CHUNK + 500);
  const std::string start = Flash("GSM FFS");
  ExpectWholeImage(start);
  ExpectWholeImage(start);
}

TEST_F(ModemImageTest, TellsEveryFailure) {
  Boot();
  SetListed("GSM FFS", false);
  EXPECT_EQ(AskStatus(0x33, IGNORED), -9991);
  EXPECT_EQ(NextChunk(), std::pair(-9991, std::string()));
  EXPECT_EQ(FlashLines(), (Lines{LOOKUP, LOOKUP}));
  SetListed("GSM FFS", true);

  Phone().TakeAway("/dev/mtdblock_bbs/6");
  EXPECT_EQ(NextChunk(), std::pair(-9989, std::string()));
  Phone().PutBack("/dev/mtdblock_bbs/6");

  // A failure of the eraser or of the copy is not reported.
  Phone().TakeAway("/dev/mem");
  EXPECT_EQ(AskStatus(0x33, IGNORED), 0);
  EXPECT_TRUE(Flash("GSM FFS") == Erased(80 * IMAGE_CHUNK));
  Phone().PutBack("/dev/mem");
  Phone().TakeAway("/home/utils/eraseall");
  EXPECT_EQ(AskStatus(0x33, IGNORED), 0);
  EXPECT_TRUE(Flash("GSM FFS") == simulator::ModemImage());

  // A read that fails closes the partition: the next chunk is the first one.
  ExpectWholeImage(simulator::ModemImage().substr(0, 3 * IMAGE_CHUNK));
  {
    const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
      return call.IsRead() && call.Size() == IMAGE_CHUNK ? CallFate{Kind::Refused, 0, EIO} : CallFate{};
    });
    EXPECT_EQ(NextChunk(), std::pair(-9987, std::string()));
  }
  ExpectWholeImage(simulator::ModemImage());
}

}  // namespace
