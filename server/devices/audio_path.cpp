#include "server/devices/audio_path.h"

#include "protocol/result_codes.h"
#include "server/base/device.h"
#include "server/devices/audio_gpio.h"
#include "server/devices/sound_driver.h"

// The tone thread calls these two while a command may start the media player, which must not inherit the
// devices: hence close-on-exec.

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

// What the three kinds of path differ in.
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
