#include "server/camera/test_pictures.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "protocol/result_codes.h"
#include "server/base/shell.h"
#include "server/camera/capture.h"
#include "server/camera/frame_pixels.h"
#include "server/imaging/imaging.h"

constexpr char BLEMISH_PICTURE[] = "/usr/share/usr_data/Photos/BlemishTest.jpg";
constexpr char FOCUS_PICTURE[] = "/usr/share/usr_data/Photos/FocusTest.jpg";

struct Frame {
  uint16_t* pixels;
  uint32_t width, height;
};

static int32_t DeletePicture(const char* path) {
  RunShell("rm -f %s", path);
  RunShell("sync");
  return SUCCESS;
}

static void RegisterPlugIns(MPlugInMgr* manager) {
  MPlugInMgr_SetProp(manager, MPLUGINMGR_PROP_MEMORY_CONTEXT, MMEM_PLAIN_HEAP, 4);
  MPlugInMgr_Register(manager, MPLUGIN_ID_SCALED_JPEG_DECODER, MPLUGIN_CLASS_DECODER, 2, 4,
                      MScaledJpegDecoder_Create);
  MPlugInMgr_Register(manager, MPLUGIN_ID_JPEG_DECODER, MPLUGIN_CLASS_DECODER, 2, 3, MJpegDecoder_Create);
  MPlugInMgr_Register(manager, MPLUGIN_ID_JPEG_ENCODER, MPLUGIN_CLASS_ENCODER, 2, 3, MJpegEncoder_Create);
}

// Captures a frame and turns it. The frame's width and height are then those of the turned one.
static int32_t CaptureTurned(int32_t rotation, Frame* frame) {
  if (!IsRotation(rotation)) return CameraCapture(frame->width, frame->height, frame->pixels);
  const size_t size = static_cast<size_t>(frame->width) * frame->height * 2;
  auto* scratch = static_cast<uint16_t*>(malloc(size > 0 ? size : 1));
  if (scratch == nullptr) return OUT_OF_MEMORY;
  const int32_t result = CameraCapture(frame->width, frame->height, scratch);
  if (result != SUCCESS) {
    free(scratch);
    return result;
  }
  RotateFrame(scratch, frame->width, frame->height, rotation, frame->pixels);
  if (rotation != 180) std::swap(frame->width, frame->height);
  return SUCCESS;  // leaks the scratch buffer on purpose, see docs/on-purpose.md
}

static int32_t EncodeToStream(MPlugInMgr* manager, MStream* stream, const Frame& frame) {
  const auto width = static_cast<int32_t>(frame.width);
  const auto height = static_cast<int32_t>(frame.height);
  const MImgEncoderParameters parameters = {
      stream, width, height, MIMG_COLOUR_RGB565, {MIMG_ENCODER_RESERVED, MIMG_ENCODER_RESERVED}};
  MImgEncoder* encoder = nullptr;
  if (MImgEncoder_Create(manager, &parameters, MIMG_ENCODER_FORM, MPLUGIN_ID_JPEG_ENCODER, &encoder) !=
      MIMG_OK) {
    return ENCODER_NOT_CREATED;
  }
  const uint16_t* pixels = frame.pixels;
  const int32_t bytes_per_row = width * 2;
  const int32_t encoded = MImgEncoder_Encode(encoder, &pixels, &bytes_per_row, &height);
  MImgEncoder_Destroy(encoder);
  return encoded == MIMG_OK ? SUCCESS : ENCODING_FAILED;
}

// The capture comes before the file is opened, so that a failed capture leaves the old picture.
static int32_t CaptureToFile(MPlugInMgr* manager, const char* path, int32_t rotation, Frame frame) {
  int32_t result = CaptureTurned(rotation, &frame);
  if (result != SUCCESS) return result;
  MStream* stream = MStreamOpenFromFileS(path, MSTREAM_WRITE);
  if (stream == nullptr) return PICTURE_NOT_OPENED;
  result = EncodeToStream(manager, stream, frame);
  MStreamClose(stream);
  return result;
}

static int32_t CapturePicture(const char* path, int32_t rotation, const Frame& frame) {
  MPlugInMgr* manager = nullptr;
  if (MPlugInMgr_Init(MMEM_PLAIN_HEAP, &manager) != MIMG_OK) return IMAGING_NOT_SET_UP;
  RegisterPlugIns(manager);
  const int32_t result = CaptureToFile(manager, path, rotation, frame);
  MPlugInMgr_Uninit(manager);
  return result;
}

bool NeedsFrameBuffer(int32_t subcommand) {
  return subcommand == CAPTURE_BLEMISH || subcommand == CAPTURE_FOCUS;
}

int32_t CameraTest(int32_t subcommand, int32_t width, int32_t height, int32_t rotation, void* buffer) {
  const Frame frame = {static_cast<uint16_t*>(buffer), static_cast<uint32_t>(width),
                       static_cast<uint32_t>(height)};
  switch (subcommand) {
    case CAMERA_SELF_TEST:
      return CameraSelfTest();
    case CAPTURE_BLEMISH:
      return CapturePicture(BLEMISH_PICTURE, rotation, frame);
    case DELETE_BLEMISH:
      return DeletePicture(BLEMISH_PICTURE);
    case CAPTURE_FOCUS:
      return CapturePicture(FOCUS_PICTURE, rotation, frame);
    case DELETE_FOCUS:
      return DeletePicture(FOCUS_PICTURE);
    default:
      return NOT_SUPPORTED;
  }
}

// The picture that is being read out. One descriptor serves both pictures, on purpose: hosts read one picture
// to its end, or stop, before they ask for the other.
static int32_t PictureReader = -1;

static void ClosePictureReader() {
  close(PictureReader);
  PictureReader = -1;
}

static int32_t ReadChunk(const char* path, void* out) {
  if (PictureReader < 0) PictureReader = open(path, O_RDONLY | O_CLOEXEC);
  if (PictureReader < 0) return OPEN_FAILED;
  const auto received = static_cast<int32_t>(read(PictureReader, out, PICTURE_CHUNK_SIZE));
  if (received < static_cast<int32_t>(PICTURE_CHUNK_SIZE)) ClosePictureReader();
  return received < 0 ? SHORT_READ : received;
}

int32_t ReadTestImageChunk(int32_t subcommand, void* out) {
  switch (subcommand) {
    case READ_BLEMISH:
      return ReadChunk(BLEMISH_PICTURE, out);
    case READ_FOCUS:
      return ReadChunk(FOCUS_PICTURE, out);
    case STOP_READING_BLEMISH:
    case STOP_READING_FOCUS:
      ClosePictureReader();
      return SUCCESS;
    default:
      if (PictureReader >= 0) ClosePictureReader();
      return NOT_SUPPORTED;
  }
}
