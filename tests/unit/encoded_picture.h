// Encodes frames through the imaging library's operations, as the camera does, and returns the file's bytes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "server/imaging/imaging.h"

// The objects that a picture needs, with the three plug-ins registered. The encoder is made on request.
struct PictureObjects {
  explicit PictureObjects(const std::string& path);
  ~PictureObjects();
  PictureObjects(const PictureObjects&) = delete;
  PictureObjects& operator=(const PictureObjects&) = delete;

  int32_t CreateEncoder(int32_t width, int32_t height);

  MPlugInMgr* manager = nullptr;
  MStream* stream = nullptr;
  MImgEncoder* encoder = nullptr;
};

// One whole picture; the first result that is not 0.
int32_t EncodeToFile(const uint16_t* pixels, int32_t bytesPerRow, int32_t width, int32_t height,
                     const std::string& path);

// Empty if it fails.
std::vector<uint8_t> Encode(const uint16_t* pixels, int32_t bytesPerRow, int32_t width, int32_t height);
std::vector<uint8_t> Encode(const std::vector<uint16_t>& frame, int32_t width, int32_t height);
