// Compiled for each processor that a server is built for: the simulator and the unit tests have it.
#include "driver_records.h"

#include <cstddef>

namespace simulator {

// A record of this size that no compiler aligns differently.
template <typename Record, size_t size>
constexpr bool IS_LAID_OUT = sizeof(Record) == size && alignof(Record) <= 4;

static_assert(IS_LAID_OUT<RtcRecord, 36> && offsetof(RtcRecord, day) == 12 &&
              offsetof(RtcRecord, daylight_saving) == 32);
static_assert(IS_LAID_OUT<TouchReading, 12> && offsetof(TouchReading, pen) == 8);
static_assert(IS_LAID_OUT<InputEvent, 16> && offsetof(InputEvent, type) == 8 &&
              offsetof(InputEvent, value) == 12);
static_assert(IS_LAID_OUT<ControlRecord, 16> && offsetof(ControlRecord, data) == 4);
static_assert(IS_LAID_OUT<AudioRecord, 40> && offsetof(AudioRecord, flags) == 12 &&
              offsetof(AudioRecord, mode) == 32);
static_assert(IS_LAID_OUT<TunerRecord, 52> && offsetof(TunerRecord, range_low) == 36 &&
              offsetof(TunerRecord, mode) == 48);
static_assert(IS_LAID_OUT<CaptureFormat, 204> && offsetof(CaptureFormat, image_size) == 28 &&
              offsetof(CaptureFormat, rest) == 36);
static_assert(IS_LAID_OUT<CaptureControl, 8> && offsetof(CaptureControl, value) == 4);

}  // namespace simulator
