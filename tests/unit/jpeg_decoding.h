// Pictures read back by libjpeg-turbo, and their coefficients compared with the exact ones.
#pragma once

#include <cstdint>
#include <cstdio>
#include <vector>

#include <jpeglib.h>

// Error handling that ends the program with the library's message.
jpeg_error_mgr* Strict(jpeg_error_mgr* errors);

// Reads the picture up to its first pixels. An error ends the program in the same way.
void StartReading(const std::vector<uint8_t>& picture, jpeg_decompress_struct* codec, jpeg_error_mgr* errors);

struct Rgb {
  int red, green, blue;
};

// Of an RGB565 pixel, with 8 bits a colour.
Rgb Widen(uint16_t pixel);

struct Rounding {
  double worst = 0;               // distance from the exact coefficient, in steps
  double squares = 0, least = 0;  // of the errors, and of those that are unavoidable
};

// Compares every coefficient of the blocks that show any of the frame with the exact one.
Rounding CompareCoefficients(const std::vector<uint8_t>& picture, const std::vector<uint16_t>& frame,
                             int width, int height);
