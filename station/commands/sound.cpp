// Tones, sound paths, media clips, the FM radio and the run-in cycle.
#include "protocol/result_codes.h"
#include "station/commands/rows.h"

namespace station {

namespace {

using Kind = AnswerField::Kind;

Command ToneControl() {
  return {
      .code = 0x29,
      .name = "tone",
      .action =
          "Starts or stops the tone generator: up to three summed sine tones on both channels. A stop waits "
          "for "
          "the second of sound that is being written.",
      .request =
          {Number("frequency", "first tone, Hz (0 for none); below 87 Hz it is silent"),
           Number("frequency-2", "second tone, Hz").OptionalPositional("0"),
           Number("frequency-3", "third tone, Hz").OptionalPositional("0"), Ignored(4),
           Number("volume", "PCM volume of the mixer").Optional("40"),
           Number("route", "route flags: 1 or 0 to the speaker's route, 2 to audio line A").Optional("1"),
           Number("start", "1 starts, 0 stops")},
      .answer = {Status()},
      .answer_time = std::chrono::milliseconds{8'000},
      .statuses = {{GENERAL_FAILURE, "start: a tone is being played already; stop: none is being played"}},
      .verbs = {{"tone start", "play up to three tones until they are stopped", {{"start", "1"}}},
                {"tone stop",
                 "stop the tones",
                 {{"start", "0"},
                  {"frequency", "0"},
                  {"frequency-2", "0"},
                  {"frequency-3", "0"},
                  {"volume", "0"},
                  {"route", "0"}}}},
  };
}

Command RadioControl() {
  const std::string play_help = "play the radio until it is switched off";
  return {
      .code = 0x2C,
      .name = "FM radio",
      .action =
          "Tunes the FM radio, sets its volume, reads frequency and signal back, and leaves it playing or "
          "switches it off again.",
      .request = {Number("mode", "0 off, 1 measure and switch off, 2 play on audio line B, other: play"),
                  Number("frequency", "frequency in the tuner's unit, usually 1/16 MHz or 1/16 kHz"),
                  Number("volume", "16-bit volume; 0 mutes").Optional("32768"),
                  Number("extra", "1 issues the driver's private request before measuring").Optional("0"),
                  Number("extra-flag", "inverted into the private request's first word").Optional("0")},
      .answer = {Status(),
                 {Kind::Number, 4, "frequency", "the frequency read back"},
                 {Kind::Number, 4, "signal", "signal strength, 0 to 65535"}},
      .answer_time = std::chrono::milliseconds{8'000},
      .statuses = {{OPEN_FAILED, "the radio could not be opened"},
                   {REQUEST_FAILED, "the frequency could not be set"},
                   {SECOND_REQUEST_FAILED, "the volume could not be set"},
                   {THIRD_REQUEST_FAILED, "the private request failed"},
                   {FOURTH_REQUEST_FAILED, "the frequency could not be read back"},
                   {FIFTH_REQUEST_FAILED, "the signal strength could not be read"}},
      .verbs = {{"radio measure",
                 "measure the signal at a frequency, then switch the radio off",
                 {{"mode", "1"}}},
                {"radio play", play_help, {{"mode", "2"}, {"extra", "0"}, {"extra-flag", "0"}}},
                {"radio tune",
                 "tune the radio and leave it on without switching audio line B on",
                 {{"mode", "3"}, {"extra", "0"}, {"extra-flag", "0"}}},
                {"radio off",
                 "switch the radio off",
                 {{"mode", "0"}, {"frequency", "0"}, {"volume", "0"}, {"extra", "0"}, {"extra-flag", "0"}}}},
  };
}

Command MediaPlay() {
  return {
      .code = 0x40,
      .name = "play clip",
      .action =
          "Starts the phone's player on a prepared clip, in the background, or stops it. The AMR clip also "
          "sets "
          "the sound path up, two seconds later.",
      .request =
          {Number("clip", "which clip, or \"stop\"")
               .Choices({{"mp3", 10}, {"aac", 20}, {"amr", 21}, {"hello", 30}, {"stop", 0}}),
           Number("path", "sound path, passed to the player; 2 switches audio line B on").Optional("2"),
           Number("argument", "passed to the player").Optional("0")},
      .answer = {Status()},
      .answer_time = std::chrono::milliseconds{8'000},
      .statuses = {{NOT_SUPPORTED, "there is no such clip"},
                   {OPEN_FAILED, "the mixer could not be opened"},
                   {REQUEST_FAILED, "first mixer request of the AMR path failed"},
                   {SECOND_REQUEST_FAILED, "second mixer request of the AMR path failed"},
                   {THIRD_REQUEST_FAILED, "third mixer request of the AMR path failed"},
                   {FOURTH_REQUEST_FAILED, "fourth mixer request of the AMR path failed"}},
      .verbs = {{"play", "play a media clip on the phone, or stop it"}},
  };
}

}  // namespace

std::vector<Command> SoundRows() {
  return {
      ToneControl(),
      {
          .code = 0x2A,
          .name = "audio path",
          .action = "Sets the codec's routes and gains for a sound path, or switches the sound off.",
          .request = {Number("enable", "1 sets the path up, 0 switches the sound off"),
                      Number("path", "sound path: 1, 2 (audio line B) or 3 (audio line A)")},
          .answer = {Status()},
          .answer_time = PROMPT,
          .statuses = {{OPEN_FAILED, "the mixer could not be opened"}},
          .verbs = {{"audio-path on", "set a sound path up", {{"enable", "1"}}},
                    {"audio-path off", "switch the sound off", {{"enable", "0"}, {"path", "0"}}}},
      },
      RadioControl(),
      {
          .code = 0x38,
          .name = "run-in",
          .action = "Answers, then exercises display, tones, motor and LED in an endless cycle. No further "
                    "command is "
                    "served until the phone is restarted.",
          .request = {Number("seconds", "length of each part of the cycle"), Ignored(20)},
          .answer = {Status()},
          .answer_time = PROMPT,
          .statuses = {},
          .verbs = {{"run-in",
                     "start the endless run-in cycle; the phone takes no command until it is restarted"}},
      },
      MediaPlay(),
  };
}

}  // namespace station
