#include "server/imaging/stream.h"

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>

#include "server/imaging/plug_ins.h"

struct MStream {
  int descriptor;
};

MStream* MStreamOpenFromFileS(const char* path, int32_t mode) {
  if (path == nullptr || mode != MSTREAM_WRITE) return nullptr;
  void* block = MMemAlloc(MMEM_PLAIN_HEAP, sizeof(MStream));
  if (block == nullptr) return nullptr;

  MStream* stream = static_cast<MStream*>(block);
  stream->descriptor = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (stream->descriptor < 0) {
    MMemFree(MMEM_PLAIN_HEAP, stream);
    return nullptr;
  }
  return stream;
}

int32_t MStreamWrite(MStream* stream, const uint8_t* bytes, size_t size) {
  while (size > 0) {
    ssize_t written = write(stream->descriptor, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return MIMG_WRITE_FAILED;
    bytes += written;
    size -= static_cast<size_t>(written);
  }
  return MIMG_OK;
}

int32_t MStreamFlush(MStream* stream) {
  int flushed;
  do {
    flushed = fsync(stream->descriptor);
  } while (flushed < 0 && errno == EINTR);
  if (flushed == 0) return MIMG_OK;
  // A pipe or a character device has nothing to flush and refuses.
  return errno == EINVAL || errno == EROFS ? MIMG_OK : MIMG_WRITE_FAILED;
}

int32_t MStreamClose(MStream* stream) {
  if (stream == nullptr) return MIMG_OK;
  int closed = close(stream->descriptor);
  MMemFree(MMEM_PLAIN_HEAP, stream);
  return closed == 0 ? MIMG_OK : MIMG_WRITE_FAILED;
}
