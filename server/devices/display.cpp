#include "server/devices/display.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

#include "protocol/result_codes.h"
#include "server/devices/drawing.h"

uint16_t* MapFrame(int framebuffer) {
  void* frame = mmap(nullptr, FRAME_BYTES, PROT_READ | PROT_WRITE, MAP_SHARED, framebuffer, 0);
  return frame == MAP_FAILED ? nullptr : static_cast<uint16_t*>(frame);
}

void UnmapFrame(uint16_t* frame) {
  munmap(frame, FRAME_BYTES);
}

// Opened without truncation: it is a /proc file, and each write is one value. Here and below, the touch
// thread is a caller too, while a command may start a program: hence close-on-exec.
static void SetBacklight(int32_t level) {
  const int control = open("/proc/backlight/lcd", O_WRONLY | O_CLOEXEC);
  if (control < 0) return;
  char text[12];
  const int length = snprintf(text, sizeof text, "%d", static_cast<int>(level));
  [[maybe_unused]] const ssize_t written = write(control, text, static_cast<size_t>(length));
  close(control);
}

int32_t DisplayTest(int32_t fill, int32_t border, int32_t backlight) {
  const int framebuffer = open(FRAMEBUFFER, O_RDWR | O_CLOEXEC);
  if (framebuffer < 0) return GENERAL_FAILURE;
  uint16_t* frame = MapFrame(framebuffer);
  if (frame == nullptr) return OUT_OF_MEMORY;  // leaks the framebuffer on purpose, see docs/on-purpose.md
  DrawTestPattern(frame, fill, border);
  UnmapFrame(frame);
  close(framebuffer);
  SetBacklight(backlight);
  return SUCCESS;
}
