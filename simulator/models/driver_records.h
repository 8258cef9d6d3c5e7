// The records that the phone's drivers take and deliver, laid out as on the phone. Every caller has them so:
// none has a field of 8 bytes or a pointer, on whose place x86-64, i386 and the ARM EABI would differ.
// driver_records.cpp checks it with all three compilers, so this file includes nothing of the project.
#pragma once

#include <cstdint>

namespace simulator {

// The driver's record (linux/rtc.h, struct rtc_time).
struct RtcRecord {
  int32_t second, minute, hour;
  int32_t day;    // of the month, from 1
  int32_t month;  // from 0
  int32_t year;   // since 1900
  int32_t weekday, day_of_year, daylight_saving;
};

// As the driver delivers it: readings of the panel's converter.
struct TouchReading {
  uint32_t x, y;
  uint32_t pen;  // 0 up, 1 down
};

// The kernel's struct input_event on a 32-bit machine.
struct InputEvent {
  uint32_t seconds, microseconds;
  uint16_t type, code;
  uint32_t value;
};

// The modem driver's.
struct ControlRecord {
  uint32_t code;
  uint8_t data[12];
};

// linux/videodev.h of kernel 2.4.
struct AudioRecord {
  int32_t audio;
  uint16_t volume, bass, treble;
  uint32_t flags;
  char name[16];
  uint16_t mode, balance, step;
};
struct TunerRecord {
  int32_t tuner;
  char name[32];
  uint32_t range_low, range_high;
  uint32_t flags;
  uint16_t mode, signal;
};

// struct v4l2_format of the early interface. Of its fields a caller sets width to pixel_format and
// image_size; the others are the driver's and must come back as they were read.
struct CaptureFormat {
  uint32_t type = 1;  // video capture
  uint32_t width = 640;
  uint32_t height = 480;
  uint32_t depth = 16;                 // bits a pixel
  uint32_t pixel_format = 0x50424752;  // "RGBP", RGB565
  uint32_t flags = 0x00050001;
  uint32_t bytes_per_line = 4096;  // of the sensor's own line memory, whatever the frame's width
  uint32_t image_size = 640 * 480 * 2;
  uint32_t priv = 0x534E5352;
  uint8_t rest[168] = {};
  bool operator==(const CaptureFormat&) const = default;
};

// One of the capture device's controls.
struct CaptureControl {
  uint32_t id;
  int32_t value;
};

}  // namespace simulator
