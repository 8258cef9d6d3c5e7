#include "server/imaging/memory.h"

#include <cstdlib>

void* MMemAlloc(MMemContext* /*memory: the plain heap*/, size_t size) {
  return malloc(size);
}

void MMemFree(MMemContext* /*memory: the plain heap*/, void* block) {
  free(block);
}
