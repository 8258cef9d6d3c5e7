// What an encoder plug-in's factory makes: a picture encoder behind two functions. The encoder's own record
// starts with this one.
#pragma once

#include "server/imaging/imaging.h"

struct MImgEncoder {
  int32_t (*encode)(MImgEncoder* encoder, const uint8_t* pixels, int32_t bytesPerRow);
  void (*destroy)(MImgEncoder* encoder);
  int32_t width;
  int32_t height;
};
