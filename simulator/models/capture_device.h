// Emulates the camera's sensor as the Video4Linux 2 capture device /dev/v4l2/capture0, in the early form
// of that interface: the format record with a depth, and the sensor's own controls, which must come in their
// order. The control that starts the sensor and each that selects a test pattern make it deliver one frame of
// the format, RGB565, to the caller's next read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "posix/file_descriptor.h"
#include "simulator/models/camera_optics.h"
#include "simulator/models/driver_records.h"
#include "simulator/models/picture.h"
#include "simulator/phone/device_model.h"

namespace simulator {

class CaptureDevice : public DeviceModel {
 public:
  static constexpr uint32_t MAX_WIDTH = 1200;
  static constexpr uint32_t MAX_HEIGHT = 1600;
  static constexpr int32_t PATTERN_WHITE = 6;
  static constexpr int32_t PATTERN_BLACK = 7;

  using Format = CaptureFormat;

  // A pixel that has one colour always, or only in one test pattern.
  struct Defect {
    uint32_t column, row;
    uint16_t colour;
    int32_t pattern = 0;  // 0: in every frame
  };

  // A row of the sensor that delivers one colour always.
  struct DeadRow {
    uint32_t row;
    uint16_t colour;
  };

  struct State {
    Format format;
    Optics optics;
    std::vector<Defect> defects;
    std::vector<DeadRow> dead_rows;
    int short_frame = 0;            // the n-th frame read of each opening lacks its end; 0: none does
    uint32_t missing_bytes = 2;     // of that frame
    bool takes_any_extent = false;  // also a width or height of 0
  };

  // A delivered frame, defects included.
  struct Frame {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint16_t> pixels;
  };

  explicit CaptureDevice(PhoneServices& phone);
  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
  RequestAnswer Request(DriverRequest& request) override;
  std::vector<ModelCommand> Commands() override;

  // Puts a picture before the camera in place of the scene, resized to the format; nothing: the scene again.
  void Show(std::optional<Picture> picture);
  void ShowScene(uint32_t seed);
  void ShowCard(uint32_t seed);
  const Frame& LastFrame() const {
    return frame_;
  }

  // What the sensor would deliver now, in any size.
  Frame Preview(uint32_t width, uint32_t height);

  State state;

 private:
  // How far the caller of this opening has come.
  enum class Step { Opened, FormatSet, Prepared, Started };

  // Draws a view in any size.
  using Drawing = Picture (*)(unsigned width, unsigned height, uint32_t seed);

  RequestAnswer GetFormat(DriverRequest& request);
  RequestAnswer SetFormat(DriverRequest& request);
  RequestAnswer SetControl(DriverRequest& request);
  RequestAnswer Deliver(const DriverRequest& request, int32_t pattern);
  void ApplyDefects(int32_t pattern);
  void Show(Drawing drawing, uint32_t seed);
  const Picture& View();
  std::vector<uint16_t> Expose();
  std::string Command(const std::vector<std::string>& words);
  std::string Describe() const;

  posix::FileDescriptor delivered_;  // memory that holds one frame where the caller's next read takes place
  Step step_ = Step::Opened;
  std::optional<Picture> shown_;  // in place of a drawing
  Drawing drawing_;
  uint32_t seed_ = 0;  // of the drawing and of the sensor's noise
  Picture view_;       // what the sensor gets of it, in the size of the latest frame
  Optics view_optics_;
  Frame frame_;
  uint32_t exposures_ = 0;
};

}  // namespace simulator
