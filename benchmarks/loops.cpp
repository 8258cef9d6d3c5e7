// The server's busy loops, compared with the fastest or plainest way to do the same or to touch the same
// bytes.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "benchmarks/crc16_peers.h"
#include "benchmarks/figures.h"
#include "server/camera/frame_pixels.h"
#include "server/devices/drawing.h"
#include "server/devices/tone_samples.h"
#include "server/flash/crc16.h"

namespace {

using Work = std::function<void()>;

struct Comparison {
  const char* what;
  double bytes;
  Work ours;
  const char* peer;
  Work peers;
  Goal goal = {};
};

constexpr uint32_t WIDTH = 1200;
constexpr uint32_t HEIGHT = 1600;
constexpr size_t PICTURE_BYTES = size_t{WIDTH} * HEIGHT * 2;
constexpr uint32_t RECORD_BODY_BYTES = 32764;
constexpr uint32_t LCD_PIXELS = FRAME_BYTES / 2;

struct Buffers {
  std::vector<uint8_t> record = std::vector<uint8_t>(32768, 0x5A);
  std::vector<uint16_t> lcd = std::vector<uint16_t>(LCD_PIXELS, WHITE);
  std::vector<uint16_t> white = std::vector<uint16_t>(LCD_PIXELS, WHITE);
  std::vector<uint16_t> same = white;
  std::vector<uint16_t> picture = std::vector<uint16_t>(PICTURE_BYTES / 2, 0x1234);
  std::vector<uint16_t> turned = std::vector<uint16_t>(PICTURE_BYTES / 2);
};

Comparison Rotation(Buffers& b, const char* what, int32_t degrees) {
  return {what,
          PICTURE_BYTES,
          [&b, degrees] { RotateFrame(b.picture.data(), WIDTH, HEIGHT, degrees, b.turned.data()); },
          "memcpy",
          [&b] { memcpy(b.turned.data(), b.picture.data(), PICTURE_BYTES); },
          AtLeast(0.4)};
}

std::vector<Comparison> Comparisons(Buffers& b) {
  const auto crc = [&b](auto function) {
    return [&b, function] { benchmark::DoNotOptimize(function(b.record.data() + 4, RECORD_BODY_BYTES)); };
  };
  return {
      {"CRC of a flash record", RECORD_BODY_BYTES, crc(Crc16), "bit by bit", crc(Crc16Bitwise)},
      {"CRC of a flash record", RECORD_BODY_BYTES, crc(Crc16), "byte by byte, the same table",
       crc(Crc16Bytewise), AtLeast(1)},
      {"LCD filled, with border", FRAME_BYTES, [&b] { DrawTestPattern(b.lcd.data(), 0x1234, 0xFFFF); },
       "memset", [&b] { memset(b.lcd.data(), 0x12, FRAME_BYTES); }, AtLeast(0.5)},
      Rotation(b, "1200 x 1600 turned by 90 degrees", 90),
      Rotation(b, "1200 x 1600 turned by 180 degrees", 180),
      Rotation(b, "1200 x 1600 turned by 270 degrees", 270),
      {"camera's test pattern checked", FRAME_BYTES,
       [&b] { benchmark::DoNotOptimize(IsUniform(b.white.data(), LCD_PIXELS, WHITE)); }, "memcmp",
       [&b] { benchmark::DoNotOptimize(memcmp(b.white.data(), b.same.data(), FRAME_BYTES)); }, AtLeast(0.4)},
  };
}

// Keeps the medians of the repetitions' processor times by the benchmark's name.
class MedianKeeper : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override {
    return true;
  }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.aggregate_name != "median") continue;
      seconds[run.run_name.function_name] = run.GetAdjustedCPUTime() * 1e-9;
    }
  }

  std::map<std::string, double> seconds;
};

void Register(const std::string& name, const Work& work) {
  benchmark::RegisterBenchmark(name.c_str(), [work](benchmark::State& state) {
    for (auto _ : state) {
      work();
      benchmark::ClobberMemory();
    }
  });
}

}  // namespace

int main() {
  Buffers buffers;
  const std::vector<Comparison> comparisons = Comparisons(buffers);
  for (size_t i = 0; i < comparisons.size(); ++i) {
    Register("ours " + std::to_string(i), comparisons[i].ours);
    Register("peer " + std::to_string(i), comparisons[i].peers);
  }
  std::vector<ToneFrame> second(TONE_SAMPLE_RATE);
  SharedWord frequencies[TONE_COUNT];
  for (int32_t i = 0; i < TONE_COUNT; ++i) WriteWord(frequencies[i], 1000 + 300 * i);
  Register("tone", [&] { FillToneBuffer(second.data(), TONE_SAMPLE_RATE, frequencies, 0); });

  // The repetitions of all take turns.
  std::string arguments[] = {"loops", "--benchmark_enable_random_interleaving=true",
                             "--benchmark_repetitions=15", "--benchmark_min_time=0.02"};
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  int count = static_cast<int>(pointers.size());
  benchmark::Initialize(&count, pointers.data());
  MedianKeeper medians;
  benchmark::RunSpecifiedBenchmarks(&medians);

  PrintHeading("Loops, medians of 15");
  for (size_t i = 0; i < comparisons.size(); ++i) {
    const Comparison& comparison = comparisons[i];
    const auto speed = [&](const std::string& name) {
      return comparison.bytes / 1e6 / medians.seconds.at(name + std::to_string(i));
    };
    PrintFigure({comparison.what, "MB/s", speed("ours "), comparison.peer, speed("peer "), comparison.goal});
  }
  PrintFigure({"processor time for three tones", "ms", medians.seconds.at("tone") * 1e3,
               "the second of sound itself", 1e3});
}
