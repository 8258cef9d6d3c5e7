// The sound driver: OSS's devices and standard requests, and the driver's private controls, which carry
// neither direction nor size and take the address of their argument. What a control does in the codec is the
// driver's.
#pragma once

#include <cstdint>

constexpr char PCM_DEVICE[] = "/dev/sound/dsp";
constexpr char MIXER_DEVICE[] = "/dev/sound/mixer";

// Standard requests (sys/soundcard.h), each with an int.
constexpr unsigned long PCM_SET_SPEED = 0xC0045002;     // SNDCTL_DSP_SPEED
constexpr unsigned long PCM_SET_FORMAT = 0xC0045005;    // SNDCTL_DSP_SETFMT
constexpr unsigned long PCM_SET_CHANNELS = 0xC0045006;  // SNDCTL_DSP_CHANNELS
constexpr unsigned long MIXER_WRITE_PCM = 0xC0044D04;   // SOUND_MIXER_WRITE_PCM

// Private controls; both devices take them.
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

// Issues a control or standard request that takes an int, or a byte; gives what the driver gave.
int SetSoundInt(int device, unsigned long request, int32_t value);
int SetSoundByte(int device, unsigned long request, uint8_t value);
int SetSoundRoute(int device, SoundRoute route);
int SetSoundGain(int device, SoundGain gain);
