#include "server/devices/tone.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>

#include "protocol/result_codes.h"
#include "server/base/device.h"
#include "server/base/shared_word.h"
#include "server/base/wait.h"
#include "server/devices/audio.h"
#include "server/devices/tone_samples.h"

// The commands and the thread share these words without a lock. While the thread runs, the commands change
// only the stop request.
struct ToneSettings {
  SharedWord stop_request;
  SharedWord running;
  SharedWord frequencies[TONE_COUNT];
  SharedWord volume;
  SharedWord route_flags;
};
static ToneSettings Tone;

// Used only by the commands: the thread that a stop waits for.
static pthread_t ToneThread;
static bool ToneThreadPresent = false;

static void RouteTone() {
  constexpr int32_t FIRST_ROUTE = 1;
  constexpr int32_t SECOND_ROUTE = 2;
  const int32_t flags = ReadWord(Tone.route_flags);
  if ((flags & FIRST_ROUTE) != 0 || (flags & SECOND_ROUTE) == 0) {
    AudioSetDspRoute(SOUND_MODE_768);
    return;
  }
  AudioSetDspRoute(SOUND_MODE_48);
  AudioGpioLineAOn();
}

// Opens the PCM device and sets the tone's format. Returns the descriptor, negative on failure.
static int OpenPcm() {
  // The thread outlives the command that started it. Close-on-exec keeps a media player from inheriting the
  // device.
  const int pcm = open(PCM_DEVICE, O_WRONLY | O_CLOEXEC);
  if (pcm < 0) return pcm;
  constexpr int32_t FORMAT_S16_LE = 16;
  if (SetSoundInt(pcm, PCM_SET_CHANNELS, 2) < 0 || SetSoundInt(pcm, PCM_SET_SPEED, TONE_SAMPLE_RATE) < 0 ||
      SetSoundInt(pcm, PCM_SET_FORMAT, FORMAT_S16_LE) < 0) {
    close(pcm);
    return -1;
  }
  return pcm;
}

// Waits a second, or until the stop request.
static void PauseUntilStopped() {
  constexpr uint32_t STEP_MS = 50;
  for (uint32_t waited = 0; waited < 1000 && ReadWord(Tone.stop_request) == 0; waited += STEP_MS)
    Pause(STEP_MS);
}

// Writes a second of sound, which takes a second. A driver that fails at once must not keep the processor
// busy, so the rest of the second is then a pause.
static void PlayBuffer(int pcm, const ToneFrame* frames) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(frames);
  for (size_t left = TONE_BUFFER_FRAMES * sizeof(ToneFrame); left > 0;) {
    const ssize_t written = write(pcm, bytes, left);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return PauseUntilStopped();
    bytes += written;
    left -= static_cast<size_t>(written);
  }
}

static void PlayUntilStopped(int pcm) {
  // Not on the thread's stack, which may be smaller. There is never more than one tone thread.
  static ToneFrame buffer[TONE_BUFFER_FRAMES];
  uint32_t phase = 0;
  while (ReadWord(Tone.stop_request) == 0) {
    phase = FillToneBuffer(buffer, TONE_BUFFER_FRAMES, Tone.frequencies, phase);
    PlayBuffer(pcm, buffer);
  }
}

// The first step that fails ends the thread silently, and the running flag stays set until a stop: the host
// has its answer by then, and must stop the tone in any case.
static void* PlayTone(void*) {
  AudioSetPcmVolume(ReadWord(Tone.volume));
  RouteTone();
  const int pcm = OpenPcm();
  if (pcm < 0) return nullptr;
  const int32_t selected = WithDevice(MIXER_DEVICE, O_WRONLY | O_CLOEXEC, OPEN_FAILED, [](int mixer) {
    SetSoundInt(mixer, SOUND_SOURCE, 1);
    return SUCCESS;
  });
  if (selected == OPEN_FAILED) return nullptr;  // leaks the PCM device on purpose, see docs/on-purpose.md
  PlayUntilStopped(pcm);
  close(pcm);
  AudioGpioLineAOff();
  return nullptr;
}

static int32_t StartTone() {
  WriteWord(Tone.stop_request, 0);
  // If the thread cannot be created, the running flag stays set on purpose: the host must send a stop before
  // the next start, as after every start.
  if (pthread_create(&ToneThread, nullptr, PlayTone, nullptr) != 0) return GENERAL_FAILURE;
  ToneThreadPresent = true;
  return SUCCESS;
}

static int32_t StopTone() {
  if (ReadWord(Tone.running) == 0) return GENERAL_FAILURE;
  WriteWord(Tone.running, 0);
  WriteWord(Tone.stop_request, 1);
  if (ToneThreadPresent) pthread_join(ToneThread, nullptr);
  ToneThreadPresent = false;
  return SUCCESS;
}

int32_t ToneControl(int32_t f1, int32_t f2, int32_t f3, int32_t volume, int32_t route_flags, int32_t start) {
  if (start == 0) return StopTone();
  if (ReadWord(Tone.running) != 0) return GENERAL_FAILURE;
  WriteWord(Tone.running, 1);
  WriteWord(Tone.frequencies[0], f1);
  WriteWord(Tone.frequencies[1], f2);
  WriteWord(Tone.frequencies[2], f3);
  WriteWord(Tone.volume, volume);
  WriteWord(Tone.route_flags, route_flags);
  return StartTone();
}
