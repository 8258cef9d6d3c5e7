// Tasks with the camera's two test pictures: take, fetch, check and delete.
#include <fmt/format.h>

#include <charconv>

#include "station/commands/errors.h"
#include "station/tasks/jpeg_check.h"
#include "station/tasks/operation.h"
#include "station/tasks/picture_measures.h"
#include "station/tasks/terminal.h"

namespace station {

namespace {

// An uncompressed picture of 1200 x 1600 pixels is smaller.
constexpr std::size_t LARGEST_PICTURE = 8u << 20;

Argument WhichPicture() {
  return Word("picture", "which of the two test pictures")
      .OnlyChoices({{"blemish", CAPTURE_BLEMISH}, {"focus", CAPTURE_FOCUS}});
}

Argument SizeArgument() {
  Argument size = Word("size", "WIDTHxHEIGHT in pixels, at most 1200x1600").Optional("240x320");
  size.may_insist = true;
  return size;
}

struct Size {
  std::uint32_t width;
  std::uint32_t height;
};

Size ParseSize(const std::string& text) {
  Size size{};
  const char* end = text.data() + text.size();
  const auto width = std::from_chars(text.data(), end, size.width);
  if (width.ec == std::errc{} && width.ptr != end && *width.ptr == 'x') {
    const auto height = std::from_chars(width.ptr + 1, end, size.height);
    if (height.ec == std::errc{} && height.ptr == end) return size;
  }
  throw UsageError(fmt::format("size: '{}' is not WIDTHxHEIGHT, such as 240x320", text));
}

void CheckSizeArgument(const Values& values) {
  const Size size = ParseSize(values.Text("size"));
  if (values.IsSet(UNCHECKED)) return;
  const auto check = [](const char* name, std::uint32_t pixels) {
    const Argument argument = ArgumentFor(protocol::CameraRequest::FIELDS, name);
    CheckArgument(argument, std::to_string(pixels));
  };
  check("width", size.width);
  check("height", size.height);
}

// The action that deletes the picture that `capture` takes.
std::int64_t DeletionOf(std::int64_t capture) {
  return capture == CAPTURE_BLEMISH ? DELETE_BLEMISH : DELETE_FOCUS;
}

ArgumentValues CameraAction(std::int64_t action, Size size = {}, std::int64_t rotation = 0) {
  return {{"action", action}, {"width", size.width}, {"height", size.height}, {"rotation", rotation}};
}

std::vector<Reading> Measures(const std::string& picture, const Pixels& pixels) {
  return picture == "blemish" ? MeasureBlemishes(pixels) : MeasureFocus(pixels);
}

void AddMeasures(Outcome& outcome, const std::string& picture, const Bytes& jpeg) {
  try {
    const std::vector<Reading> measures = Measures(picture, DecodeJpeg(jpeg));
    outcome.readings.insert(outcome.readings.end(), measures.begin(), measures.end());
  } catch (const std::runtime_error& error) {
    outcome.failure = fmt::format("the picture cannot be measured: {}", error.what());
  }
}

std::vector<Reading> SizeReadings(std::uint32_t width, std::uint32_t height, std::size_t bytes) {
  return {{"width", width, std::to_string(width), "pixels"},
          {"height", height, std::to_string(height), "pixels"},
          {"bytes", bytes, std::to_string(bytes)}};
}

// The measures of any picture have the same names and units; this one is grey.
std::vector<ReadingKind> PictureReadings(const Values& values) {
  constexpr std::size_t SIDE = 64;
  std::vector<Reading> examples = SizeReadings(0, 0, 0);
  const Pixels grey{SIDE, SIDE, std::vector<std::uint8_t>(SIDE * SIDE * 3, 0x80)};
  for (Reading& measure : Measures(values.Text("picture"), grey)) examples.push_back(std::move(measure));
  if (!values.Text("output").empty()) examples.push_back({"file", "", ""});
  return KindsOf(examples);
}

// An earlier reading of this or the other picture may have been interrupted, so the phone's reader is stopped
// first.
Outcome FetchPicture(Session& session, const std::string& picture) {
  const Command& reader = GetCommand(protocol::READ_PICTURE);
  Outcome outcome = RunCommand(session, reader, {{"action", "stop"}});
  if (!outcome.failure.empty()) return outcome;
  Progress progress(session.Options().progress);
  const auto show = [&](std::size_t size) {
    progress.Show(fmt::format("fetching the {} picture: {} KiB", picture, size / 1024));
  };
  const ChunkReading reading = ReadChunks(session, reader, {{"action", picture}}, LARGEST_PICTURE, show);
  outcome = {};
  outcome.failure = reading.failure;
  if (!outcome.failure.empty()) return outcome;
  const JpegCheck check = CheckJpeg(reading.bytes);
  if (!check.fault.empty()) outcome.failure = "the picture is not whole: " + check.fault;
  outcome.readings = SizeReadings(check.width, check.height, reading.bytes.size());
  if (check.fault.empty()) AddMeasures(outcome, picture, reading.bytes);
  outcome.pictures = {{picture, reading.bytes}};
  return outcome;
}

void KeepPicture(Outcome& outcome, const std::string& path) {
  // A damaged picture is kept too, to be looked at.
  if (path.empty() || outcome.pictures.empty()) return;
  WriteFile(path, outcome.pictures.front().jpeg);
  outcome.readings.push_back({"file", path, path});
}

void CheckSize(Outcome& outcome, Size wanted) {
  if (!outcome.failure.empty()) return;
  const JpegCheck check = CheckJpeg(outcome.pictures.front().jpeg);
  if (check.width == wanted.width && check.height == wanted.height) return;
  outcome.failure = fmt::format("the picture is {}x{} instead of {}x{}", check.width, check.height,
                                wanted.width, wanted.height);
}

Outcome CapturePicture(Session& session, const Values& values) {
  const std::string picture = values.Text("picture");
  const std::int64_t action = values.Number("picture");
  const Size size = ParseSize(values.Text("size"));
  const std::int64_t rotation = values.Number("rotate");
  Progress progress(session.Options().progress);
  progress.Show(fmt::format("taking the {} picture", picture));
  Outcome outcome =
      RunCommand(session, GetCommand(protocol::TEST_CAMERA), CameraAction(action, size, rotation));
  if (!outcome.failure.empty()) return outcome;
  outcome = FetchPicture(session, picture);
  const bool turned = rotation == 90 || rotation == 270;
  CheckSize(outcome, turned ? Size{size.height, size.width} : size);
  KeepPicture(outcome, values.Text("output"));
  if (values.IsSet("keep")) return outcome;
  const Outcome deleted =
      RunCommand(session, GetCommand(protocol::TEST_CAMERA), CameraAction(DeletionOf(action)));
  if (outcome.failure.empty()) outcome.failure = deleted.failure;
  return outcome;
}

Outcome FetchAndKeep(Session& session, const Values& values) {
  Outcome outcome = FetchPicture(session, values.Text("picture"));
  KeepPicture(outcome, values.Text("output"));
  return outcome;
}

Outcome DeletePicture(Session& session, const Values& values) {
  return RunCommand(session, GetCommand(protocol::TEST_CAMERA),
                    CameraAction(DeletionOf(values.Number("picture"))));
}

}  // namespace

std::vector<Operation> CameraTasks() {
  return {
      {
          .words = "camera capture",
          .help =
              "take a test picture, fetch it, check that it is whole, measure it and delete it on the phone",
          .arguments = {WhichPicture(), SizeArgument(),
                        Number("rotate", "turn the picture clockwise")
                            .Optional("0")
                            .OnlyChoices({{"0", 0}, {"90", 90}, {"180", 180}, {"270", 270}}),
                        Word("output", "file to keep the picture in").Optional(""),
                        Flag("keep", "do not delete the picture on the phone")},
          .run = CapturePicture,
          .readings = PictureReadings,
          .codes = {protocol::TEST_CAMERA, protocol::READ_PICTURE},
          .check = CheckSizeArgument,
      },
      {
          .words = "camera fetch",
          .help = "fetch a test picture that is on the phone, check that it is whole and measure it",
          .arguments = {WhichPicture(), Word("output", "file to keep the picture in").Named()},
          .run = FetchAndKeep,
          .readings = PictureReadings,
          .codes = {protocol::READ_PICTURE},
      },
      {
          .words = "camera delete",
          .help = "delete a test picture on the phone",
          .arguments = {WhichPicture()},
          .run = DeletePicture,
          .readings = NoReadings,
          .codes = {protocol::TEST_CAMERA},
          .has_status = true,
      },
  };
}

}  // namespace station
