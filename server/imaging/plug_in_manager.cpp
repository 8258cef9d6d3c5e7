// The registry of plug-ins: a short list, searched by id and class.
#include "server/imaging/memory.h"

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
