// The sound path: the sound driver (OSS with private controls of the phone's codec), the two audio lines of
// the GPIO driver, and the codec's routes, gains and volume.
#pragma once

#include <cstdint>

constexpr char PCM_DEVICE[] = "/dev/sound/dsp";
constexpr char MIXER_DEVICE[] = "/dev/sound/mixer";

// Standard requests (sys/soundcard.h), each with an int.
constexpr unsigned long PCM_SET_SPEED = 0xC0045002;     // SNDCTL_DSP_SPEED
constexpr unsigned long PCM_SET_FORMAT = 0xC0045005;    // SNDCTL_DSP_SETFMT
constexpr unsigned long PCM_SET_CHANNELS = 0xC0045006;  // SNDCTL_DSP_CHANNELS
constexpr unsigned long MIXER_WRITE_PCM = 0xC0044D04;   // SOUND_MIXER_WRITE_PCM

// Private controls. Both devices take them. The numbers carry neither direction nor size, the argument is an
// address, and only the driver knows what they do in the codec.
constexpr unsigned long SOUND_SWITCH_OFF = 0x2242;  // byte: 0 on, 1 off
constexpr unsigned long SOUND_MODE = 0x2244;        // int
constexpr unsigned long SOUND_LEVEL = 0x2245;       // int
constexpr unsigned long SOUND_ROUTE = 0x2246;       // SoundRoute
constexpr unsigned long SOUND_GAIN = 0x2248;        // SoundGain
constexpr unsigned long SOUND_OUTPUT = 0x2252;      // int
constexpr unsigned long SOUND_SELECT_PCM = 0x2271;  // int
constexpr unsigned long SOUND_SOURCE = 0x2280;      // int

struct SoundRoute {
  uint8_t selector;
  uint8_t route;
  uint8_t third;
  uint8_t fixed;  // 5 in every use
};
static_assert(sizeof(SoundRoute) == 4);

struct SoundGain {
  uint8_t selector;
  uint8_t value;
};
static_assert(sizeof(SoundGain) == 2);

// Issue a request with its argument and return the driver's result.
int SetSoundInt(int device, unsigned long request, int32_t value);
int SetSoundByte(int device, unsigned long request, uint8_t value);
int SetSoundRoute(int device, SoundRoute route);
int SetSoundGain(int device, SoundGain gain);

// Switch an audio line of the GPIO driver. They return 0, even if the driver is missing.
int32_t AudioGpioLineAOn();
int32_t AudioGpioLineAOff();
int32_t AudioGpioLineBOn();
int32_t AudioGpioLineBOff();

// The low byte of -1: what the next two return if the driver cannot be opened.
constexpr int32_t SOUND_NOT_OPENED = 255;

// Modes that `AudioSetDspRoute` and the path set-up write.
constexpr int32_t SOUND_MODE_15 = 15;
constexpr int32_t SOUND_MODE_48 = 48;
constexpr int32_t SOUND_MODE_768 = 768;

// Routes the PCM device for a mode. Returns the low byte of the mode request's result, or for mode 4, which
// issues none, of the PCM selection's. So 255 means a failed request as well as a device that cannot be
// opened.
int32_t AudioSetDspRoute(int32_t mode);

// Sets the mixer's PCM volume. Returns 0, or 255 if the mixer cannot be opened.
int32_t AudioSetPcmVolume(int32_t volume);

// Sets the codec up for a path (1, 2, 3 or any other), or switches it off (`enable` 0). Returns 0 whatever
// the requests did, or -9989 without switching a line if the mixer cannot be opened.
int32_t AudioPathSetup(int32_t enable, int32_t path);
