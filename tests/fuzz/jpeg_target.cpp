// The JPEG encoder with pictures of any size, stride and content, read back by libjpeg-turbo: every
// coefficient is near the exact one.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "tests/fuzz/target.h"
#include "tests/unit/encoded_picture.h"
#include "tests/unit/jpeg_decoding.h"

namespace {

// In quantization steps: a half from rounding, and what the precision of the samples loses where a colour is
// flat.
constexpr double LARGEST_ERROR = 1.3;

std::vector<uint8_t> EncodeIntoMemory(const std::vector<uint8_t>& bytes, int32_t stride, int32_t width,
                                      int32_t height) {
  const int file = memfd_create("picture", MFD_CLOEXEC);
  const std::string path = "/proc/self/fd/" + std::to_string(file);
  const int32_t result =
      EncodeToFile(reinterpret_cast<const uint16_t*>(bytes.data()), stride, width, height, path);
  Check(result == MIMG_OK, "every picture can be written");
  std::vector<uint8_t> picture(static_cast<size_t>(lseek(file, 0, SEEK_END)));
  Check(pread(file, picture.data(), picture.size(), 0) == static_cast<ssize_t>(picture.size()), "it is read");
  close(file);
  return picture;
}

void TryJpegEncoder(Input input) {
  const int32_t width = 1 + input.Byte() % 70, height = 1 + input.Byte() % 70;
  const int32_t stride = 2 * width + input.Byte() % 9 * 2;
  const std::string content = input.Text();
  // The last row has no more bytes than its pixels: nothing after them may be read.
  std::vector<uint8_t> bytes(static_cast<size_t>(stride * (height - 1) + 2 * width));
  for (size_t i = 0; i < bytes.size() && !content.empty(); ++i)
    bytes[i] = static_cast<uint8_t>(content[i % content.size()]);
  std::vector<uint16_t> frame;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const uint8_t* pixel = &bytes[static_cast<size_t>(y * stride + 2 * x)];
      frame.push_back(static_cast<uint16_t>(pixel[0] | pixel[1] << 8));
    }
  }
  const Rounding rounding =
      CompareCoefficients(EncodeIntoMemory(bytes, stride, width, height), frame, width, height);
  fprintf(stderr, "%f\n", rounding.worst);
  Check(rounding.worst < LARGEST_ERROR, "every coefficient is near the exact one");
}

const bool added = AddTargets({{"jpeg_encoder", TryJpegEncoder}});

}  // namespace
