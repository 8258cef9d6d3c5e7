// Commands on tones, sound paths, media clips, the FM radio and the run-in cycle.
#pragma once

#include "protocol/statement.h"

namespace protocol {

struct ToneRequest {
  int32_t frequency, frequency_2, frequency_3;
  int32_t unused;
  int32_t volume;
  int32_t route;
  int32_t start;
  static constexpr Range HEARD = {0, 22050, "Hz"};
  static constexpr Field FIELDS[] = {
      Number("frequency", "first tone, 0 for none; below 87 Hz it is silent", HEARD),
      Number("frequency-2", "second tone", HEARD),
      Number("frequency-3", "third tone", HEARD),
      Unused(4),
      Number("volume", "PCM volume of the mixer: left in the low byte, right in the next, each up to 100",
             {0, 0x6464}),
      Number("route", "route flags: 1 or 0 to the speaker's route, 2 to audio line A", {0, 3}),
      Number("start", "1 starts, 0 stops", ZERO_OR_ONE)};
};
static_assert(FieldsFill<ToneRequest>(28));

constexpr uint32_t CONTROL_TONE = 0x29;
template <>
struct Statement<CONTROL_TONE> : Answered<ToneRequest> {
  static constexpr char name[] = "tone";
  static constexpr char action[] =
      "Starts or stops the tone generator: up to three summed sine tones on both channels. A stop waits for "
      "the "
      "second of sound that is being written.";
  static constexpr StatusMeaning statuses[] = {
      {GENERAL_FAILURE,
       "start: a tone is being played already, or no thread for it; stop: none is being played"}};
};

struct AudioPathRequest {
  int32_t enable;
  int32_t path;
  static constexpr Field FIELDS[] = {
      Number("enable", "1 sets the path up, 0 switches the sound off", ZERO_OR_ONE),
      Number("path", "sound path: 1, 2 (audio line B) or 3 (audio line A)", {1, 3})};
};
static_assert(FieldsFill<AudioPathRequest>(8));

constexpr uint32_t SET_AUDIO_PATH = 0x2A;
template <>
struct Statement<SET_AUDIO_PATH> : Answered<AudioPathRequest> {
  static constexpr char name[] = "audio path";
  static constexpr char action[] =
      "Sets the codec's routes and gains for a sound path, or switches the sound off.";
  static constexpr StatusMeaning statuses[] = {{OPEN_FAILED, "the mixer could not be opened"}};
};

struct RadioRequest {
  int32_t mode;
  uint32_t frequency;
  uint32_t volume;
  int32_t extra;
  int32_t extra_flag;
  // The band of FM broadcasts, for a tuner that counts in 1/16 MHz. Some tuners count in 1/16 kHz.
  static constexpr Range BAND = {65 * 16, 108 * 16, "MHz", 16, {"kHz", 1000}};
  static constexpr Field FIELDS[] = {
      Number("mode", "0 off, 1 measure and switch off, 2 play on audio line B, other: play"),
      Number("frequency", "what to tune to", BAND), Number("volume", "16-bit volume; 0 mutes", {0, 65535}),
      Number("extra", "1 issues the driver's private request before measuring", ZERO_OR_ONE),
      Number("extra-flag", "inverted into the private request's first word", ZERO_OR_ONE)};
};
static_assert(FieldsFill<RadioRequest>(20));

struct RadioData {
  uint32_t frequency;
  uint32_t signal;
  static constexpr Field FIELDS[] = {Number("frequency", "the frequency read back", RadioRequest::BAND),
                                     Number("signal", "signal strength", {0, 65535})};
};
static_assert(FieldsFill<RadioData>(8));

constexpr uint32_t CONTROL_RADIO = 0x2C;
template <>
struct Statement<CONTROL_RADIO> : Answered<RadioRequest, RadioData> {
  static constexpr char name[] = "FM radio";
  static constexpr char action[] =
      "Tunes the FM radio, sets its volume, reads frequency and signal back, and leaves it playing or "
      "switches it "
      "off again.";
  static constexpr StatusMeaning statuses[] = {
      {OPEN_FAILED, "the radio could not be opened"},
      {REQUEST_FAILED, "the frequency could not be set"},
      {SECOND_REQUEST_FAILED, "the volume could not be set"},
      {THIRD_REQUEST_FAILED, "the private request failed"},
      {FOURTH_REQUEST_FAILED, "the frequency could not be read back"},
      {FIFTH_REQUEST_FAILED, "the signal strength could not be read"}};
};

struct RunInRequest {
  int32_t seconds;
  int32_t unused[5];
  static constexpr Field FIELDS[] = {Number("seconds", "length of each part of the cycle", {1, 3600, "s"}),
                                     Unused(sizeof unused)};
};
static_assert(FieldsFill<RunInRequest>(24));

constexpr uint32_t RUN_IN = 0x38;
template <>
struct Statement<RUN_IN> : AnsweredFirst<RunInRequest> {
  static constexpr char name[] = "run-in";
  static constexpr char action[] =
      "Answers, then exercises display, tones, motor and LED in an endless cycle. No further command is "
      "served until "
      "the phone is restarted.";
};

struct MediaRequest {
  int32_t clip;
  int32_t path;
  int32_t argument;
  static constexpr Choice CLIPS[] = {{"mp3", CLIP_MP3},
                                     {"aac", CLIP_AAC},
                                     {"amr", CLIP_AMR},
                                     {"hello", CLIP_PRELOADED},
                                     {"stop", CLIP_STOP}};
  static constexpr Field FIELDS[] = {
      OnlyOneOf("clip", "which clip, or \"stop\"", CLIPS),
      Number("path", "sound path, passed to the player; 2 switches audio line B on", {0, 3}),
      Number("argument", "passed to the player")};
};
static_assert(FieldsFill<MediaRequest>(12));

constexpr uint32_t PLAY_MEDIA = 0x40;
template <>
struct Statement<PLAY_MEDIA> : Answered<MediaRequest> {
  static constexpr char name[] = "play clip";
  static constexpr char action[] =
      "Starts the phone's player on a prepared clip, in the background, or stops it. The AMR clip also sets "
      "the sound "
      "path up, two seconds later.";
  static constexpr StatusMeaning statuses[] = {
      {NOT_SUPPORTED, "there is no such clip"},
      {OPEN_FAILED, "the mixer could not be opened"},
      {REQUEST_FAILED, "first mixer request of the AMR path failed"},
      {SECOND_REQUEST_FAILED, "second mixer request of the AMR path failed"},
      {THIRD_REQUEST_FAILED, "third mixer request of the AMR path failed"},
      {FOURTH_REQUEST_FAILED, "fourth mixer request of the AMR path failed"}};
};

}  // namespace protocol
