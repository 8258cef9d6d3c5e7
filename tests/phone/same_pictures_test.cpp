// Pictures, screens and sound of another build of the server ($PHONETESTD: the phone's own executable, 32
// bits, another libc) beside those of this machine's build: every byte is the same.
#include "simulator/models/front_panel.h"
#include "simulator/models/sound.h"
#include "tests/phone/camera_test.h"
#include "tests/phone/sound_lines.h"

namespace {

using simulator::Framebuffer;
using simulator::Sound;

class SamePictures : public CameraTest {
 protected:
  SamePictures() {
    options.instant_sleeps = true;
  }

  // What the server makes, each under a name.
  std::map<std::string, std::string> Made(const std::filesystem::path& server) {
    DiscardPhone();
    options.server = server;
    Phone().With<Sound>([](Sound& sound) { sound.state.paced = false; });
    Boot();
    std::map<std::string, std::string> made;
    for (const uint32_t rotation : {0u, 90u, 180u, 270u}) {
      const std::string turned = std::to_string(rotation);
      EXPECT_EQ(Camera(CAPTURE_BLEMISH, 320, 241, rotation), 0);
      made["blemish picture turned by " + turned] = Phone().Root().ReadFile(BLEMISH);
      EXPECT_EQ(Camera(CAPTURE_FOCUS, 1200, 1600, rotation), 0);
      made["focus picture turned by " + turned] = Phone().Root().ReadFile(FOCUS);
    }
    for (const uint32_t pattern : {0x1111u, 0x2222u, 0x3333u, 0x1234u}) {
      EXPECT_EQ(AskStatus(0x28, Words({pattern, pattern == 0x1234 ? 0xFFFF : pattern, 50, 0})), 0);
      made[fmt::format("screen 0x{:X}", pattern)] =
          Phone().With<Framebuffer>([](const Framebuffer& lcd) { return lcd.Png(); });
    }
    EXPECT_EQ(AskStatus(0x29, Words({697, 1209, 3000, 0, 40, 0, 1})), 0);
    constexpr size_t SECOND = 4 * 44100;
    const auto newest = [this] {
      return Phone().With<Sound>([](Sound& sound) {
        return sound.Recordings().empty() ? Sound::Recording{} : sound.Recordings().back();
      });
    };
    EXPECT_TRUE(Eventually([&] { return newest().bytes >= 2 * SECOND; }));
    EXPECT_EQ(AskStatus(0x29, Words({0, 0, 0, 0, 0, 0, 0})), 0);
    const std::vector<int16_t> samples = ReadRecording(newest().file).samples;
    made["tone"] = {reinterpret_cast<const char*>(samples.data()), std::min(samples.size() * 2, 2 * SECOND)};
    return made;
  }
};

TEST_F(SamePictures, AsTheServerOfThisMachine) {
  if (getenv("PHONETESTD") == nullptr) GTEST_SKIP() << "the server is this machine's own";
  const auto made = Made(options.server);
  const auto expected = Made(NativeServer());
  EXPECT_EQ(made.size(), 13u);
  for (const auto& [name, bytes] : expected) {
    EXPECT_FALSE(bytes.empty()) << name;
    EXPECT_TRUE(made.at(name) == bytes) << name;
  }
}

}  // namespace
