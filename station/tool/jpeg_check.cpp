#include "station/tool/jpeg_check.h"

#include <fmt/format.h>

namespace station {

namespace {

// Marker codes of ITU-T T.81 table B.1.
constexpr std::uint8_t START_OF_IMAGE = 0xD8;
constexpr std::uint8_t END_OF_IMAGE = 0xD9;
constexpr std::uint8_t START_OF_SCAN = 0xDA;
constexpr std::uint8_t FIRST_RESTART = 0xD0;
constexpr std::uint8_t LAST_RESTART = 0xD7;

// Start of frame, of any coding process: 0xC0 to 0xCF without the three that are other things.
bool IsFrameHeader(std::uint8_t marker) {
  return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

class Walk {
 public:
  explicit Walk(std::span<const std::uint8_t> file) : file_(file) {}

  JpegCheck Run() {
    if (file_.size() < 4 || file_[0] != 0xFF || file_[1] != START_OF_IMAGE)
      return Fault("it is no JPEG file");
    at_ = 2;
    for (;;) {
      if (at_ + 2 > file_.size()) return Fault("it is cut short");
      if (file_[at_] != 0xFF) return Fault(fmt::format("byte {} is no marker", at_));
      const std::uint8_t marker = file_[at_ + 1];
      at_ += marker == 0xFF ? 1 : 2;  // a marker may be preceded by fill bytes
      if (marker == 0xFF) continue;
      if (marker == END_OF_IMAGE) return End();
      if (!Segment(marker)) return found_;
      if (marker == START_OF_SCAN) SkipScan();
    }
  }

 private:
  JpegCheck Fault(const std::string& fault) {
    found_.fault = fault;
    return found_;
  }

  JpegCheck End() {
    if (!scanned_) return Fault("it holds no picture");
    if (at_ != file_.size()) return Fault(fmt::format("{} bytes follow the picture", file_.size() - at_));
    return found_;
  }

  std::uint32_t Number(std::size_t at) const {
    return std::uint32_t{file_[at]} << 8 | file_[at + 1];
  }

  bool Segment(std::uint8_t marker) {
    const std::size_t length = at_ + 2 <= file_.size() ? Number(at_) : 0;
    if (length < 2 || at_ + length > file_.size()) {
      Fault("it is cut short");
      return false;
    }
    if (IsFrameHeader(marker) && length >= 7) {
      found_.height = Number(at_ + 3);
      found_.width = Number(at_ + 5);
    }
    scanned_ = scanned_ || (marker == START_OF_SCAN && found_.width != 0);
    at_ += length;
    return true;
  }

  // Entropy-coded data ends at the first marker that is neither a stuffed 0xFF nor a restart.
  void SkipScan() {
    while (at_ + 1 < file_.size()) {
      const std::uint8_t next = file_[at_ + 1];
      const bool inside = next == 0 || (next >= FIRST_RESTART && next <= LAST_RESTART);
      if (file_[at_] == 0xFF && !inside) return;
      at_ += file_[at_] == 0xFF ? 2 : 1;
    }
    at_ = file_.size();
  }

  std::span<const std::uint8_t> file_;
  std::size_t at_ = 0;
  bool scanned_ = false;
  JpegCheck found_;
};

}  // namespace

JpegCheck CheckJpeg(std::span<const std::uint8_t> file) {
  return Walk(file).Run();
}

}  // namespace station
