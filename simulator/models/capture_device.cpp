#include "simulator/models/capture_device.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "simulator/models/camera_scene.h"
#include "simulator/models/picture.h"
#include "simulator/phone/device_model.h"

namespace simulator {
namespace {

using Format = CaptureDevice::Format;

constexpr uint32_t GET_FORMAT = 0xC0CC5604;
constexpr uint32_t SET_FORMAT = 0xC0CC5605;
constexpr uint32_t SET_CONTROL = 0x4008561C;

// The sensor's controls, with the one value that it takes for each of the first two.
constexpr uint32_t PREPARE = 0xFF05;
constexpr int32_t PREPARE_VALUE = 1000;
constexpr uint32_t START = 0xFF00;
constexpr int32_t START_VALUE = 1;
constexpr uint32_t SELECT_PATTERN = 0xFF07;

// The format that the driver sets when a caller wants `wanted`: the driver's own fields stay.
Format Accepted(const Format& own, const Format& wanted) {
  Format format = own;
  format.width = wanted.width;
  format.height = wanted.height;
  format.image_size = wanted.width * wanted.height * 2;
  return format;
}

// The sensor's noise at a pixel, up to 4 levels of 255 either way, mostly little.
int NoiseAt(uint32_t pixel, uint32_t exposure) {
  uint32_t random = (pixel ^ exposure * 0x9E3779B9U) * 0x7FEB352DU;
  random = (random ^ random >> 15) * 0x846CA68BU;
  return (static_cast<int>(random >> 24) + static_cast<int>(random >> 16 & 0xFF) - 255) / 60;
}

unsigned Field(int level, int largest) {
  return static_cast<unsigned>((std::clamp(level, 0, 255) * largest + 127) / 255);
}

uint16_t Pack(int red, int green, int blue) {
  return static_cast<uint16_t>(Field(red, 31) << 11 | Field(green, 63) << 5 | Field(blue, 31));
}

Picture PictureFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::invalid_argument(fmt::format("{} cannot be read.", path));
  try {
    return ReadPicture(std::string(std::istreambuf_iterator<char>(file), {}));
  } catch (const std::runtime_error& failure) {
    throw std::invalid_argument(fmt::format("{} is not a picture: {}.", path, failure.what()));
  }
}

}  // namespace

CaptureDevice::CaptureDevice(PhoneServices& phone)
    : DeviceModel(phone), delivered_(memfd_create("frame", MFD_CLOEXEC)) {
  if (!delivered_.IsOpen()) throw std::system_error(errno, std::generic_category(), "memfd");
}

std::vector<std::string> CaptureDevice::Paths() const {
  return {"/dev/v4l2/capture0"};
}

// One program at a time uses the sensor: a new opening starts from the beginning, without a frame.
OpenAnswer CaptureDevice::Open(const OpenCall& call) {
  step_ = Step::Opened;
  const std::string path = fmt::format("/proc/self/fd/{}", delivered_.Get());
  // Frames cannot be written, and memory that the phone's programs could enlarge would not count as theirs.
  posix::FileDescriptor opened(open(path.c_str(), O_RDONLY | (call.flags & O_NONBLOCK) | O_CLOEXEC));
  if (!opened.IsOpen() || ftruncate(delivered_.Get(), 0) != 0) return OpenAnswer::Refusal(errno);
  return OpenAnswer::Descriptor(std::move(opened));
}

RequestAnswer CaptureDevice::Request(DriverRequest& request) {
  switch (request.number) {
    case GET_FORMAT:
      return GetFormat(request);
    case SET_FORMAT:
      return SetFormat(request);
    case SET_CONTROL:
      return SetControl(request);
    default:
      return RequestAnswer::Refusal(EINVAL);
  }
}

RequestAnswer CaptureDevice::GetFormat(DriverRequest& request) {
  const auto asked = request.ReadRecord<Format>();
  if (!asked) return RequestAnswer::Refusal(EFAULT);
  // A caller names the type and leaves the rest zero.
  auto question = std::bit_cast<Format>(std::array<uint8_t, sizeof(Format)>{});
  question.type = state.format.type;
  if (*asked != question) return RequestAnswer::Refusal(EINVAL);
  return request.WriteRecord(state.format) ? RequestAnswer::Success() : RequestAnswer::Refusal(EFAULT);
}

RequestAnswer CaptureDevice::SetFormat(DriverRequest& request) {
  const auto wanted = request.ReadRecord<Format>();
  if (!wanted) return RequestAnswer::Refusal(EFAULT);
  const bool fits = wanted->width <= MAX_WIDTH && wanted->height <= MAX_HEIGHT;
  const bool empty = wanted->width == 0 || wanted->height == 0;
  const Format accepted = Accepted(state.format, *wanted);
  if (!fits || (empty && !state.takes_any_extent) || *wanted != accepted) {
    return RequestAnswer::Refusal(EINVAL);
  }
  if (!request.WriteRecord(accepted)) return RequestAnswer::Refusal(EFAULT);
  state.format = accepted;
  step_ = Step::FormatSet;
  return RequestAnswer::Success();
}

RequestAnswer CaptureDevice::SetControl(DriverRequest& request) {
  const auto control = request.ReadRecord<CaptureControl>();
  if (!control) return RequestAnswer::Refusal(EFAULT);
  if (control->id == PREPARE && control->value == PREPARE_VALUE && step_ == Step::FormatSet) {
    step_ = Step::Prepared;
    return RequestAnswer::Success();
  }
  if (control->id == START && control->value == START_VALUE && step_ == Step::Prepared) {
    step_ = Step::Started;
    return Deliver(request, 0);
  }
  const bool selects = control->value == PATTERN_WHITE || control->value == PATTERN_BLACK;
  if (control->id == SELECT_PATTERN && selects && step_ == Step::Started) {
    return Deliver(request, control->value);
  }
  return RequestAnswer::Refusal(EINVAL);
}

// Puts a frame where the caller's next read takes place, and nothing after it. Each frame read before was a
// whole one.
RequestAnswer CaptureDevice::Deliver(const DriverRequest& request, int32_t pattern) {
  frame_ = {state.format.width, state.format.height, {}};
  const size_t count = size_t{frame_.width} * frame_.height;
  frame_.pixels =
      pattern == 0 ? Expose() : std::vector<uint16_t>(count, pattern == PATTERN_WHITE ? 0xFFFF : 0);
  for (const Defect& defect : state.defects) {
    if (defect.column >= frame_.width || defect.row >= frame_.height) continue;
    if (defect.pattern != 0 && defect.pattern != pattern) continue;
    frame_.pixels[size_t{defect.row} * frame_.width + defect.column] = defect.colour;
  }
  size_t bytes = count * sizeof(uint16_t);
  const off_t position = request.FilePosition();
  if (bytes != 0 && position / static_cast<off_t>(bytes) + 1 == state.short_frame) {
    bytes -= std::min<size_t>(bytes, state.missing_bytes);
  }
  const bool delivered =
      ftruncate(delivered_.Get(), position) == 0 &&
      pwrite(delivered_.Get(), frame_.pixels.data(), bytes, position) == static_cast<ssize_t>(bytes);
  return delivered ? RequestAnswer::Success() : RequestAnswer::Refusal(EIO);
}

const Picture& CaptureDevice::View() {
  const auto [width, height] = std::pair(state.format.width, state.format.height);
  if (view_.width != width || view_.height != height) {
    view_ = shown_ ? Resize(*shown_, width, height) : DrawCameraScene(width, height);
  }
  return view_;
}

// The scene has the sensor's noise, each frame its own; a picture has its noise already.
std::vector<uint16_t> CaptureDevice::Expose() {
  const std::vector<uint8_t>& levels = View().levels;
  ++exposures_;
  std::vector<uint16_t> pixels(levels.size() / 3);
  for (size_t pixel = 0; pixel < pixels.size(); ++pixel) {
    const int noise = shown_ ? 0 : NoiseAt(static_cast<uint32_t>(pixel), exposures_);
    const uint8_t* level = &levels[pixel * 3];
    pixels[pixel] = Pack(level[0] + noise, level[1] + noise, level[2] + noise);
  }
  return pixels;
}

void CaptureDevice::Show(std::optional<Picture> picture) {
  if (picture && picture->levels.empty()) throw std::invalid_argument("The picture is empty.");
  shown_ = std::move(picture);
  view_ = {};
}

std::vector<ModelCommand> CaptureDevice::Commands() {
  return {
      {"camera", "[scene | picture FILE | defect COLUMN ROW COLOUR | short NTH [BYTES] | good]",
       "tells how the camera is, puts a PNG or JPEG picture before it, gives it a defective pixel, makes its "
       "frames short, or repairs it",
       [this](const std::vector<std::string>& words) { return Command(words); }},
      {"frame", "FILE", "the camera's latest frame as a PNG picture",
       [this](const std::vector<std::string>&) {
         if (frame_.pixels.empty()) throw std::invalid_argument("The camera has delivered no frame yet.");
         return EncodePng(frame_.pixels, frame_.width, frame_.height);
       },
       true}};
}

std::string CaptureDevice::Command(const std::vector<std::string>& words) {
  const std::string word = words.empty() ? "" : words[0];
  const auto number = [&](size_t index) { return NumberWord(words[index]); };
  if (word == "scene" && words.size() == 1) {
    Show(std::nullopt);
  } else if (word == "picture" && words.size() == 2) {
    Show(PictureFile(words[1]));
  } else if (word == "defect" && words.size() == 4) {
    state.defects.push_back({static_cast<uint32_t>(number(1)), static_cast<uint32_t>(number(2)),
                             static_cast<uint16_t>(number(3))});
  } else if (word == "short" && (words.size() == 2 || words.size() == 3)) {
    state.short_frame = static_cast<int>(number(1));
    if (words.size() == 3) state.missing_bytes = static_cast<uint32_t>(number(2));
  } else if (word == "good" && words.size() == 1) {
    const Format format = state.format;
    state = {};
    state.format = format;
  } else if (!word.empty()) {
    throw std::invalid_argument(
        "camera takes scene, picture FILE, defect COLUMN ROW COLOUR, short NTH [BYTES] or good.");
  }
  return Describe();
}

std::string CaptureDevice::Describe() const {
  std::string text = fmt::format("{}, frames of {} x {}, {} exposed\n", shown_ ? "picture" : "scene",
                                 state.format.width, state.format.height, exposures_);
  for (const Defect& defect : state.defects) {
    text += fmt::format("defect at {} {}: 0x{:04X}\n", defect.column, defect.row, defect.colour);
  }
  if (state.short_frame != 0) {
    text += fmt::format("frame {} of each opening lacks {} bytes\n", state.short_frame, state.missing_bytes);
  }
  return text;
}

}  // namespace simulator
