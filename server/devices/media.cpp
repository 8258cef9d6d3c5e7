#include "server/devices/media.h"

#include "protocol/result_codes.h"
#include "server/base/device.h"
#include "server/base/shell.h"
#include "server/base/wait.h"
#include "server/devices/audio.h"

struct Clip {
  int32_t number;
  const char* file;  // as the shell takes it
  const char* end;   // both forms are kept: scripts on the phone find the player by its command line
};

constexpr Clip CLIPS[] = {
    {CLIP_MP3, "/root/dmode/QeluAudioTest3.mp3", " &"},
    {CLIP_AAC, "/root/dmode/1500Hz\\ AAC\\ 48kHz.3gp", " &"},
    {CLIP_AMR, "/root/dmode/1500Hz\\ AMR.3gp", "&"},
    {CLIP_PRELOADED, "/usr/share/usr_data/Preload/HelloQelu.mp3", "&"},
};

static const Clip* FindClip(int32_t number) {
  for (const Clip& clip : CLIPS) {
    if (clip.number == number) return &clip;
  }
  return nullptr;
}

static int32_t StopPlaying() {
  AudioGpioLineBOff();
  WithDevice(MIXER_DEVICE, O_RDWR, OPEN_FAILED, [](int mixer) {
    SetSoundByte(mixer, SOUND_SWITCH_OFF, 1);
    SetSoundInt(mixer, SOUND_OUTPUT, 0);
    return SUCCESS;
  });
  RunShell("killall -9 wavplayer.elf");
  return SUCCESS;
}

static int32_t RouteAmr(int32_t path) {
  return WithDevice(MIXER_DEVICE, O_RDWR, OPEN_FAILED, [&](int mixer) {
    constexpr int32_t AMR_SOURCE = 0x404;
    if (SetSoundInt(mixer, SOUND_SELECT_PCM, 0) < 0) return REQUEST_FAILED;
    if (SetSoundInt(mixer, SOUND_SOURCE, AMR_SOURCE) < 0) return SECOND_REQUEST_FAILED;
    if (SetSoundInt(mixer, SOUND_OUTPUT, path == 1 ? 0 : path == 2 ? 3 : 2) < 0) return THIRD_REQUEST_FAILED;
    if (SetSoundByte(mixer, SOUND_SWITCH_OFF, 0) < 0) return FOURTH_REQUEST_FAILED;
    return SUCCESS;
  });
}

int32_t MediaPlay(int32_t clip_number, int32_t path, int32_t argument) {
  if (clip_number == CLIP_STOP) return StopPlaying();
  const Clip* clip = FindClip(clip_number);
  if (clip == nullptr) return NOT_SUPPORTED;
  if (path == 2) AudioGpioLineBOn();
  RunShell("/root/wavplayer.elf %s %d %d%s", clip->file, static_cast<int>(path), static_cast<int>(argument),
           clip->end);
  if (clip_number != CLIP_AMR) return SUCCESS;
  SleepSeconds(2);
  return RouteAmr(path);
}
