// Does one of the server's busy loops a number of times, to count its instructions on the phone's processor.
//   arm_loops LOOP TIMES
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "benchmarks/crc16_peers.h"
#include "server/camera/frame_pixels.h"
#include "server/devices/drawing.h"
#include "server/devices/tone_samples.h"
#include "server/flash/crc16.h"

namespace {

constexpr uint32_t WIDTH = 1200;
constexpr uint32_t HEIGHT = 1600;

// Takes results that are not used otherwise.
volatile uint32_t result;

// A turn by 90 degrees, written in the plainest way.
void RotatePlainly(const uint16_t* in, uint16_t* out) {
  for (uint32_t row = 0; row < WIDTH; ++row) {
    for (uint32_t column = 0; column < HEIGHT; ++column) *out++ = in[(HEIGHT - 1 - column) * WIDTH + row];
  }
}

}  // namespace

int main(int count, char** arguments) {
  std::vector<uint8_t> record(32768, 0x5A);
  std::vector<uint16_t> picture(WIDTH * HEIGHT, WHITE), turned(WIDTH * HEIGHT);
  std::vector<ToneFrame> sound(TONE_SAMPLE_RATE);
  SharedWord frequencies[TONE_COUNT];
  for (int32_t i = 0; i < TONE_COUNT; ++i) WriteWord(frequencies[i], 1000 + 300 * i);

  const auto rotate = [&](int32_t degrees) {
    return [&, degrees] { RotateFrame(picture.data(), WIDTH, HEIGHT, degrees, turned.data()); };
  };
  const std::map<std::string, std::function<void()>> loops = {
      {"crc", [&] { result = Crc16(record.data() + 4, 32764); }},
      {"crc-bytewise", [&] { result = Crc16Bytewise(record.data() + 4, 32764); }},
      {"tones", [&] { result = FillToneBuffer(sound.data(), TONE_SAMPLE_RATE, frequencies, 0); }},
      {"rotate-plainly", [&] { RotatePlainly(picture.data(), turned.data()); }},
      {"rotate-90", rotate(90)},
      {"rotate-180", rotate(180)},
      {"rotate-270", rotate(270)},
      {"check", [&] { result = IsUniform(picture.data(), FRAME_BYTES / 2, WHITE); }},
      {"fill", [&] { DrawTestPattern(turned.data(), 0x1234, 0xFFFF); }},
  };
  const auto loop = count == 3 ? loops.find(arguments[1]) : loops.end();
  if (loop == loops.end()) {
    fputs("usage: arm_loops LOOP TIMES, where LOOP is one of:", stderr);
    for (const auto& [name, work] : loops) fprintf(stderr, " %s", name.c_str());
    fputc('\n', stderr);
    return 2;
  }
  for (int times = atoi(arguments[2]); times > 0; --times) loop->second();
}
