#include "simulator/models/radio.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "simulator/models/driver_records.h"
#include "simulator/phone/device_model.h"

namespace simulator {
namespace {

constexpr uint32_t SET_FREQUENCY = 0x4004760F;
constexpr uint32_t GET_FREQUENCY = 0x8004760E;
constexpr uint32_t SET_AUDIO = 0x40287611;
constexpr uint32_t GET_TUNER = 0xC0347604;
constexpr uint32_t SET_EXTRA = 0xC0087301;

constexpr uint32_t AUDIO_MUTE = 1;
constexpr uint16_t SOUND_STEREO = 2;
constexpr uint32_t TUNER_STEREO_ON = 128;
constexpr uint16_t VIDEO_MODE_AUTO = 3;

constexpr uint32_t BAND_LOW = 1400;  // 87.5 MHz
constexpr uint32_t BAND_HIGH = 1728;
constexpr uint32_t STATION_WIDTH = 4;  // to either side, 250 kHz

// "98.5". A frequency in the driver's own unit is above every one in MHz, and is taken as well.
int64_t FrequencyWord(const std::string& word) {
  constexpr double HIGHEST_MEGAHERTZ = 200;
  double number = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  if (error != std::errc{} || end != word.data() + word.size())
    throw std::invalid_argument(fmt::format("'{}' is no frequency in MHz.", word));
  return number < HIGHEST_MEGAHERTZ ? std::lround(number * 16) : std::lround(std::min(number, 1e6));
}

uint16_t SignalOf(const Radio::Station& station, uint32_t frequency) {
  const auto distance = static_cast<uint32_t>(
      std::abs(static_cast<int32_t>(frequency) - static_cast<int32_t>(station.frequency)));
  if (distance >= STATION_WIDTH) return 0;
  return static_cast<uint16_t>(station.strength * (STATION_WIDTH - distance) / STATION_WIDTH);
}

}  // namespace

Radio::Radio(PhoneServices& phone) : DeviceModel(phone) {
  state.stations = {{1416, 31000, true}, {1464, 58000, true},  {1512, 12000, false}, {1576, 46000, true},
                    {1624, 65535, true}, {1672, 22000, false}, {1712, 39000, false}};
}

std::vector<std::string> Radio::Paths() const {
  return {"/dev/v4l/radio0"};
}

OpenAnswer Radio::Open(const OpenCall& call) {
  return OpenAnswer::Descriptor(device_.Open(call));
}

uint16_t Radio::Signal() const {
  uint16_t signal = state.noise;
  for (const Station& station : state.stations) {
    signal = std::max(signal, SignalOf(station, state.frequency));
  }
  return signal;
}

bool Radio::HearsStereo() const {
  constexpr uint16_t STEREO_THRESHOLD = 20000;
  return state.stereo && std::ranges::any_of(state.stations, [this](const Station& station) {
           return station.stereo && SignalOf(station, state.frequency) >= STEREO_THRESHOLD;
         });
}

RequestAnswer Radio::Request(DriverRequest& request) {
  switch (request.number) {
    case SET_FREQUENCY:
      return SetFrequency(request);
    case SET_AUDIO:
      return SetAudio(request);
    case SET_EXTRA:
      return SetExtra(request);
    case GET_FREQUENCY:
      return Deliver(request, state.frequency);
    case GET_TUNER:
      return GetTuner(request);
    default:
      return RequestAnswer::Refusal(EINVAL);
  }
}

template <typename Record>
RequestAnswer Radio::Deliver(DriverRequest& request, const Record& record) {
  if (state.writes_nothing || request.WriteRecord(record)) return RequestAnswer::Success();
  return RequestAnswer::Refusal(EFAULT);
}

RequestAnswer Radio::SetFrequency(DriverRequest& request) {
  const auto frequency = request.ReadRecord<uint32_t>();
  if (!frequency) return RequestAnswer::Refusal(EFAULT);
  if (*frequency < BAND_LOW || *frequency > BAND_HIGH) return RequestAnswer::Refusal(EINVAL);
  state.frequency = *frequency;
  return RequestAnswer::Success();
}

RequestAnswer Radio::SetAudio(DriverRequest& request) {
  const auto audio = request.ReadRecord<AudioRecord>();
  if (!audio) return RequestAnswer::Refusal(EFAULT);
  // A caller leaves the other fields zero.
  AudioRecord clean = {};
  clean.volume = audio->volume;
  clean.flags = audio->flags & AUDIO_MUTE;
  clean.mode = audio->mode;
  if (memcmp(&clean, &*audio, sizeof clean) != 0) return RequestAnswer::Refusal(EINVAL);
  state.volume = audio->volume;
  state.muted = (audio->flags & AUDIO_MUTE) != 0;
  state.stereo = audio->mode == SOUND_STEREO;
  return RequestAnswer::Success();
}

RequestAnswer Radio::SetExtra(DriverRequest& request) {
  return request.Read(state.extra, sizeof state.extra) ? RequestAnswer::Success()
                                                       : RequestAnswer::Refusal(EFAULT);
}

RequestAnswer Radio::GetTuner(DriverRequest& request) {
  const auto asked = request.ReadRecord<TunerRecord>();
  if (!asked) return RequestAnswer::Refusal(EFAULT);
  const TunerRecord first = {};
  if (memcmp(&first, &*asked, sizeof first) != 0) return RequestAnswer::Refusal(EINVAL);
  TunerRecord tuner = {0, "FM", BAND_LOW, BAND_HIGH, 0, VIDEO_MODE_AUTO, Signal()};
  if (HearsStereo()) tuner.flags = TUNER_STEREO_ON;
  return Deliver(request, tuner);
}

std::vector<ModelCommand> Radio::Commands() {
  return {{"radio",
           "[station FREQUENCY SIGNAL | silence]",
           "tells what the radio receives, adds a mono station (MHz, signal to 65535), or takes all away",
           [this](const std::vector<std::string>& words) { return Command(words); },
           {},
           {{"silence"}}}};
}

std::string Radio::Command(const std::vector<std::string>& words) {
  if (words.size() == 3 && words[0] == "station") {
    const int64_t frequency = FrequencyWord(words[1]);
    const int64_t signal = NumberWord(words[2]);
    if (frequency < BAND_LOW || frequency > BAND_HIGH || signal < 0 || signal > UINT16_MAX) {
      throw std::invalid_argument(
          fmt::format("A station has a frequency of {} to {} MHz and a signal of 0 to 65535.",
                      Megahertz(BAND_LOW), Megahertz(BAND_HIGH)));
    }
    state.stations.push_back({static_cast<uint32_t>(frequency), static_cast<uint16_t>(signal), false});
  } else if (words.size() == 1 && words[0] == "silence") {
    state.stations.clear();
  } else if (!words.empty()) {
    throw std::invalid_argument("radio takes station FREQUENCY SIGNAL, silence or nothing.");
  }
  std::string text =
      fmt::format("tuned to {} MHz, signal {}, volume {}{}{}\n", Megahertz(state.frequency), Signal(),
                  state.volume, state.muted ? ", muted" : "", HearsStereo() ? ", stereo" : "");
  for (const Station& station : state.stations) {
    text += fmt::format("station {} MHz signal {}{}\n", Megahertz(station.frequency), station.strength,
                        station.stereo ? " stereo" : "");
  }
  return text;
}

}  // namespace simulator
