#include "server/imaging/imaging.h"

int32_t MScaledJpegDecoder_Create(MMemContext* /*memory*/, const void* /*parameters*/, void** /*decoder*/) {
  return MIMG_UNSUPPORTED;
}

int32_t MJpegDecoder_Create(MMemContext* /*memory*/, const void* /*parameters*/, void** /*decoder*/) {
  return MIMG_UNSUPPORTED;
}
