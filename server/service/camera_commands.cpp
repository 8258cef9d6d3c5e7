#include "server/service/camera_commands.h"

#include <cstdlib>

#include "protocol/result_codes.h"
#include "server/camera/capture.h"

constexpr int32_t MAX_WIDTH = 1200;
constexpr int32_t MAX_HEIGHT = 1600;

int32_t QueryCamera(const Ignored&, Bytes<128>&) {
  return CameraQuery();
}

int32_t ReadPictureChunk(const Words<1>& request, PictureChunk& chunk) {
  return ReadTestImageChunk(request.word[0], chunk.byte);
}

// The limits are upper ones: an extent of 0 goes on to the camera, and a negative one is no size of a buffer.
static int32_t AllocateFrame(int32_t width, int32_t height, void** buffer) {
  if (width > MAX_WIDTH || height > MAX_HEIGHT) return OUT_OF_RANGE;
  if (width < 0 || height < 0) return OUT_OF_MEMORY;
  const size_t size = static_cast<size_t>(width) * static_cast<size_t>(height) * 2;
  *buffer = malloc(size > 0 ? size : 1);
  return *buffer != nullptr ? SUCCESS : OUT_OF_MEMORY;
}

int32_t CameraCommand() {
  CameraRequest request;
  const int32_t received = ChannelReceive(&request, sizeof request, REQUEST_TIMEOUT_MS);
  if (received < 0) return received;
  const auto [subcommand, width, height, rotation] = request.word;
  void* buffer = nullptr;
  int32_t status = NeedsFrameBuffer(subcommand) ? AllocateFrame(width, height, &buffer) : SUCCESS;
  if (status == SUCCESS) status = CameraTest(subcommand, width, height, rotation, buffer);
  const int32_t sent = SendAnswer(&status, sizeof status);
  free(buffer);
  return sent;
}
