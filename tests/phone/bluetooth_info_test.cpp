// The Bluetooth chip's start-up script on flash: the template with the address patched in, which templates
// are accepted, and failures.
#include <filesystem>

#include "tests/phone/call_tracer.h"
#include "tests/phone/flash_test.h"

namespace {

using Kind = CallFate::Kind;

constexpr char TEMPLATE[] = "/usr/share/app_data/bluetooth/ti6150_template";
constexpr char MATCH[] = "\x06\xFC\x06";
const std::string OWN_ADDRESS = "\xA1\xB2\xC3\xD4\xE5\xF6";

class BluetoothInfoTest : public FlashTest {
 protected:
  int32_t Write(uint32_t code = 0x0E) {
    return AskStatus(code, FromText(OWN_ADDRESS + "not used, 12"));
  }
  void PutTemplate(const std::string& content) {
    Phone().Root().PutFile(TEMPLATE, content);
  }
};

TEST_F(BluetoothInfoTest, WritesTheTemplateWithTheAddress) {
  Boot();
  const std::string script = Phone().Root().ReadFile(TEMPLATE);
  const size_t place = script.find(MATCH) + 3;
  for (const uint32_t code : {0x0E, 0x37}) {
    SetFlash("Bluetooth Info", std::string(16384, 'x'));
    MarkJournal();
    EXPECT_EQ(Write(code), 0);
    std::string patched = script;
    patched.replace(place, 6, OWN_ADDRESS);
    EXPECT_TRUE(Flash("Bluetooth Info") == patched + Erased(16384 - script.size()));
    EXPECT_EQ(LinesSince(OfKind({JournalKind::Shell}) || Below("/dev/mtdblock_bbs/") || AtPath(TEMPLATE)),
              (Lines{LOOKUP, std::string("open ") + TEMPLATE + " r", EraseOf(5), OpenOf(5, "w")}));
    EXPECT_EQ(Phone().Root().ReadFile(TEMPLATE), script);
  }
}

TEST_F(BluetoothInfoTest, SearchesTheTemplateForTheAddressRecord) {
  Boot();
  const std::string match = MATCH;
  const std::string room = "......";
  const std::string full = std::string(16384 - 9, 'a') + match;
  const struct {
    const char* what;
    std::string content;
    int32_t status;
    size_t place;  // of the address
  } CASES[] = {
      {"exactly six bytes behind", match + room, 0, 3},
      {"five bytes behind", match + ".....", -9990, 0},
      {"none behind", match, -9990, 0},
      {"an empty template", "", -9990, 0},
      {"no record", "\x06\xFC\x05......", -9990, 0},
      {"a start inside a start", "\x06" + match + room, -9990, 0},
      {"a broken start, then a whole one", "\x06\xFC\x07" + match + room, 0, 6},
      {"a sequence broken at its third byte by a start", "\x06\xFC\xFC" + match + room, 0, 6},
      {"the first of two", match + room + match + room, 0, 3},
      {"overlapping records", "\x06\xFC\x06\xFC\x06......", 0, 3},
      {"the largest template, the record at its end", full + room, 0, 16384 - 6},
      {"one byte too many", "a" + full + room, -9997, 0},
  };
  for (const auto& row : CASES) {
    SCOPED_TRACE(row.what);
    SetFlash("Bluetooth Info", std::string(16384, 'x'));
    PutTemplate(row.content);
    MarkJournal();
    EXPECT_EQ(Write(), row.status);
    std::string expected(16384, 'x');
    if (row.status == 0) {
      expected = row.content + Erased(16384 - row.content.size());
      expected.replace(row.place, 6, OWN_ADDRESS);
    }
    EXPECT_TRUE(Flash("Bluetooth Info") == expected);
    EXPECT_EQ(FlashLines().size(), row.status == 0 ? 3u : 1u)
        << "a failure before the erase leaves the flash";
  }
}

TEST_F(BluetoothInfoTest, TellsEveryFailure) {
  Boot();
  SetFlash("Bluetooth Info", std::string(16384, 'x'));
  SetListed("Bluetooth Info", false);
  EXPECT_EQ(Write(), -9991);
  SetListed("Bluetooth Info", true);

  Phone().TakeAway(TEMPLATE);
  EXPECT_EQ(Write(), -9989);
  Phone().Root().MakeDirectory(TEMPLATE);
  EXPECT_EQ(Write(), -9997) << "a thing without a size is out of range";
  std::filesystem::remove(Phone().Root().Outside(TEMPLATE));
  Phone().PutBack(TEMPLATE);

  const auto size = std::filesystem::file_size(Phone().Root().Outside(TEMPLATE));
  const auto shorten = [&](bool reads) {
    return [this, size, reads](const TracedCall& call) -> CallFate {
      const bool wanted = call.thread == Phone().ServerProcess() &&
                          (reads ? call.IsRead() : call.IsWrite()) && call.Size() == size;
      return wanted ? CallFate{Kind::Shortened, size - 1} : CallFate{};
    };
  };
  {
    const CallTracer tracer(Phone().ServerProcess(), shorten(true));
    EXPECT_EQ(Write(), -9987);
  }
  EXPECT_TRUE(Flash("Bluetooth Info") == std::string(16384, 'x')) << "every failure so far left the flash";
  {
    const CallTracer tracer(Phone().ServerProcess(), shorten(false));
    EXPECT_EQ(Write(), -9986);
  }
  Phone().TakeAway("/dev/mtdblock_bbs/5");
  EXPECT_EQ(Write(), -9989);
  EXPECT_TRUE(Flash("Bluetooth Info") == Erased(16384)) << "the erase comes before the open";
  Phone().PutBack("/dev/mtdblock_bbs/5");
  EXPECT_EQ(Write(), 0);
}

#if !defined(__SANITIZE_ADDRESS__) && \
    !defined(__SANITIZE_THREAD__)  // whose allocators end the program if there is no memory
TEST_F(BluetoothInfoTest, TellsThatMemoryIsOut) {
  Boot();
  PutTemplate(std::string(10000, 'a') + MATCH + "......");
  EXPECT_EQ(AskWithoutMemory(TEMPLATE, 0x0E, Bytes(18)), -9988);
  EXPECT_EQ(FlashLines(), Lines{LOOKUP}) << "nothing is erased";
  EXPECT_EQ(Write(), 0);
  EXPECT_TRUE(StillAnswers());
}
#endif

}  // namespace
