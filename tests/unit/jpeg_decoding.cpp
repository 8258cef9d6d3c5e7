#include "tests/unit/jpeg_decoding.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>

Rgb Widen(uint16_t pixel) {
  const int red = pixel >> 11;
  const int green = pixel >> 5 & 63;
  const int blue = pixel & 31;
  return {red << 3 | red >> 2, green << 2 | green >> 4, blue << 3 | blue >> 2};
}

namespace {

[[noreturn]] void Give(j_common_ptr codec) {
  (*codec->err->output_message)(codec);
  abort();
}

// A component's level-shifted samples as the standard defines them: Y, or the mean of 2 x 2 pixels' Cb or
// Cr. The last pixels are repeated beyond the picture's edges.
double Sample(const std::vector<uint16_t>& frame, int width, int component, int x, int y) {
  const int height = static_cast<int>(frame.size()) / width;
  const auto value = [&](int column, int row) {
    column = std::min(column, width - 1);
    row = std::min(row, height - 1);
    const Rgb rgb = Widen(frame[static_cast<size_t>(row * width + column)]);
    const double luma = 0.299 * rgb.red + 0.587 * rgb.green + 0.114 * rgb.blue;
    if (component == 0) return luma - 128;
    return component == 1 ? (rgb.blue - luma) / 1.772 : (rgb.red - luma) / 1.402;
  };
  if (component == 0) return value(x, y);
  return (value(2 * x, 2 * y) + value(2 * x + 1, 2 * y) + value(2 * x, 2 * y + 1) +
          value(2 * x + 1, 2 * y + 1)) /
         4;
}

// T.81, A.3.3
double Coefficient(const double (&samples)[64], int frequency) {
  static const auto cosines = [] {
    std::vector<double> table(64);
    for (int i = 0; i < 64; ++i) {
      table[static_cast<size_t>(i)] =
          (i < 8 ? std::sqrt(0.125) : 0.5) * std::cos((2 * (i % 8) + 1) * (i / 8) * std::numbers::pi / 16);
    }
    return table;
  }();
  double sum = 0;
  for (int i = 0; i < 64; ++i) {
    sum += samples[i] * cosines[static_cast<size_t>(frequency / 8 * 8 + i / 8)] *
           cosines[static_cast<size_t>(frequency % 8 * 8 + i % 8)];
  }
  return sum;
}

}  // namespace

jpeg_error_mgr* Strict(jpeg_error_mgr* errors) {
  jpeg_std_error(errors);
  errors->error_exit = Give;
  return errors;
}

void StartReading(const std::vector<uint8_t>& picture, jpeg_decompress_struct* codec,
                  jpeg_error_mgr* errors) {
  codec->err = Strict(errors);
  jpeg_create_decompress(codec);
  jpeg_mem_src(codec, picture.data(), picture.size());
  jpeg_read_header(codec, TRUE);
}

Rounding CompareCoefficients(const std::vector<uint8_t>& picture, const std::vector<uint16_t>& frame,
                             int width, int height) {
  Rounding rounding;
  jpeg_decompress_struct codec{};
  jpeg_error_mgr errors{};
  StartReading(picture, &codec, &errors);
  jvirt_barray_ptr* components = jpeg_read_coefficients(&codec);
  for (int component = 0; component < 3; ++component) {
    const int size = component == 0 ? 8 : 16;
    const UINT16* steps = codec.comp_info[component].quant_table->quantval;
    for (int row = 0; row < (height + size - 1) / size; ++row) {
      JBLOCKARRAY blocks =
          (*codec.mem->access_virt_barray)(reinterpret_cast<j_common_ptr>(&codec), components[component],
                                           static_cast<JDIMENSION>(row), 1, FALSE);
      for (int column = 0; column < (width + size - 1) / size; ++column) {
        double samples[64];
        for (int i = 0; i < 64; ++i)
          samples[i] = Sample(frame, width, component, 8 * column + i % 8, 8 * row + i / 8);
        for (int i = 0; i < 64; ++i) {
          const double exact = Coefficient(samples, i) / steps[i];
          const double error = exact - blocks[0][column][i];
          rounding.worst = std::max(rounding.worst, std::abs(error));
          rounding.squares += std::pow(error * steps[i], 2);
          rounding.least += std::pow((exact - std::round(exact)) * steps[i], 2);
        }
      }
    }
  }
  jpeg_destroy_decompress(&codec);
  const double samplesInAll = 1.5 * width * height;
  rounding.squares /= samplesInAll;
  rounding.least /= samplesInAll;
  return rounding;
}
