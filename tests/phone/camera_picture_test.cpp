// The camera's pictures as files: what they show, for every rotation and size, and why they cannot be made.
#include <sys/resource.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <fstream>
#include <set>

#include "simulator/models/picture.h"
#include "tests/phone/call_tracer.h"
#include "tests/phone/camera_test.h"
#include "tests/phone/processes.h"

namespace {

using State = simulator::CaptureDevice::State;
using Frame = simulator::CaptureDevice::Frame;
using simulator::Picture;

Frame Turned(const Frame& frame, uint32_t rotation) {
  const auto [w, h] = std::pair(frame.width, frame.height);
  const bool quarter = rotation == 90 || rotation == 270;
  Frame turned = {quarter ? h : w, quarter ? w : h, {}};
  for (uint32_t i = 0; i < turned.height; ++i) {
    for (uint32_t j = 0; j < turned.width; ++j) {
      const auto [row, column] = rotation == 90    ? std::pair(h - 1 - j, i)
                                 : rotation == 180 ? std::pair(h - 1 - i, w - 1 - j)
                                 : rotation == 270 ? std::pair(j, w - 1 - i)
                                                   : std::pair(i, j);
      turned.pixels.push_back(frame.pixels[row * w + column]);
    }
  }
  return turned;
}

double Brightness(int red, int green, int blue) {
  return 0.299 * red + 0.587 * green + 0.114 * blue;
}

double Brightness(uint16_t pixel) {
  return Brightness((pixel >> 11) * 255 / 31, (pixel >> 5 & 63) * 255 / 63, (pixel & 31) * 255 / 31);
}

// Root of the mean square difference in brightness, of 255 levels. In a good picture it comes
// from the quantization alone.
double Difference(const Picture& picture, const Frame& frame) {
  double sum = 0;
  for (size_t index = 0; index < frame.pixels.size(); ++index) {
    const uint8_t* level = &picture.levels[index * 3];
    const double error = Brightness(level[0], level[1], level[2]) - Brightness(frame.pixels[index]);
    sum += error * error;
  }
  return std::sqrt(sum / static_cast<double>(frame.pixels.size()));
}

class CameraPictureTest : public CameraTest {
 protected:
  CameraPictureTest() {
    // The C library's allocator asks the kernel for what it needs and no more, and keeps no freed piece
    // aside.
    options.environment = {
        "GLIBC_TUNABLES=glibc.malloc.top_pad=0:glibc.malloc.mmap_threshold=65536"
        ":glibc.malloc.tcache_count=0:glibc.malloc.mxfast=0"};
  }
  Picture ReadPicture(const std::string& path) {
    return simulator::ReadPicture(Phone().Root().ReadFile(path));
  }
  // The picture shows the latest frame turned, and not turned another way.
  void ExpectShows(const std::string& path, uint32_t rotation) {
    const Frame frame = LastFrame();
    const Frame turned = Turned(frame, rotation);
    const Picture picture = ReadPicture(path);
    ASSERT_EQ(std::pair(picture.width, picture.height), std::pair(turned.width, turned.height));
    const double difference = Difference(picture, turned);
    EXPECT_LT(difference, 5);
    for (const uint32_t other : {0u, 90u, 180u, 270u}) {
      const Frame wrong = Turned(frame, other);
      if (wrong.width != picture.width || wrong.pixels == turned.pixels) continue;
      EXPECT_GT(Difference(picture, wrong), 3 * difference) << "as if turned by " << other;
    }
  }
  void LimitMemory(size_t bytes) {
    const rlimit limit = {bytes, RLIM_INFINITY};
    ASSERT_EQ(prlimit(Phone().ServerProcess(), RLIMIT_AS, &limit, nullptr), 0);
  }
  size_t MemorySize() {
    constexpr size_t PAGE = 4096;
    size_t pages = 0;
    std::ifstream("/proc/" + std::to_string(Phone().ServerProcess()) + "/statm") >> pages;
    return pages * PAGE;
  }
};

TEST_F(CameraPictureTest, ShowsTheFrameTurnedByTheRule) {
  Boot();
  // Compared as a number: 450 is not 90.
  constexpr uint32_t ROTATIONS[] = {0, 45, 90, 180, 270, 450, static_cast<uint32_t>(-90), 0x10000 + 90};
  constexpr std::pair<uint32_t, uint32_t> SIZES[] = {{1, 1},   {7, 9},   {1, 40},   {40, 1},
                                                     {16, 16}, {17, 33}, {121, 67}, {320, 240}};
  for (const auto& [width, height] : SIZES) {
    for (const uint32_t rotation : ROTATIONS) {
      SCOPED_TRACE(testing::Message()
                   << width << " x " << height << " by " << static_cast<int32_t>(rotation));
      ASSERT_EQ(Camera(CAPTURE_BLEMISH, width, height, rotation), 0);
      EXPECT_EQ(std::pair(LastFrame().width, LastFrame().height), std::pair(width, height));
      ExpectShows(BLEMISH, rotation);
    }
  }
}

TEST_F(CameraPictureTest, TakesSizesUpToTheLimits) {
  Boot();
  EXPECT_EQ(Camera(CAPTURE_FOCUS, 1200, 1600, 90), 0);
  ExpectShows(FOCUS, 90);
  MarkJournal();
  constexpr std::pair<int32_t, int32_t> TOO_LARGE[] = {{1201, 1600},    {1200, 1601},    {1201, 1},
                                                       {1, 1601},       {INT_MAX, 1},    {1, INT_MAX},
                                                       {1201, INT_MIN}, {INT_MIN, 1601}, {0x10001, 0x10001}};
  // A negative size is refused, also if the product of both is positive.
  constexpr std::pair<int32_t, int32_t> NEGATIVE[] = {
      {-1, 10}, {10, -1}, {-1, -1}, {-40, -30}, {INT_MIN, 2}, {2, INT_MIN}, {INT_MIN, INT_MIN}, {0, -1}};
  for (const uint32_t subcommand : {CAPTURE_BLEMISH, CAPTURE_FOCUS}) {
    for (const uint32_t rotation : {0u, 90u}) {
      const auto capture = [&](const std::pair<int32_t, int32_t>& size) {
        return Camera(subcommand, static_cast<uint32_t>(size.first), static_cast<uint32_t>(size.second),
                      rotation);
      };
      for (const auto& size : TOO_LARGE) EXPECT_EQ(capture(size), -9997) << size.first << " " << size.second;
      for (const auto& size : NEGATIVE) EXPECT_EQ(capture(size), -9988) << size.first << " " << size.second;
    }
  }
  EXPECT_EQ(LinesSince(), Lines{}) << "the camera is not touched";

  for (const uint32_t rotation : {0u, 90u, 180u, 270u}) {
    for (const auto& [width, height] : {std::pair(0u, 0u), {0, 10}, {10, 0}, {0, 1600}}) {
      Change([](State& state) { state.takes_any_extent = false; });
      EXPECT_EQ(Camera(CAPTURE_BLEMISH, width, height, rotation), -9892) << "the sensor refuses it";
      Change([](State& state) { state.takes_any_extent = true; });
      const int32_t status = Camera(CAPTURE_BLEMISH, width, height, rotation);
      EXPECT_TRUE(status == -9981 || status == -9980) << status;
    }
  }
  EXPECT_EQ(Camera(CAPTURE_BLEMISH, 16, 9), 0);
}

TEST_F(CameraPictureTest, KnowsNoOtherSubcommand) {
  Boot();
  for (int32_t subcommand = -2; subcommand <= 26; ++subcommand) {
    if (subcommand == 0 || subcommand == 10 || subcommand == 12 || subcommand == 20 || subcommand == 22)
      continue;
    EXPECT_EQ(Camera(static_cast<uint32_t>(subcommand), 5000, 10), -9994) << subcommand;
  }
  for (const uint32_t subcommand : {0x10000u + 10, 0x80000000u, 0x7FFFFFFFu, 266u}) {
    EXPECT_EQ(Camera(subcommand, 10, 10), -9994) << subcommand;
  }
  EXPECT_EQ(LinesSince(), Lines{});
}

TEST_F(CameraPictureTest, DeletesThePictureThroughTheShell) {
  Boot();
  for (const auto& [subcommand, picture] : {std::pair(DELETE_BLEMISH, BLEMISH), {DELETE_FOCUS, FOCUS}}) {
    Phone().Root().PutFile(BLEMISH, "blemish");
    Phone().Root().PutFile(FOCUS, "focus");
    for (const char* what : {"there", "not there any more"}) {
      MarkJournal();
      EXPECT_EQ(Camera(subcommand, 5000, 5000), 0) << what;
      EXPECT_EQ(LinesSince(OfKind({JournalKind::Shell, JournalKind::Open})),
                (Lines{"shell rm -f " + picture, "shell sync"}));
      EXPECT_EQ(Phone().Root().Exists(BLEMISH), picture != BLEMISH);
      EXPECT_EQ(Phone().Root().Exists(FOCUS), picture != FOCUS);
    }
  }
}

TEST_F(CameraPictureTest, TellsWhenThePictureCannotBeStored) {
  Boot();
  EXPECT_TRUE(StillAnswers());
  const size_t descriptors = OpenDescriptors(Phone().ServerProcess());
  Phone().TakeAway(PHOTOS);
  EXPECT_EQ(Camera(CAPTURE_BLEMISH, 320, 240, 180), -9982);
  Phone().PutBack(PHOTOS);
  Phone().Root().MakeDirectory(FOCUS);
  EXPECT_EQ(Camera(CAPTURE_FOCUS, 320, 240), -9982) << "a directory stands there";
  Phone().Root().Remove(FOCUS);
  Phone().Root().PutLink(FOCUS, "/dev/full");
  EXPECT_EQ(Camera(CAPTURE_FOCUS, 320, 240), -9980);
  EXPECT_EQ(Camera(CAPTURE_FOCUS, 1, 1), -9980) << "a full disk, seen by the picture's only write";
  Phone().Root().Remove(FOCUS);

  // The disk fills up after the first block, and at each later one.
  ASSERT_EQ(Camera(CAPTURE_BLEMISH, 320, 240), 0);
  const size_t whole = Phone().Root().ReadFile(BLEMISH).size();
  for (const int room : {0, 1, 2}) {
    int writes = 0;
    {
      const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
        if (!call.IsWrite() || !call.DescriptorPath().ends_with(BLEMISH) || writes++ < room) return {};
        return {CallFate::Kind::Refused, 0, ENOSPC};
      });
      EXPECT_EQ(Camera(CAPTURE_BLEMISH, 320, 240, 90), -9980);
    }
    const size_t size = Phone().Root().ReadFile(BLEMISH).size();
    EXPECT_EQ(size == 0, room == 0) << "what was written stays";
    EXPECT_LT(size, whole);
  }
  EXPECT_EQ(OpenDescriptors(Phone().ServerProcess()), descriptors);
  EXPECT_EQ(Camera(CAPTURE_BLEMISH, 320, 240, 90), 0);
  ExpectShows(BLEMISH, 90);
}

#if !defined(__SANITIZE_ADDRESS__) && \
    !defined(__SANITIZE_THREAD__)  // whose allocators end the program if there is no memory

TEST_F(CameraPictureTest, TellsThatMemoryIsOut) {
  if (IsEmulated()) GTEST_SKIP() << "the process's memory is mostly the emulator's";
  Boot();
  Phone().Root().PutFile(BLEMISH, "the old picture");
  EXPECT_EQ(Camera(SELF_TEST), 0);
  MarkJournal();
  LimitMemory(1);  // no more than there is
  EXPECT_EQ(Camera(CAPTURE_BLEMISH, 320, 240), -9988);
  EXPECT_EQ(LinesSince(), Lines{});
  EXPECT_EQ(Camera(SELF_TEST), -9988);
  EXPECT_EQ(LinesSince(), Lines{std::string("open ") + CAMERA + " r"}) << "the device is opened first";
  MarkJournal();
  constexpr size_t FRAME = 320 * 240 * 2;
  LimitMemory(MemorySize() + FRAME * 3 / 2);
  EXPECT_EQ(Camera(CAPTURE_BLEMISH, 320, 240, 90), -9988) << "no second buffer to rotate";
  EXPECT_EQ(LinesSince(), Lines{});
  EXPECT_EQ(Phone().Root().ReadFile(BLEMISH), "the old picture");

  // Larger and larger frames leave less and less memory for what comes after them: the manager, the stream,
  // the encoder.
  LimitMemory(1);
  const auto capture = [&](uint32_t height) { return Camera(CAPTURE_BLEMISH, 8, height); };
  uint32_t fits = 1;
  for (uint32_t step = 1024; step != 0; step /= 2) {
    if (fits + step <= 1600 && capture(fits + step) != -9988) fits += step;
  }
  std::set<int32_t> seen;
  for (uint32_t height = fits - std::min(fits, 40u); height <= fits + 1; ++height)
    seen.insert(capture(height));
  EXPECT_EQ(seen, (std::set<int32_t>{-9988, -9983, -9982, -9981}));
  LimitMemory(RLIM_INFINITY);
  EXPECT_EQ(Camera(CAPTURE_BLEMISH, 320, 240, 90), 0);
  ExpectShows(BLEMISH, 90);
}

TEST_F(CameraPictureTest, KeepsNoMemoryButWhatIsToBeKept) {
  if (IsEmulated()) GTEST_SKIP() << "the process's memory is mostly the emulator's";
  Boot();
  const auto growth = [&](int times, const std::function<void()>& work) {
    work();
    const size_t before = MemorySize();
    for (int time = 0; time < times; ++time) work();
    return MemorySize() - before;
  };
  const auto pages = [](size_t bytes) {
    return (bytes + 16 + 4095) / 4096 * 4096;
  };  // 16: the allocator's own
  EXPECT_EQ(growth(5,
                   [&] {
                     EXPECT_EQ(Camera(SELF_TEST), 0);
                     EXPECT_EQ(Camera(CAPTURE_FOCUS, 320, 240), 0);
                     Change([](State& state) { state.short_frame = 1; });
                     EXPECT_EQ(Camera(SELF_TEST), -9987);
                     EXPECT_EQ(Camera(CAPTURE_FOCUS, 320, 240, 90), -9987);
                     Change([](State& state) { state.short_frame = 0; });
                     Phone().Root().PutLink(BLEMISH, "/dev/full");
                     EXPECT_EQ(Camera(CAPTURE_BLEMISH, 320, 240), -9980);
                     Phone().Root().Remove(BLEMISH);
                     EXPECT_EQ(Ask(0x41, Words({24}), 1028).size(), 1028u);
                   }),
            0u);
  for (const uint32_t rotation : {90u, 180u, 270u}) {
    EXPECT_EQ(growth(3, [&] { EXPECT_EQ(Camera(CAPTURE_BLEMISH, 320, 241, rotation), 0); }),
              3 * pages(320 * 241 * 2))
        << rotation;
  }
  Change([](State& state) { state.short_frame = 2; });
  EXPECT_EQ(growth(3, [&] { EXPECT_EQ(Camera(SELF_TEST), -9987); }), 3 * pages(154624));
}

#endif

#ifdef __SANITIZE_ADDRESS__

// The leak checker is told by name what is kept on purpose, and has nothing else to report.
TEST_F(CameraPictureTest, LeakCheckerKnowsWhatIsKept) {
  options.environment = {"LSAN_OPTIONS=print_suppressions=1"};
  Boot();
  EXPECT_EQ(Camera(CAPTURE_BLEMISH, 320, 240, 90), 0);
  EXPECT_EQ(Camera(CAPTURE_BLEMISH, 320, 240, 180), 0);
  Change([](State& state) { state.short_frame = 2; });
  EXPECT_EQ(Camera(SELF_TEST), -9987);
  SendCommand(0x02, Words({0}));
  const auto end = Phone().WaitForEnd(60s);
  ASSERT_TRUE(end);
  EXPECT_EQ(end->Text(), "powered off");
  EXPECT_EQ(end->status, 0);
  EXPECT_EQ(Phone().ConsoleText(), "");
}

#endif

}  // namespace
