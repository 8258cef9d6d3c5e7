// The picture encoders' common face: finds the plug-in and checks what every encoder would have to check.
#include "server/imaging/image_encoder.h"

int32_t MImgEncoder_Create(MPlugInMgr* manager, const MImgEncoderParameters* parameters, int32_t form,
                           uint32_t encoderId, MImgEncoder** encoder) {
  if (parameters == nullptr || encoder == nullptr) return MIMG_INVALID_PARAMETER;
  *encoder = nullptr;
  if (form != MIMG_ENCODER_FORM) return MIMG_UNSUPPORTED;

  void* object = nullptr;
  int32_t result = MPlugInMgr_Create(manager, encoderId, MPLUGIN_CLASS_ENCODER, parameters, &object);
  if (result != MIMG_OK) return result;
  *encoder = static_cast<MImgEncoder*>(object);
  return MIMG_OK;
}

int32_t MImgEncoder_Encode(MImgEncoder* encoder, const uint16_t* const* pixels, const int32_t* bytesPerRow,
                           const int32_t* rows) {
  if (encoder == nullptr || pixels == nullptr || bytesPerRow == nullptr || rows == nullptr) {
    return MIMG_INVALID_PARAMETER;
  }
  if (*pixels == nullptr || *bytesPerRow / 2 < encoder->width || *rows != encoder->height) {
    return MIMG_INVALID_PARAMETER;
  }
  return encoder->encode(encoder, reinterpret_cast<const uint8_t*>(*pixels), *bytesPerRow);
}

void MImgEncoder_Destroy(MImgEncoder* encoder) {
  if (encoder == nullptr) return;
  encoder->destroy(encoder);
}
