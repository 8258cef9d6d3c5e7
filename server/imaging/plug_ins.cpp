// The memory layer, the registry of plug-ins, the face that all encoders share, and the decoders that this
// build lacks.
#include "server/imaging/plug_ins.h"

#include <cstdlib>

void* MMemAlloc(MMemContext* /*memory: the plain heap*/, size_t size) {
  return malloc(size);
}

void MMemFree(MMemContext* /*memory: the plain heap*/, void* block) {
  free(block);
}

// The registry: a short list, searched by id and class.

namespace {

constexpr uint32_t REGISTRY_SIZE = 8;  // the camera registers three

struct PlugIn {
  uint32_t id;
  uint32_t plugInClass;
  uint32_t a;
  uint32_t b;
  MPlugInFactory factory;
};

}  // namespace

struct MPlugInMgr {
  MMemContext* memory;
  uint32_t count;
  PlugIn plugIns[REGISTRY_SIZE];
};

namespace {

PlugIn* FindPlugIn(MPlugInMgr* manager, uint32_t id, uint32_t plugInClass) {
  for (uint32_t i = 0; i < manager->count; ++i) {
    PlugIn* plugIn = &manager->plugIns[i];
    if (plugIn->id == id && plugIn->plugInClass == plugInClass) return plugIn;
  }
  return nullptr;
}

}  // namespace

int32_t MPlugInMgr_Init(MMemContext* memory, MPlugInMgr** manager) {
  if (manager == nullptr) return MIMG_INVALID_PARAMETER;
  *manager = nullptr;
  void* block = MMemAlloc(memory, sizeof(MPlugInMgr));
  if (block == nullptr) return MIMG_OUT_OF_MEMORY;

  MPlugInMgr* made = static_cast<MPlugInMgr*>(block);
  made->memory = memory;
  made->count = 0;
  *manager = made;
  return MIMG_OK;
}

int32_t MPlugInMgr_SetProp(MPlugInMgr* manager, uint32_t id, MMemContext* value, uint32_t size) {
  if (manager == nullptr) return MIMG_INVALID_PARAMETER;
  if (id != MPLUGINMGR_PROP_MEMORY_CONTEXT) return MIMG_UNSUPPORTED;
  if (size != sizeof(uint32_t)) return MIMG_INVALID_PARAMETER;
  if (value != MMEM_PLAIN_HEAP) return MIMG_UNSUPPORTED;
  manager->memory = value;
  return MIMG_OK;
}

int32_t MPlugInMgr_Register(MPlugInMgr* manager, uint32_t id, uint32_t plugInClass, uint32_t a, uint32_t b,
                            MPlugInFactory factory) {
  if (manager == nullptr || factory == nullptr) return MIMG_INVALID_PARAMETER;
  PlugIn* plugIn = FindPlugIn(manager, id, plugInClass);
  if (plugIn == nullptr) {
    if (manager->count == REGISTRY_SIZE) return MIMG_OUT_OF_MEMORY;
    plugIn = &manager->plugIns[manager->count++];
  }
  *plugIn = {id, plugInClass, a, b, factory};
  return MIMG_OK;
}

int32_t MPlugInMgr_Create(MPlugInMgr* manager, uint32_t id, uint32_t plugInClass, const void* parameters,
                          void** object) {
  if (manager == nullptr || object == nullptr) return MIMG_INVALID_PARAMETER;
  const PlugIn* plugIn = FindPlugIn(manager, id, plugInClass);
  if (plugIn == nullptr) return MIMG_UNSUPPORTED;
  return plugIn->factory(manager->memory, parameters, object);
}

void MPlugInMgr_Uninit(MPlugInMgr* manager) {
  if (manager == nullptr) return;
  MMemFree(manager->memory, manager);
}

// The encoders' face: finds the plug-in and checks what every encoder would have to check.

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

int32_t MScaledJpegDecoder_Create(MMemContext* /*memory*/, const void* /*parameters*/, void** /*decoder*/) {
  return MIMG_UNSUPPORTED;
}

int32_t MJpegDecoder_Create(MMemContext* /*memory*/, const void* /*parameters*/, void** /*decoder*/) {
  return MIMG_UNSUPPORTED;
}
