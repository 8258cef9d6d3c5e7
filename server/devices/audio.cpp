#include "server/devices/audio.h"

#include "protocol/result_codes.h"
#include "server/base/device.h"

int SetSoundInt(int device, unsigned long request, int32_t value) {
  return IssueRequest(device, request, &value);
}

int SetSoundByte(int device, unsigned long request, uint8_t value) {
  return IssueRequest(device, request, &value);
}

int SetSoundRoute(int device, SoundRoute route) {
  return IssueRequest(device, SOUND_ROUTE, &route);
}

int SetSoundGain(int device, SoundGain gain) {
  return IssueRequest(device, SOUND_GAIN, &gain);
}

constexpr unsigned long GPIO_AUDIO_LINE_A_ON = 0x40044F28;
constexpr unsigned long GPIO_AUDIO_LINE_A_OFF = 0x40044F29;
constexpr unsigned long GPIO_AUDIO_LINE_B_ON = 0x40044F32;
constexpr unsigned long GPIO_AUDIO_LINE_B_OFF = 0x40044F33;

static int32_t SwitchLine(unsigned long request) {
  IssueGpioRequest(request);
  return SUCCESS;
}

int32_t AudioGpioLineAOn() {
  return SwitchLine(GPIO_AUDIO_LINE_A_ON);
}

int32_t AudioGpioLineAOff() {
  return SwitchLine(GPIO_AUDIO_LINE_A_OFF);
}

int32_t AudioGpioLineBOn() {
  return SwitchLine(GPIO_AUDIO_LINE_B_ON);
}

int32_t AudioGpioLineBOff() {
  return SwitchLine(GPIO_AUDIO_LINE_B_OFF);
}

// The tone thread calls the next two while a command may start the media player. Close-on-exec keeps the
// player from inheriting the devices.

int32_t AudioSetDspRoute(int32_t mode) {
  constexpr int32_t MODE_UNCHANGED = 4;
  return WithDevice(PCM_DEVICE, O_WRONLY | O_CLOEXEC, SOUND_NOT_OPENED, [&](int pcm) {
    int result = SetSoundInt(pcm, SOUND_SELECT_PCM, 1);
    const uint8_t route = mode == SOUND_MODE_15 ? 2 : mode == SOUND_MODE_768 ? 3 : 0;
    SetSoundRoute(pcm, {0, route, 0, 5});
    if (mode != MODE_UNCHANGED) result = SetSoundInt(pcm, SOUND_MODE, mode);
    return result & 0xFF;
  });
}

int32_t AudioSetPcmVolume(int32_t volume) {
  return WithDevice(MIXER_DEVICE, O_RDWR | O_CLOEXEC, SOUND_NOT_OPENED, [&](int mixer) {
    SetSoundInt(mixer, MIXER_WRITE_PCM, volume);
    return SUCCESS;
  });
}

// The values in which the three kinds of path differ.
struct PathSettings {
  uint8_t route;
  int32_t mode;
  int32_t level;
  uint8_t first_gain;
  uint8_t second_gain;
};
constexpr PathSettings PATH_1 = {3, SOUND_MODE_768, 200, 14, 9};
constexpr PathSettings PATH_2 = {2, SOUND_MODE_15, 225, 23, 11};
constexpr PathSettings OTHER_PATH = {0, SOUND_MODE_48, 80, 16, 6};

static void SwitchPathOn(int mixer, int32_t path) {
  const PathSettings& settings = path == 1 ? PATH_1 : path == 2 ? PATH_2 : OTHER_PATH;
  SetSoundInt(mixer, SOUND_OUTPUT, 0);
  SetSoundByte(mixer, SOUND_SWITCH_OFF, 0);
  SetSoundRoute(mixer, {0, settings.route, 0, 5});
  SetSoundRoute(mixer, {3, settings.route, 0, 5});
  SetSoundInt(mixer, SOUND_MODE, settings.mode);
  SetSoundInt(mixer, SOUND_LEVEL, settings.level);
  SetSoundInt(mixer, SOUND_SOURCE, 0);
  SetSoundGain(mixer, {1, settings.first_gain});
  SetSoundGain(mixer, {0, settings.second_gain});
  if (path == 2) AudioGpioLineBOn();
  if (path == 3) AudioGpioLineAOn();
}

static void SwitchAudioOff(int mixer) {
  AudioGpioLineBOff();
  AudioGpioLineAOff();
  SetSoundRoute(mixer, {1, 3, 30, 5});
  SetSoundInt(mixer, SOUND_LEVEL, 0);
  SetSoundByte(mixer, SOUND_SWITCH_OFF, 1);
}

// The requests' results are not checked: the station listens to the path, and hears one that failed.
int32_t AudioPathSetup(int32_t enable, int32_t path) {
  return WithDevice(MIXER_DEVICE, O_WRONLY, OPEN_FAILED, [&](int mixer) {
    if (enable != 0) {
      SwitchPathOn(mixer, path);
    } else {
      SwitchAudioOff(mixer);
    }
    return SUCCESS;
  });
}
