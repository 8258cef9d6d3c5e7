// The camera's sensor as the self-test and a capture drive it: every request byte for byte, every failure.
#include <algorithm>
#include <mutex>

#include "tests/phone/call_tracer.h"
#include "tests/phone/camera_test.h"
#include "tests/phone/processes.h"

namespace {

using State = simulator::CaptureDevice::State;
using Format = simulator::CaptureDevice::Format;

constexpr uint32_t SET_CONTROL = 0x4008561C;
constexpr uint32_t SELF_TEST_BYTES = 240 * 320 * 2;

class CameraCaptureTest : public CameraTest {
 protected:
  CameraCaptureTest() {
    Boot();
    EXPECT_TRUE(StillAnswers());  // so the last file of its start is closed now
  }
  // Since the mark, only the first lines of a routine's whole journal came. The last one may have failed.
  void ExpectEndsAt(size_t count, const Lines& whole, const std::string& what) {
    Lines lines = LinesSince();
    ASSERT_EQ(lines.size(), count) << what;
    if (lines.back().ends_with(" -> EIO")) lines.pop_back();
    // What the driver reports differs between the first call and later ones.
    constexpr size_t REPORT = 1;
    for (size_t index = 0; index < lines.size(); ++index) {
      if (index == REPORT) continue;
      EXPECT_EQ(lines[index], whole[index]) << what;
    }
  }
};

TEST_F(CameraCaptureTest, AsksTheDriverByteForByte) {
  Format before;
  before.flags = 0xF1A2F3A4;
  before.bytes_per_line = 0x0B1B2B3B;
  before.priv = 0x9A9B9C9D;
  for (size_t index = 0; index < sizeof before.rest; ++index)
    before.rest[index] = static_cast<uint8_t>(~index);
  Change([&](State& state) { state.format = before; });
  std::mutex mutex;
  std::vector<uint64_t> reads;
  const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
    const std::lock_guard lock(mutex);
    if (call.IsRead() && call.DescriptorPath().starts_with("/memfd:frame")) reads.push_back(call.Size());
    return {};
  });

  EXPECT_EQ(Camera(SELF_TEST, 5000, 0x80000000, 90), 0) << "the sizes are ignored";
  EXPECT_EQ(LinesSince(), SelfTestLines(before));

  for (const auto& [subcommand, picture] : {std::pair(CAPTURE_BLEMISH, BLEMISH), {CAPTURE_FOCUS, FOCUS}}) {
    const uint32_t width = 31 + subcommand;
    Phone().With<simulator::CaptureDevice>([&](auto& camera) { before = camera.state.format; });
    MarkJournal();
    EXPECT_EQ(Camera(subcommand, width, 17), 0);
    EXPECT_EQ(LinesSince(),
              CaptureLines(width, 17, before) + Lines{"open " + picture + " w+create+truncate"});
  }
  const std::lock_guard lock(mutex);
  EXPECT_EQ(reads, (std::vector<uint64_t>{SELF_TEST_BYTES, SELF_TEST_BYTES, 41 * 17 * 2, 51 * 17 * 2}))
      << "a frame by one read each";
  EXPECT_NE(Phone().Command({"camera"}).find("frames of 51 x 17, 3 exposed\n"), std::string::npos)
      << Phone().Command({"camera"});
}

TEST_F(CameraCaptureTest, QueryIsNotSupported) {
  for (const uint32_t ignored : {0u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Ask(0x22, Words({ignored}), 132), Words({static_cast<uint32_t>(-9994)}) + Bytes(128));
  }
  EXPECT_EQ(LinesSince(), Lines{});
}

TEST_F(CameraCaptureTest, TellsWhichRequestFailed) {
  struct Case {
    uint32_t request;
    int nth;
    int32_t status;
    size_t lines;  // up to the failed request
  };
  constexpr Case CASES[] = {{0xC0CC5604, 1, -9992, 2},  {0xC0CC5605, 1, -9892, 3},
                            {SET_CONTROL, 1, -9792, 4}, {SET_CONTROL, 2, -9692, 5},
                            {SET_CONTROL, 3, -9592, 6}, {SET_CONTROL, 4, -9592, 7}};
  constexpr size_t CAPTURE_CASES = 4;  // the others are the self-test's
  const Lines self_test = SelfTestLines({});
  const Lines capture = CaptureLines(40, 30, {});
  const size_t descriptors = OpenDescriptors(Phone().ServerProcess());
  const auto provoke = [&](const Case& c, uint32_t subcommand, const Lines& whole) {
    MarkJournal();
    Phone().GetFaults().FailRequest(CAMERA, c.request, EIO, c.nth, 1);
    EXPECT_EQ(Camera(subcommand, 40, 30, 90), c.status);
    Phone().GetFaults().Clear();
    ExpectEndsAt(c.lines, whole, "request " + std::to_string(c.nth));
    EXPECT_EQ(OpenDescriptors(Phone().ServerProcess()), descriptors);
  };
  Phone().Root().PutFile(BLEMISH, "the old picture");
  for (const Case& c : CASES) provoke(c, SELF_TEST, self_test);
  for (size_t index = 0; index < CAPTURE_CASES; ++index) provoke(CASES[index], CAPTURE_BLEMISH, capture);

  Phone().TakeAway(CAMERA);
  for (const uint32_t subcommand : {SELF_TEST, CAPTURE_BLEMISH}) {
    MarkJournal();
    EXPECT_EQ(Camera(subcommand, 40, 30), -9989);
    EXPECT_EQ(LinesSince(), Lines{std::string("open ") + CAMERA + " r -> ENOENT"});
  }
  Phone().PutBack(CAMERA);
  EXPECT_EQ(Phone().Root().ReadFile(BLEMISH), "the old picture");
  EXPECT_EQ(Camera(SELF_TEST), 0);
}

TEST_F(CameraCaptureTest, TakesNoFrameButAWholeOne) {
  Phone().Root().PutFile(FOCUS, "the old picture");
  const size_t descriptors = OpenDescriptors(Phone().ServerProcess());
  const Lines self_test = SelfTestLines({});
  for (const uint32_t missing : {1u, 2u, SELF_TEST_BYTES}) {
    for (const int nth : {1, 2}) {
      MarkJournal();
      // The pixels of a short frame are not checked: a wrong one would be another failure.
      const int32_t pattern = nth == 1 ? 6 : 7;
      Change([&](State& state) {
        state.short_frame = nth;
        state.missing_bytes = missing;
        state.defects = {{0, 0, 0x1234, pattern}};
      });
      EXPECT_EQ(Camera(SELF_TEST), -9987) << "frame " << nth << " lacks " << missing;
      ExpectEndsAt(nth == 1 ? 6 : 7, self_test, "short frame");
    }
    for (const uint32_t rotation : {0u, 270u}) {
      Change([&](State& state) { state.short_frame = 1; });
      EXPECT_EQ(Camera(CAPTURE_FOCUS, 20, 10, rotation), -9987);
    }
    Change([](State& state) { state = {}; });
  }
  EXPECT_EQ(Phone().Root().ReadFile(FOCUS), "the old picture");
  EXPECT_EQ(OpenDescriptors(Phone().ServerProcess()), descriptors);
  EXPECT_EQ(Camera(SELF_TEST), 0);
}

TEST_F(CameraCaptureTest, SelfTestSeesEveryDefectivePixel) {
  constexpr std::pair<uint32_t, uint32_t> PLACES[] = {{0, 0}, {121, 160}, {239, 319}};
  constexpr std::pair<int32_t, uint16_t> COLOURS[] = {{6, 0xFFFE}, {6, 0x7FFF}, {7, 0x0001}, {7, 0x8000}};
  const Lines self_test = SelfTestLines({});
  for (const auto& [column, row] : PLACES) {
    for (const auto& [pattern, colour] : COLOURS) {
      MarkJournal();
      Change([&](State& state) { state.defects = {{column, row, colour, pattern}}; });
      EXPECT_EQ(Camera(SELF_TEST), -9990) << column << " " << row << " of pattern " << pattern;
      ExpectEndsAt(pattern == 6 ? 6 : 7, self_test, "the black pattern follows a good white one only");
    }
  }
  Change([](State& state) { state.defects = {}; });
  EXPECT_EQ(Camera(SELF_TEST), 0);
}

}  // namespace
