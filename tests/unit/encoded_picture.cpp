#include "tests/unit/encoded_picture.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

PictureObjects::PictureObjects(const std::string& path) {
  if (MPlugInMgr_Init(MMEM_PLAIN_HEAP, &manager) != MIMG_OK) return;
  MPlugInMgr_SetProp(manager, MPLUGINMGR_PROP_MEMORY_CONTEXT, MMEM_PLAIN_HEAP, 4);
  MPlugInMgr_Register(manager, 0x81001102, 0x01000000, 2, 4, MScaledJpegDecoder_Create);
  MPlugInMgr_Register(manager, 0x81001002, 0x01000000, 2, 3, MJpegDecoder_Create);
  MPlugInMgr_Register(manager, 0x81002002, 0x02000000, 2, 3, MJpegEncoder_Create);
  stream = MStreamOpenFromFileS(path.c_str(), 2);
}

PictureObjects::~PictureObjects() {
  MImgEncoder_Destroy(encoder);
  MStreamClose(stream);
  MPlugInMgr_Uninit(manager);
}

int32_t PictureObjects::CreateEncoder(int32_t width, int32_t height) {
  const MImgEncoderParameters parameters = {stream, width, height, 5, {3764, 3764}};
  return MImgEncoder_Create(manager, &parameters, 1, 0x81002002, &encoder);
}

int32_t EncodeToFile(const uint16_t* pixels, int32_t bytesPerRow, int32_t width, int32_t height,
                     const std::string& path) {
  PictureObjects objects(path);
  if (const int32_t result = objects.CreateEncoder(width, height); result != MIMG_OK) return result;
  return MImgEncoder_Encode(objects.encoder, &pixels, &bytesPerRow, &height);
}

std::vector<uint8_t> Encode(const uint16_t* pixels, int32_t bytesPerRow, int32_t width, int32_t height) {
  const auto path = std::filesystem::temp_directory_path() / ("picture." + std::to_string(getpid()) + ".jpg");
  std::vector<uint8_t> bytes;
  if (EncodeToFile(pixels, bytesPerRow, width, height, path) == MIMG_OK) {
    std::ifstream file(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(file), {});
  }
  std::filesystem::remove(path);
  return bytes;
}

std::vector<uint8_t> Encode(const std::vector<uint16_t>& frame, int32_t width, int32_t height) {
  return Encode(frame.data(), width * 2, width, height);
}
