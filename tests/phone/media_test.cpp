// Media clips: the player's exact command lines, its life beside the server, and the route of the AMR clip.
#include <algorithm>

#include "simulator/models/programs.h"
#include "tests/phone/processes.h"
#include "tests/phone/sound_lines.h"

namespace {

using simulator::MediaPlayer;

constexpr uint32_t MEDIA = 0x40;
constexpr char PLAYER[] = "/root/wavplayer.elf";
constexpr char AMR_FILE[] = "/root/dmode/1500Hz AMR.3gp";

class Media : public PhoneTest {
 protected:
  Media() {
    options.instant_sleeps = true;
    Boot();
    EXPECT_TRUE(StillAnswers());  // and has closed what its start opened
  }

  int32_t Play(uint32_t clip, uint32_t path, uint32_t argument) {
    MarkJournal();
    return AskStatus(MEDIA, Words({clip, path, argument}));
  }

  // What the server itself did. The player and its shell run at the same time, in no fixed order.
  Lines ServerLines() {
    return LinesSince([this](const simulator::JournalEntry& entry) {
      return entry.process == Phone().ServerProcess() || entry.kind == JournalKind::Shell;
    });
  }

  std::vector<pid_t> Playing() {
    return Phone().With<MediaPlayer>([](MediaPlayer& player) { return player.Playing(); });
  }

  // Waits, since programs start and end beside the server.
  bool ComesToPlaying(size_t count) {
    return Eventually([&] { return Playing().size() == count; });
  }
};

TEST_F(Media, StartsThePlayerWithEachClip) {
  struct Case {
    uint32_t clip, path, argument;
    std::string command, file, path_word, argument_word;
  };
  const Case cases[] = {
      {10, 1, 7, "/root/dmode/QeluAudioTest3.mp3 1 7 &", "/root/dmode/QeluAudioTest3.mp3", "1", "7"},
      {20, 2, 0xFFFFFFFF, "/root/dmode/1500Hz\\ AAC\\ 48kHz.3gp 2 -1 &", "/root/dmode/1500Hz AAC 48kHz.3gp",
       "2", "-1"},
      {21, 0x80000000, 0x7FFFFFFF, "/root/dmode/1500Hz\\ AMR.3gp -2147483648 2147483647&", AMR_FILE,
       "-2147483648", "2147483647"},
      {30, 3, 0, "/usr/share/usr_data/Preload/HelloQelu.mp3 3 0&",
       "/usr/share/usr_data/Preload/HelloQelu.mp3", "3", "0"},
      {10, 2, 0, "/root/dmode/QeluAudioTest3.mp3 2 0 &", "/root/dmode/QeluAudioTest3.mp3", "2", "0"},
      {30, 2, 0, "/usr/share/usr_data/Preload/HelloQelu.mp3 2 0&",
       "/usr/share/usr_data/Preload/HelloQelu.mp3", "2", "0"},
  };
  size_t playing = 0;
  for (const Case& c : cases) {
    EXPECT_EQ(Play(c.clip, c.path, c.argument), SUCCESS) << c.command;
    Lines expected = c.path == 2 ? AudioLine(LINE_B_ON) : Lines();
    expected.push_back("shell /root/wavplayer.elf " + c.command);
    Lines lines = ServerLines();
    lines.resize(expected.size());
    EXPECT_EQ(lines, expected);
    if (c.clip != 21) {
      EXPECT_EQ(ServerLines().size(), expected.size());
    }
    ASSERT_TRUE(ComesToPlaying(++playing)) << c.command;
    const auto starts = Phone().With<MediaPlayer>([](MediaPlayer& player) { return player.state.starts; });
    ASSERT_EQ(starts.size(), playing);
    EXPECT_EQ(starts.back().arguments, (Lines{c.file, c.path_word, c.argument_word}));
  }

  EXPECT_EQ(Play(0, 2, 5), SUCCESS);
  EXPECT_EQ(ServerLines(), AudioLine(LINE_B_OFF) +
                               SoundRequests(MIXER, "rw", {{0x2242, "01"}, {0x2252, "00000000"}}) +
                               Lines{"shell killall -9 wavplayer.elf"});
  EXPECT_TRUE(ComesToPlaying(0));
}

TEST_F(Media, RefusesOtherClipsAndDoesNothing) {
  for (uint32_t clip : {22u, 1u, 11u, 31u, 0xFFFFFFFFu, 0x10000000u}) {
    EXPECT_EQ(Play(clip, 2, 0), NOT_SUPPORTED) << clip;
    EXPECT_EQ(LinesSince(), Lines());
  }
}

TEST_F(Media, StopsWithoutMixerAndPlaysWithoutPlayer) {
  Phone().TakeAway(MIXER);
  EXPECT_EQ(Play(0, 0, 0), SUCCESS);
  const Lines stopped = {"open /dev/sound/mixer rw -> ENOENT", "shell killall -9 wavplayer.elf"};
  EXPECT_EQ(ServerLines(), AudioLine(LINE_B_OFF) + stopped);
  Phone().PutBack(MIXER);
  Phone().GetFaults().FailRequest(MIXER, {}, EIO);
  EXPECT_EQ(Play(0, 0, 0), SUCCESS);
  EXPECT_EQ(ServerLines().size(), 6u);
  Phone().TakeAway(PLAYER);
  EXPECT_EQ(Play(10, 1, 0), SUCCESS);
  EXPECT_TRUE(StillAnswers());
}

TEST_F(Media, RoutesTheAmrClipTwoSecondsLater) {
  const std::pair<uint32_t, std::string> outputs[] = {{1, "00"}, {2, "03"}, {3, "02"}, {0, "02"}};
  for (const auto& [path, output] : outputs) {
    EXPECT_EQ(Play(21, path, 0), SUCCESS);
    const Lines played = {
        "shell /root/wavplayer.elf /root/dmode/1500Hz\\ AMR.3gp " + std::to_string(path) + " 0&",
        "sleep 2.000"};
    const Lines routed = SoundRequests(
        MIXER, "rw",
        {{0x2271, "00000000"}, {0x2280, "04040000"}, {0x2252, output + "000000"}, {0x2242, "00"}});
    EXPECT_EQ(ServerLines(), (path == 2 ? AudioLine(LINE_B_ON) : Lines()) + played + routed);
  }
  // A signal ends the wait early: it goes on.
  Phone().GetFaults().Add({.call = simulator::FaultCall::Sleep, .error = EINTR});
  EXPECT_EQ(Play(21, 1, 0), SUCCESS);
  EXPECT_EQ(LinesSince(OfKind({JournalKind::Sleep})).size(), 2u);
}

TEST_F(Media, TellsTheAmrRoutesFailuresApart) {
  struct Case {
    uint32_t request;  // 0: the mixer cannot be opened
    int32_t status;
    size_t mixer_lines;
  };
  const Case cases[] = {{0, OPEN_FAILED, 1},
                        {0x2271, REQUEST_FAILED, 2},
                        {0x2280, SECOND_REQUEST_FAILED, 3},
                        {0x2252, THIRD_REQUEST_FAILED, 4},
                        {0x2242, FOURTH_REQUEST_FAILED, 5}};
  const size_t descriptors = OpenDescriptors(Phone().ServerProcess());
  for (size_t index = 0; index < std::size(cases); ++index) {
    const Case& c = cases[index];
    if (c.request == 0) {
      Phone().GetFaults().FailOpen(MIXER, ENODEV);
    } else {
      Phone().GetFaults().FailRequest(MIXER, c.request, EIO);
    }
    EXPECT_EQ(Play(21, 2, 0), c.status) << std::hex << c.request;
    const Lines lines = LinesSince(AtPath(MIXER));
    EXPECT_EQ(lines.size(), c.mixer_lines);
    EXPECT_TRUE(lines.back().ends_with(c.request == 0 ? "-> ENODEV" : "-> EIO")) << lines.back();
    EXPECT_EQ(OpenDescriptors(Phone().ServerProcess()), descriptors);
    EXPECT_TRUE(ComesToPlaying(index + 1)) << "the clip plays nevertheless";
    Phone().GetFaults().Clear();
  }
  EXPECT_TRUE(StillAnswers());
}

TEST_F(Media, GivesThePlayerNothingThatTheServerKeepsOpen) {
  constexpr uint32_t TONE = 0x29, RADIO = 0x2C, TOUCH = 0x2D, MODEM_IMAGE_CHUNK = 0x34;
  EXPECT_EQ(AskStatus(TONE, Words({440, 0, 0, 0, 40, 1, 1})), SUCCESS);
  EXPECT_EQ(StatusOf(Ask(RADIO, Words({2, 1464, 9, 0, 0}), 12)), SUCCESS);
  EXPECT_EQ(StatusOf(Ask(TOUCH, Words({1, 0}), 12)), SUCCESS);
  EXPECT_EQ(StatusOf(Ask(MODEM_IMAGE_CHUNK, Words({0}), 1028)), 1024);
  EXPECT_TRUE(Appears(AtPath("/dev/touchscreen/tsc2046")));
  EXPECT_TRUE(Appears(LineIs("request /dev/sound/mixer 0x00002280 in 01000000")));

  EXPECT_EQ(Play(10, 1, 0), SUCCESS);
  ASSERT_TRUE(ComesToPlaying(1));
  const auto kept = OpenObjects(Phone().ServerProcess());
  EXPECT_GE(kept.size(), 6u) << "host port, standby, PCM, radio, touch panel, modem image";
  for (const auto& object : OpenObjects(Playing()[0])) {
    EXPECT_FALSE(kept.contains(object)) << "inode " << object.second;
  }
}

}  // namespace
