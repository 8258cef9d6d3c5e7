#include "server/camera/capture.h"

#include <cstddef>
#include <cstdlib>

#include "protocol/result_codes.h"
#include "server/base/device.h"
#include "server/base/wait.h"
#include "server/camera/frame_pixels.h"

constexpr char CAPTURE_DEVICE[] = "/dev/v4l2/capture0";

// The format record of the early interface. Unlike the later one it has a depth between height and pixel
// format.
struct CaptureFormat {
  uint32_t type;
  uint32_t width, height;
  uint32_t depth;  // bits a pixel
  uint32_t pixel_format;
  uint32_t flags;
  uint32_t bytes_per_line;
  uint32_t image_size;
  uint32_t priv;
  uint8_t rest[168];
};
static_assert(sizeof(CaptureFormat) == 204 && offsetof(CaptureFormat, pixel_format) == 16 &&
              offsetof(CaptureFormat, image_size) == 28 && offsetof(CaptureFormat, rest) == 36);

struct CaptureControl {
  uint32_t id;
  int32_t value;
};
static_assert(sizeof(CaptureControl) == 8);

constexpr unsigned long CAPTURE_GET_FORMAT = 0xC0CC5604;   // VIDIOC_G_FMT
constexpr unsigned long CAPTURE_SET_FORMAT = 0xC0CC5605;   // VIDIOC_S_FMT
constexpr unsigned long CAPTURE_SET_CONTROL = 0x4008561C;  // VIDIOC_S_CTRL, in its write-only form

constexpr uint32_t CAPTURE_TYPE = 1;            // V4L2_BUF_TYPE_VIDEO_CAPTURE
constexpr uint32_t FORMAT_RGB565 = 0x50424752;  // V4L2_PIX_FMT_RGB565, "RGBP"

// The sensor driver's own controls. The frame comes after the second.
constexpr CaptureControl FIRST_START_CONTROL = {0xFF05, 1000};
constexpr CaptureControl SECOND_START_CONTROL = {0xFF00, 1};
constexpr uint32_t PATTERN_CONTROL = 0xFF07;
constexpr int32_t PATTERN_WHITE = 6;
constexpr int32_t PATTERN_BLACK = 7;

constexpr uint32_t SELF_TEST_WIDTH = 240;
constexpr uint32_t SELF_TEST_HEIGHT = 320;
constexpr uint32_t SELF_TEST_PIXELS = SELF_TEST_WIDTH * SELF_TEST_HEIGHT;
constexpr uint32_t SELF_TEST_BYTES = SELF_TEST_PIXELS * 2;
constexpr uint32_t SCRATCH_BYTES = 0x25C00;  // a little more than one frame

static bool SetControl(int camera, CaptureControl control) {
  return IssueRequest(camera, CAPTURE_SET_CONTROL, &control) >= 0;
}

// Asks for frames of a size and starts the sensor. What the driver reported in the format's other fields goes
// back to it as it came.
static int32_t Configure(int camera, uint32_t width, uint32_t height) {
  CaptureFormat format = {};
  format.type = CAPTURE_TYPE;
  if (IssueRequest(camera, CAPTURE_GET_FORMAT, &format) < 0) return REQUEST_FAILED;
  format.width = width;
  format.height = height;
  format.depth = 16;
  format.pixel_format = FORMAT_RGB565;
  format.image_size = width * height * 2;
  if (IssueRequest(camera, CAPTURE_SET_FORMAT, &format) < 0) return SECOND_REQUEST_FAILED;
  if (!SetControl(camera, FIRST_START_CONTROL)) return THIRD_REQUEST_FAILED;
  if (!SetControl(camera, SECOND_START_CONTROL)) return FOURTH_REQUEST_FAILED;
  return SUCCESS;
}

static int32_t ReadFrame(int camera, void* buffer, uint32_t size) {
  return read(camera, buffer, size) == static_cast<ssize_t>(size) ? SUCCESS : SHORT_READ;
}

static int32_t CheckPattern(int camera, int32_t pattern, uint16_t colour, uint16_t* scratch) {
  if (!SetControl(camera, {PATTERN_CONTROL, pattern})) return FIFTH_REQUEST_FAILED;
  const int32_t result = ReadFrame(camera, scratch, SELF_TEST_BYTES);
  if (result != SUCCESS) return result;
  return IsUniform(scratch, SELF_TEST_PIXELS, colour) ? SUCCESS : CONTENT_MISMATCH;
}

int32_t CameraSelfTest() {
  return WithDevice(CAPTURE_DEVICE, O_RDONLY, OPEN_FAILED, [](int camera) {
    auto* scratch = static_cast<uint16_t*>(malloc(SCRATCH_BYTES));
    if (scratch == nullptr) return OUT_OF_MEMORY;
    int32_t result = Configure(camera, SELF_TEST_WIDTH, SELF_TEST_HEIGHT);
    if (result == SUCCESS) result = CheckPattern(camera, PATTERN_WHITE, 0xFFFF, scratch);
    if (result == SUCCESS) {
      result = CheckPattern(camera, PATTERN_BLACK, 0x0000, scratch);
      // Leaks the buffer on purpose, see docs/on-purpose.md.
      if (result == SHORT_READ) return result;
    }
    free(scratch);
    return result;
  });
}

int32_t CameraCapture(uint32_t width, uint32_t height, void* buffer) {
  return WithDevice(CAPTURE_DEVICE, O_RDONLY, OPEN_FAILED, [&](int camera) {
    const int32_t result = Configure(camera, width, height);
    if (result != SUCCESS) return result;
    SleepSeconds(1);
    return ReadFrame(camera, buffer, width * height * 2);
  });
}

int32_t CameraQuery() {
  return NOT_SUPPORTED;
}
