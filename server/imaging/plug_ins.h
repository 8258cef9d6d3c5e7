// What the library's plug-ins are made of: the memory layer, and the record that an encoder's factory makes.
#pragma once

#include <cstddef>

#include "server/imaging/imaging.h"

// What the library allocates comes from a manager's memory context. Returns null if memory runs out. The
// memory is not zeroed.
void* MMemAlloc(MMemContext* memory, size_t size);
void MMemFree(MMemContext* memory, void* block);

// A picture encoder. The encoder's own record starts with this one.
struct MImgEncoder {
  int32_t (*encode)(MImgEncoder* encoder, const uint8_t* pixels, int32_t bytesPerRow);
  void (*destroy)(MImgEncoder* encoder);
  int32_t width;
  int32_t height;
};
