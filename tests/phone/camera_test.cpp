#include "tests/phone/camera_test.h"

#include <fmt/format.h>

using simulator::CaptureDevice;
using Format = CaptureDevice::Format;

namespace {

std::string Hex(const Bytes& bytes) {
  std::string text;
  for (const uint8_t byte : bytes) text += fmt::format("{:02X}", byte);
  return text;
}

// The record by its layout: nine words and the rest of 204 bytes.
std::string Record(const Format& format) {
  const Bytes rest(format.rest, format.rest + sizeof format.rest);
  return Hex(Words({1, format.width, format.height, 16, 0x50424752, format.flags, format.bytes_per_line,
                    format.image_size, format.priv}) +
             rest);
}

Lines FormatLines(uint32_t width, uint32_t height, const Format& before) {
  Format after = before;
  after.width = width;
  after.height = height;
  after.image_size = width * height * 2;
  const std::string request = std::string("request ") + CAMERA;
  return {std::string("open ") + CAMERA + " r",
          request + " 0xC0CC5604 in " + Hex(Words({1}) + Bytes(200)) + " out " + Record(before),
          request + " 0xC0CC5605 in " + Record(after) + " out " + Record(after), ControlLine(0xFF05, 1000),
          ControlLine(0xFF00, 1)};
}

}  // namespace

std::string ControlLine(uint32_t id, uint32_t value) {
  return std::string("request ") + CAMERA + " 0x4008561C in " + Hex(Words({id, value}));
}

CameraTest::CameraTest() {
  options.instant_sleeps = true;
}

int32_t CameraTest::Camera(uint32_t subcommand, uint32_t width, uint32_t height, uint32_t rotation) {
  return AskStatus(0x24, Words({subcommand, width, height, rotation}), 60s);
}

void CameraTest::Change(const std::function<void(CaptureDevice::State&)>& change) {
  Phone().With<CaptureDevice>([&](CaptureDevice& camera) { change(camera.state); });
}

CaptureDevice::Frame CameraTest::LastFrame() {
  return Phone().With<CaptureDevice>([](CaptureDevice& camera) { return camera.LastFrame(); });
}

Lines CameraTest::CaptureLines(uint32_t width, uint32_t height, const Format& before) {
  return FormatLines(width, height, before) + Lines{"sleep 1.000"};
}

Lines CameraTest::SelfTestLines(const Format& before) {
  return FormatLines(240, 320, before) + Lines{ControlLine(0xFF07, 6), ControlLine(0xFF07, 7)};
}
