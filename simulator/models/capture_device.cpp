#include "simulator/models/capture_device.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <filesystem>
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

constexpr int MOST_NOISE = 4;

// The sensor's noise at a pixel, up to MOST_NOISE levels of 255 either way, mostly little.
int NoiseAt(uint32_t pixel, uint32_t exposure, uint32_t seed) {
  uint32_t random = (pixel ^ exposure * 0x9E3779B9U ^ seed * 0x85EBCA6BU) * 0x7FEB352DU;
  random = (random ^ random >> 15) * 0x846CA68BU;
  return (static_cast<int>(random >> 24) + static_cast<int>(random >> 16 & 0xFF) - 255) / 60;
}

// A colour's bits in a pixel, for each level with its noise.
using ColourBits = std::array<uint16_t, 256 + 2 * MOST_NOISE>;

constexpr ColourBits BitsOfColour(int largest, int shift) {
  ColourBits bits = {};
  for (int index = 0; index < static_cast<int>(bits.size()); ++index) {
    const int level = std::clamp(index - MOST_NOISE, 0, 255);
    bits[static_cast<size_t>(index)] = static_cast<uint16_t>((level * largest + 127) / 255 << shift);
  }
  return bits;
}

constexpr ColourBits RED = BitsOfColour(31, 11), GREEN = BitsOfColour(63, 5), BLUE = BitsOfColour(31, 0);

// `level` has the pixel's red, green and blue.
uint16_t Pack(const uint8_t* level, int noise) {
  const auto index = [=](int colour) { return static_cast<size_t>(level[colour] + noise + MOST_NOISE); };
  return static_cast<uint16_t>(RED[index(0)] | GREEN[index(1)] | BLUE[index(2)]);
}

Picture PictureFile(const std::string& path) {
  // A pipe could make the phone wait, and a device may have no end.
  constexpr uintmax_t LARGEST = 64 << 20;
  std::error_code error;
  const bool fits = std::filesystem::is_regular_file(path, error) &&
                    std::filesystem::file_size(path, error) <= LARGEST && !error;
  std::ifstream file;
  if (fits) file.open(path, std::ios::binary);
  if (!fits || !file) throw std::invalid_argument(fmt::format("{} cannot be read.", path));
  try {
    return ReadPicture(std::string(std::istreambuf_iterator<char>(file), {}));
  } catch (const std::runtime_error& failure) {
    throw std::invalid_argument(fmt::format("{} is not a picture: {}.", path, failure.what()));
  }
}

constexpr char CAMERA_USAGE[] =
    "[scene [SEED] | card [SEED] | picture FILE | defect COLUMN ROW COLOUR | row ROW [COLOUR] | dust COUNT "
    "[SEED] | blur RADIUS | shading PERCENT | tint RED GREEN BLUE | short NTH [BYTES] | good]";

// A number from 0 to `most`.
int64_t NumberWithin(const std::string& word, int64_t most) {
  const int64_t number = NumberWord(word);
  if (number < 0 || number > most) {
    throw std::invalid_argument(fmt::format("\"{}\" is out of range: 0 to {}.", word, most));
  }
  return number;
}

}  // namespace

CaptureDevice::CaptureDevice(PhoneServices& phone)
    : DeviceModel(phone), delivered_(memfd_create("frame", MFD_CLOEXEC)), drawing_(DrawCameraScene) {
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
  ApplyDefects(pattern);
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

void CaptureDevice::ApplyDefects(int32_t pattern) {
  for (const Defect& defect : state.defects) {
    if (defect.column >= frame_.width || defect.row >= frame_.height) continue;
    if (defect.pattern != 0 && defect.pattern != pattern) continue;
    frame_.pixels[size_t{defect.row} * frame_.width + defect.column] = defect.colour;
  }
  for (const DeadRow& dead : state.dead_rows) {
    if (dead.row >= frame_.height) continue;
    std::fill_n(frame_.pixels.begin() + static_cast<ptrdiff_t>(size_t{dead.row} * frame_.width), frame_.width,
                dead.colour);
  }
}

const Picture& CaptureDevice::View() {
  const auto [width, height] = std::pair(state.format.width, state.format.height);
  if (view_.width != width || view_.height != height || view_optics_ != state.optics) {
    view_ = shown_ ? Resize(*shown_, width, height) : drawing_(width, height, seed_);
    view_optics_ = state.optics;
    PassThrough(view_optics_, view_);
  }
  return view_;
}

// The scene has the sensor's noise, each frame its own; a picture has its noise already.
std::vector<uint16_t> CaptureDevice::Expose() {
  const std::vector<uint8_t>& levels = View().levels;
  ++exposures_;
  std::vector<uint16_t> pixels(levels.size() / 3);
  for (size_t pixel = 0; pixel < pixels.size(); ++pixel) {
    const int noise = shown_ ? 0 : NoiseAt(static_cast<uint32_t>(pixel), exposures_, seed_);
    pixels[pixel] = Pack(&levels[pixel * 3], noise);
  }
  return pixels;
}

void CaptureDevice::Show(std::optional<Picture> picture) {
  if (!picture) return ShowScene(0);
  if (picture->levels.empty()) throw std::invalid_argument("The picture is empty.");
  shown_ = std::move(picture);
  view_ = {};
}

void CaptureDevice::Show(Drawing drawing, uint32_t seed) {
  shown_.reset();
  drawing_ = drawing;
  seed_ = seed;
  view_ = {};
}

void CaptureDevice::ShowScene(uint32_t seed) {
  Show(DrawCameraScene, seed);
}

void CaptureDevice::ShowCard(uint32_t seed) {
  Show(DrawCameraCard, seed);
}

std::vector<ModelCommand> CaptureDevice::Commands() {
  return {
      {"camera",
       CAMERA_USAGE,
       "tells how the camera is, puts its test scene, an even grey card or a PNG or JPEG picture before it, "
       "gives it a fault, makes its frames short, or repairs it",
       [this](const std::vector<std::string>& words) { return Command(words); },
       FileWord{FileWord::Opener::Phone, 1, "picture"},
       {{"defect", "120", "7", "0xFFFE"},
        {"defect", "100", "200", "0"},
        {"row", "150"},
        {"dust", "1", "1"},
        {"dust", "5", "2"},
        {"blur", "1"},
        {"blur", "5"},
        {"shading", "30"},
        {"tint", "115", "100", "100"},
        {"tint", "100", "100", "85"},
        {"short", "1"},
        {"short", "2"}}},
      {"frame", "FILE", "the camera's latest frame as a PNG picture",
       [this](const std::vector<std::string>&) {
         if (frame_.pixels.empty()) throw std::invalid_argument("The camera has delivered no frame yet.");
         return EncodePng(frame_.pixels, frame_.width, frame_.height);
       },
       FileWord{FileWord::Opener::Caller, 0}},
      {"preview", "FILE", "what the camera would deliver now, as a PNG picture of 240 x 320",
       [this](const std::vector<std::string>&) {
         const Frame preview = Preview(240, 320);
         return EncodePng(preview.pixels, preview.width, preview.height);
       },
       FileWord{FileWord::Opener::Caller, 0}}};
}

// Rows and places of defects are the sensor's: they shrink with the picture.
CaptureDevice::Frame CaptureDevice::Preview(uint32_t width, uint32_t height) {
  const State kept_state = state;
  const Frame kept_frame = std::exchange(frame_, {width, height, {}});
  const uint32_t kept_exposures = exposures_;
  for (Defect& defect : state.defects) {
    defect.column = defect.column * width / MAX_WIDTH;
    defect.row = defect.row * height / MAX_HEIGHT;
  }
  for (DeadRow& dead : state.dead_rows) dead.row = dead.row * height / MAX_HEIGHT;
  state.format.width = width;
  state.format.height = height;
  frame_.pixels = Expose();
  ApplyDefects(0);
  state = kept_state;
  exposures_ = kept_exposures;
  return std::exchange(frame_, kept_frame);
}

std::string CaptureDevice::Command(const std::vector<std::string>& words) {
  const std::string word = words.empty() ? "" : words[0];
  const size_t count = words.size();
  const auto number = [&](size_t index, int64_t most = UINT32_MAX) {
    return static_cast<uint32_t>(NumberWithin(words[index], most));
  };
  const auto percent = [&](size_t index) { return static_cast<int>(number(index, Optics::MOST_TINT)); };
  if (word == "scene" && count <= 2) {
    ShowScene(count == 2 ? number(1) : 0);
  } else if (word == "card" && count <= 2) {
    ShowCard(count == 2 ? number(1) : 0);
  } else if (word == "picture" && count == 2) {
    Show(PictureFile(words[1]));
  } else if (word == "defect" && count == 4) {
    state.defects.push_back({number(1), number(2), static_cast<uint16_t>(number(3, UINT16_MAX))});
  } else if (word == "row" && (count == 2 || count == 3)) {
    state.dead_rows.push_back({number(1), static_cast<uint16_t>(count == 3 ? number(2, UINT16_MAX) : 0)});
  } else if (word == "dust" && (count == 2 || count == 3)) {
    state.optics.dust = static_cast<int>(number(1, Optics::MOST_DUST));
    state.optics.dust_seed = count == 3 ? number(2) : 0;
  } else if (word == "blur" && count == 2) {
    state.optics.blur = static_cast<int>(number(1, Optics::MOST_BLUR));
  } else if (word == "shading" && count == 2) {
    state.optics.shading = static_cast<int>(number(1, 100));
  } else if (word == "tint" && count == 4) {
    state.optics.tint = {percent(1), percent(2), percent(3)};
  } else if (word == "short" && (count == 2 || count == 3)) {
    state.short_frame = CountWord(words[1]);
    if (count == 3) state.missing_bytes = number(2);
  } else if (word == "good" && count == 1) {
    const Format format = state.format;
    state = {};
    state.format = format;
  } else if (!word.empty()) {
    throw std::invalid_argument(fmt::format("camera takes {}.", CAMERA_USAGE));
  }
  return Describe();
}

std::string CaptureDevice::Describe() const {
  const std::string view = shown_                       ? "picture"
                           : drawing_ == DrawCameraCard ? fmt::format("card {}", seed_)
                           : seed_ == 0                 ? "scene"
                                                        : fmt::format("scene {}", seed_);
  std::string text = fmt::format("{}, frames of {} x {}, {} exposed\n", view, state.format.width,
                                 state.format.height, exposures_);
  const Optics& optics = state.optics;
  if (optics.dust != 0) text += fmt::format("{} grains of dust, seed {}\n", optics.dust, optics.dust_seed);
  if (optics.blur != 0) text += fmt::format("out of focus by {} pixels\n", optics.blur);
  if (optics.shading != 0) text += fmt::format("corners {} % darker\n", optics.shading);
  if (optics.tint != Optics().tint) text += fmt::format("tint {}\n", fmt::join(optics.tint, " "));
  for (const Defect& defect : state.defects) {
    text += fmt::format("defect at {} {}: 0x{:04X}\n", defect.column, defect.row, defect.colour);
  }
  for (const DeadRow& dead : state.dead_rows) {
    text += fmt::format("dead row {}: 0x{:04X}\n", dead.row, dead.colour);
  }
  if (state.short_frame != 0) {
    text += fmt::format("frame {} of each opening lacks {} bytes\n", state.short_frame, state.missing_bytes);
  }
  return text;
}

}  // namespace simulator
