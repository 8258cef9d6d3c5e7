#include "server/devices/touchscreen.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "protocol/result_codes.h"
#include "server/base/shared_word.h"
#include "server/base/shell.h"
#include "server/base/wait.h"
#include "server/devices/display.h"

constexpr char TOUCH_DEVICE[] = "/dev/touchscreen/tsc2046";

// The driver's record. Coordinates are the converter's 12 bits.
struct TouchRecord {
  uint32_t x;
  uint32_t y;
  uint32_t pen;  // 0 up
};
static_assert(sizeof(TouchRecord) == 12);

struct Range {
  int32_t first, last;  // both included
};

static bool Holds(const Range& range, int32_t value) {
  return range.first <= value && value <= range.last;
}

// A cross on the screen and the readings that count for it. The panel's X axis runs down the screen's rows
// and its Y axis across the columns, so X ranges go with cy and Y ranges with cx.
struct Cross {
  int32_t cx, cy;
  Range x, y;
};

constexpr Cross CROSSES[] = {
    {TOUCH_CROSSES[0].x, TOUCH_CROSSES[0].y, {280, 680}, {360, 760}},
    {TOUCH_CROSSES[1].x, TOUCH_CROSSES[1].y, {280, 680}, {3360, 3760}},
    {TOUCH_CROSSES[2].x, TOUCH_CROSSES[2].y, {3400, 3800}, {360, 760}},
    {TOUCH_CROSSES[3].x, TOUCH_CROSSES[3].y, {3400, 3800}, {3360, 3760}},
    {TOUCH_CROSSES[4].x, TOUCH_CROSSES[4].y, {1848, 2248}, {1848, 2248}},
};
constexpr int32_t CROSS_COUNT = 5;
static_assert(sizeof CROSSES / sizeof CROSSES[0] == CROSS_COUNT);
static_assert(sizeof TOUCH_CROSSES / sizeof TOUCH_CROSSES[0] == CROSS_COUNT);
constexpr int32_t ALL_CROSSES = (1 << CROSS_COUNT) - 1;

// The commands and the thread share these words without a lock.
static SharedWord TouchResult = ALL_CROSSES;
static SharedWord TouchStop = 0;
static SharedWord TouchRunning = 0;

// A new thread waits for this lock, which its starter holds until the run's words are set.
static pthread_mutex_t TouchStart = PTHREAD_MUTEX_INITIALIZER;

// Used only by the commands: the thread that a stop waits for.
static pthread_t TouchThread;
static bool TouchThreadPresent = false;

static void DrawCross(uint16_t* frame, const Cross& cross, uint16_t colour) {
  constexpr int32_t ARM = 8;
  DrawLine(frame, cross.cx - ARM, cross.cy, cross.cx + ARM, cross.cy, colour);
  DrawLine(frame, cross.cx, cross.cy - ARM, cross.cx, cross.cy + ARM, colour);
}

static void EraseTouchedCross(uint16_t* frame, const TouchRecord& record) {
  constexpr uint32_t READINGS = 4096;
  const auto x = static_cast<int32_t>(READINGS - record.x);
  const auto y = static_cast<int32_t>(READINGS - record.y);
  for (int32_t k = 0; k < CROSS_COUNT; ++k) {
    if (!Holds(CROSSES[k].x, x) || !Holds(CROSSES[k].y, y)) continue;
    WriteWord(TouchResult, ReadWord(TouchResult) & ~(1 << k));
    DrawCross(frame, CROSSES[k], WHITE);
    return;
  }
}

static void FollowTouches(uint16_t* frame, int panel) {
  while (ReadWord(TouchStop) == 0) {
    timeval left = {0, 500000};
    if (WaitReadable(panel, &left) <= 0) continue;
    TouchRecord record;
    const ssize_t size = read(panel, &record, sizeof record);
    if (size <= 0) PauseBeforeRetry();
    if (size == sizeof record && record.pen != 0) EraseTouchedCross(frame, record);
  }
}

static int32_t MapDisplay(uint16_t** frame) {
  const int framebuffer = open(FRAMEBUFFER, O_RDWR | O_CLOEXEC);
  if (framebuffer < 0) return OPEN_FAILED;
  *frame = MapFrame(framebuffer);
  close(framebuffer);
  return *frame == nullptr ? OUT_OF_MEMORY : SUCCESS;
}

// Runs the test on the mapped frame. Returns 0, or -9889 if the touch device cannot be opened.
static int32_t RunTest(uint16_t* frame) {
  for (const Cross& cross : CROSSES) DrawCross(frame, cross, BLACK);
  // The panel stays open across commands. Close-on-exec keeps it from the programs that the server starts.
  const int panel = open(TOUCH_DEVICE, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (panel < 0) return TOUCH_NOT_OPENED;
  FollowTouches(frame, panel);
  close(panel);
  DisplayTest(BLACK, BLACK, 0);
  return SUCCESS;
}

static void* TouchCalibThread(void*) {
  pthread_mutex_lock(&TouchStart);
  pthread_mutex_unlock(&TouchStart);
  DisplayTest(-1, -1, 100);
  uint16_t* frame = nullptr;
  int32_t result = MapDisplay(&frame);
  if (result == SUCCESS) {
    result = RunTest(frame);
    UnmapFrame(frame);
  }
  if (result != SUCCESS) WriteWord(TouchResult, result);
  return nullptr;
}

static int32_t StopTouchTest() {
  WriteWord(TouchStop, 1);
  WriteWord(TouchRunning, 0);
  if (TouchThreadPresent) pthread_join(TouchThread, nullptr);
  TouchThreadPresent = false;
  return SUCCESS;
}

static int32_t StartTouchTest() {
  WriteWord(TouchStop, 0);
  pthread_t thread;
  pthread_mutex_lock(&TouchStart);
  const bool started = pthread_create(&thread, nullptr, TouchCalibThread, nullptr) == 0;
  // Set before the thread runs: a host that asks right after the start must not see the result of the run
  // before. A failed start leaves the word to a thread that may still be running.
  if (started) WriteWord(TouchResult, ALL_CROSSES);
  pthread_mutex_unlock(&TouchStart);
  if (!started) return GENERAL_FAILURE;
  // If a thread still runs, its handle is lost on purpose: both threads share the words and end at one stop.
  TouchThread = thread;
  TouchThreadPresent = true;
  WriteWord(TouchRunning, 1);
  return SUCCESS;
}

int32_t TouchCalibControl(int32_t mode) {
  if (mode == TOUCH_STOP) return StopTouchTest();
  if (mode == TOUCH_READ_RESULT) return ReadWord(TouchResult);
  if (mode == TOUCH_RESTART && ReadWord(TouchRunning) != 0) {
    StopTouchTest();
    SleepSeconds(1);
  }
  return StartTouchTest();
}
