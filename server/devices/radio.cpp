#include "server/devices/radio.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>

#include "protocol/result_codes.h"
#include "server/base/device.h"
#include "server/devices/audio.h"

// Records and requests of Video4Linux 1 (linux/videodev.h) as a 32-bit kernel lays them out.
struct RadioAudio {
  int32_t audio;
  uint16_t volume, bass, treble;
  uint32_t flags;
  char name[16];
  uint16_t mode, balance, step;
};
static_assert(sizeof(RadioAudio) == 40 && offsetof(RadioAudio, flags) == 12 &&
              offsetof(RadioAudio, mode) == 32);

struct RadioTuner {
  int32_t tuner;
  char name[32];
  uint32_t range_low, range_high;
  uint32_t flags;
  uint16_t mode, signal;
};
static_assert(sizeof(RadioTuner) == 52 && offsetof(RadioTuner, range_low) == 36 &&
              offsetof(RadioTuner, signal) == 50);

constexpr unsigned long RADIO_SET_FREQUENCY = 0x4004760F;  // VIDIOCSFREQ
constexpr unsigned long RADIO_GET_FREQUENCY = 0x8004760E;  // VIDIOCGFREQ
constexpr unsigned long RADIO_SET_AUDIO = 0x40287611;      // VIDIOCSAUDIO
constexpr unsigned long RADIO_GET_TUNER = 0xC0347604;      // VIDIOCGTUNER
constexpr unsigned long RADIO_EXTRA = 0xC0087301;          // the driver's own: two ints

constexpr uint32_t AUDIO_MUTE = 1;
constexpr uint16_t SOUND_STEREO = 2;

static int32_t RadioFd = -1;

static void CloseRadio() {
  close(RadioFd);
  RadioFd = -1;
}

static void SwitchOff() {
  AudioGpioLineBOff();
  CloseRadio();
}

static bool SetFrequency(uint32_t frequency) {
  // Twice in a row, on purpose: the tuner needs the second request.
  return IssueRequest(RadioFd, RADIO_SET_FREQUENCY, &frequency) >= 0 &&
         IssueRequest(RadioFd, RADIO_SET_FREQUENCY, &frequency) >= 0;
}

static bool SetAudio(uint16_t volume) {
  RadioAudio audio = {};
  audio.volume = volume;
  audio.flags = volume == 0 ? AUDIO_MUTE : 0;
  audio.mode = SOUND_STEREO;
  return IssueRequest(RadioFd, RADIO_SET_AUDIO, &audio) >= 0;
}

static bool RequestExtra(int32_t extra_flag) {
  int32_t pair[2] = {extra_flag == 0 ? 1 : 0, 1};
  return IssueRequest(RadioFd, RADIO_EXTRA, pair) >= 0;
}

static bool GetFrequency(uint32_t* frequency_out) {
  uint32_t frequency = 0;
  if (IssueRequest(RadioFd, RADIO_GET_FREQUENCY, &frequency) < 0) return false;
  *frequency_out = frequency;
  return true;
}

static bool GetSignal(uint32_t* signal_out) {
  RadioTuner tuner = {};
  if (IssueRequest(RadioFd, RADIO_GET_TUNER, &tuner) < 0) return false;
  *signal_out = tuner.signal;
  return true;
}

int32_t FmRadio(int32_t mode, uint32_t frequency, uint16_t volume, int32_t extra_enable, int32_t extra_flag,
                uint32_t* frequency_out, uint32_t* signal_out) {
  *frequency_out = 0;
  *signal_out = 0;
  if (mode == RADIO_OFF) {
    SwitchOff();
    return SUCCESS;
  }
  if (RadioFd != -1) CloseRadio();
  if (mode == RADIO_PLAY_LINE_B) AudioGpioLineBOn();
  // The radio stays open while it plays. Close-on-exec keeps it from the programs that the server starts.
  RadioFd = open("/dev/v4l/radio0", O_RDWR | O_CLOEXEC);
  if (RadioFd < 0) {
    AudioGpioLineBOff();
    return OPEN_FAILED;
  }

  int32_t result = SUCCESS;
  if (!SetFrequency(frequency)) {
    result = REQUEST_FAILED;
  } else if (!SetAudio(volume)) {
    result = SECOND_REQUEST_FAILED;
  } else if (mode == RADIO_MEASURE && extra_enable != 0 && !RequestExtra(extra_flag)) {
    result = THIRD_REQUEST_FAILED;
  } else if (!GetFrequency(frequency_out)) {
    result = FOURTH_REQUEST_FAILED;
  } else if (!GetSignal(signal_out)) {
    result = FIFTH_REQUEST_FAILED;
  }
  if (result != SUCCESS || mode == RADIO_MEASURE) SwitchOff();
  return result;
}
