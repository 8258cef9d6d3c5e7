// The codec's paths: every request with its argument, in order and nothing more.
#include "tests/phone/sound_lines.h"

namespace {

constexpr uint32_t AUDIO_PATH = 0x2A;

class AudioPath : public PhoneTest {
 protected:
  AudioPath() {
    Boot();
  }

  int32_t SetUp(uint32_t enable, uint32_t path) {
    MarkJournal();
    return AskStatus(AUDIO_PATH, Words({enable, path}));
  }
};

TEST_F(AudioPath, SetsUpEachPath) {
  struct Case {
    uint32_t enable, path;
    std::string route, mode, level, first_gain, second_gain;
    Lines line;
  };
  const Case cases[] = {
      {1, 1, "03", "00030000", "C8000000", "010E", "0009", {}},
      {1, 2, "02", "0F000000", "E1000000", "0117", "000B", AudioLine(LINE_B_ON)},
      {1, 3, "00", "30000000", "50000000", "0110", "0006", AudioLine(LINE_A_ON)},
      {1, 0, "00", "30000000", "50000000", "0110", "0006", {}},
      {0xFFFFFFFF, 4, "00", "30000000", "50000000", "0110", "0006", {}},
      {0x100, 0x80000001, "00", "30000000", "50000000", "0110", "0006", {}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(SetUp(c.enable, c.path), SUCCESS) << "path " << c.path;
    EXPECT_EQ(LinesSince(), SoundRequests(MIXER, "w",
                                          {{0x2252, "00000000"},
                                           {0x2242, "00"},
                                           {0x2246, "00" + c.route + "0005"},
                                           {0x2246, "03" + c.route + "0005"},
                                           {0x2244, c.mode},
                                           {0x2245, c.level},
                                           {0x2280, "00000000"},
                                           {0x2248, c.first_gain},
                                           {0x2248, c.second_gain}}) +
                                c.line)
        << "path " << c.path;
  }
}

TEST_F(AudioPath, SwitchesOffWhateverThePath) {
  const Lines requests =
      SoundRequests(MIXER, "w", {{0x2246, "01031E05"}, {0x2245, "00000000"}, {0x2242, "01"}});
  Lines expected = {requests[0]};
  expected =
      expected + AudioLine(LINE_B_OFF) + AudioLine(LINE_A_OFF) + Lines(requests.begin() + 1, requests.end());
  for (uint32_t path : {0u, 2u, 3u}) {
    EXPECT_EQ(SetUp(0, path), SUCCESS);
    EXPECT_EQ(LinesSince(), expected);
  }
}

TEST_F(AudioPath, GoesOnWhenRequestsFailButNotWithoutTheMixer) {
  Phone().GetFaults().FailRequest(MIXER, {}, EIO);
  Phone().TakeAway("/dev/misc/omap730_gpio");
  EXPECT_EQ(SetUp(1, 2), SUCCESS);
  EXPECT_EQ(LinesSince(AtPath(MIXER)).size(), 10u);
  EXPECT_EQ(LinesSince().back(), "open /dev/misc/omap730_gpio rw+cloexec -> ENOENT");
  EXPECT_EQ(SetUp(0, 0), SUCCESS);
  EXPECT_EQ(LinesSince(AtPath(MIXER)).size(), 4u);

  Phone().PutBack("/dev/misc/omap730_gpio");
  Phone().GetFaults().FailOpen(MIXER, EBUSY);
  for (uint32_t enable : {1u, 0u}) {
    EXPECT_EQ(SetUp(enable, 2), OPEN_FAILED);
    EXPECT_EQ(LinesSince(), Lines{"open /dev/sound/mixer w -> EBUSY"});
  }
  EXPECT_TRUE(StillAnswers());
}

}  // namespace
