#include "devices/display.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/result_codes.h"

uint16_t* MapFrame(int framebuffer) {
  void* frame = mmap(nullptr, FRAME_BYTES, PROT_READ | PROT_WRITE, MAP_SHARED, framebuffer, 0);
  return frame == MAP_FAILED ? nullptr : static_cast<uint16_t*>(frame);
}

void UnmapFrame(uint16_t* frame) {
  munmap(frame, FRAME_BYTES);
}

static uint16_t* Row(uint16_t* frame, int32_t row) {
  return frame + row * DISPLAY_WIDTH;
}

// Makes every row a copy of the first.
static void RepeatFirstRow(uint16_t* frame) {
  for (int32_t row = 1; row < DISPLAY_HEIGHT; ++row) memcpy(Row(frame, row), frame, DISPLAY_WIDTH * 2);
}

static void DrawHorizontalStripes(uint16_t* frame) {
  constexpr int32_t BAND_ROWS = 16;
  for (int32_t row = 0; row < DISPLAY_HEIGHT; ++row) {
    std::fill_n(Row(frame, row), DISPLAY_WIDTH, row / BAND_ROWS % 2 == 0 ? BLACK : WHITE);
  }
}

static void DrawVerticalStripes(uint16_t* frame) {
  constexpr int32_t BAND_COLUMNS = 12;
  for (int32_t x = 0; x < DISPLAY_WIDTH; ++x) frame[x] = x / BAND_COLUMNS % 2 == 0 ? BLACK : WHITE;
  RepeatFirstRow(frame);
}

static void DrawColourBars(uint16_t* frame) {
  constexpr int32_t BAR_COLUMNS = DISPLAY_WIDTH / 3;
  std::fill_n(frame, BAR_COLUMNS, RED);
  std::fill_n(frame + BAR_COLUMNS, BAR_COLUMNS, GREEN);
  std::fill_n(frame + 2 * BAR_COLUMNS, BAR_COLUMNS, BLUE);
  RepeatFirstRow(frame);
}

static void DrawSolid(uint16_t* frame, uint16_t fill, uint16_t border) {
  std::fill_n(frame, DISPLAY_WIDTH, fill);
  RepeatFirstRow(frame);
  std::fill_n(frame, DISPLAY_WIDTH, border);
  std::fill_n(Row(frame, DISPLAY_HEIGHT - 1), DISPLAY_WIDTH, border);
  for (int32_t row = 0; row < DISPLAY_HEIGHT; ++row) {
    Row(frame, row)[0] = border;
    Row(frame, row)[DISPLAY_WIDTH - 1] = border;
  }
}

static void DrawTest(uint16_t* frame, int32_t fill, int32_t border) {
  switch (fill) {
    case PATTERN_HORIZONTAL_STRIPES:
      if (border == fill) DrawHorizontalStripes(frame);
      break;
    case PATTERN_VERTICAL_STRIPES:
      if (border == fill) DrawVerticalStripes(frame);
      break;
    case PATTERN_COLOUR_BARS:
      if (border == fill) DrawColourBars(frame);
      break;
    default:
      DrawSolid(frame, static_cast<uint16_t>(fill), static_cast<uint16_t>(border));
  }
}

// Not truncated on opening: it is a /proc file, and each write is one value.
static void SetBacklight(int32_t level) {
  const int control = open("/proc/backlight/lcd", O_WRONLY);
  if (control < 0) return;
  char text[12];
  const int length = snprintf(text, sizeof text, "%d", static_cast<int>(level));
  [[maybe_unused]] const ssize_t written = write(control, text, static_cast<size_t>(length));
  close(control);
}

int32_t DisplayTest(int32_t fill, int32_t border, int32_t backlight) {
  const int framebuffer = open(FRAMEBUFFER, O_RDWR);
  if (framebuffer < 0) return GENERAL_FAILURE;
  uint16_t* frame = MapFrame(framebuffer);
  if (frame == nullptr) return OUT_OF_MEMORY;  // the framebuffer stays open, on purpose
  DrawTest(frame, fill, border);
  UnmapFrame(frame);
  close(framebuffer);
  SetBacklight(backlight);
  return SUCCESS;
}
