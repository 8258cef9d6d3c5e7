// A scan over a radio band.
#include <fmt/format.h>

#include <algorithm>

#include "station/commands/errors.h"
#include "station/tasks/tasks.h"
#include "station/tool/progress.h"

namespace station {

namespace {

struct Station {
  std::uint32_t frequency;
  std::uint32_t signal;
};

std::string Chart(const std::vector<Station>& stations) {
  constexpr std::uint32_t WIDTH = 50;
  constexpr std::uint32_t STRONGEST = 65535;
  std::string chart;
  for (const Station& station : stations) {
    const std::uint32_t bar = std::min(station.signal, STRONGEST) * WIDTH / STRONGEST;
    chart += fmt::format("\n{:>8} |{:#<{}}{:<{}}| {:>5}", station.frequency, "", bar, "", WIDTH - bar,
                         station.signal);
  }
  return chart;
}

Outcome ScanRadio(Session& session, const Values& values) {
  constexpr std::int64_t MOST_STEPS = 10'000;
  const std::int64_t from = values.Number("from");
  const std::int64_t to = values.Number("to");
  const std::int64_t step = values.Number("step");
  if (from < 0 || to < from || step < 1 || (to - from) / step >= MOST_STEPS) {
    throw UsageError("a scan goes from a frequency up to a higher one, in at most 10000 steps");
  }
  Progress progress(session.Options().progress);
  std::vector<Station> stations;
  for (std::int64_t frequency = from; frequency <= to; frequency += step) {
    Outcome outcome =
        RunCommand(session, GetCommand(protocol::CONTROL_RADIO),
                   {{"mode", RADIO_MEASURE}, {"frequency", frequency}, {"volume", values.Number("volume")}});
    if (!outcome.failure.empty()) {
      outcome.failure += fmt::format(" (at frequency {})", frequency);
      return outcome;
    }
    const Bytes& answer = session.Exchanges().back().received;
    stations.push_back({WordAt(answer, 4), WordAt(answer, 8)});
    progress.ShowBar("scan", static_cast<std::size_t>(frequency - from), static_cast<std::size_t>(to - from));
  }
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const Station& station : stations) {
    list.push_back({{"frequency", station.frequency}, {"signal", station.signal}});
  }
  const Station& best = *std::ranges::max_element(stations, {}, &Station::signal);
  Outcome outcome;
  outcome.readings = {{"scan", std::move(list), Chart(stations)},
                      {"strongest", best.frequency, std::to_string(best.frequency)},
                      {"signal", best.signal, std::to_string(best.signal)}};
  return outcome;
}

}  // namespace

std::vector<Operation> RadioTasks() {
  return {
      {
          .words = "radio scan",
          .help = "measure the signal over a band and draw it as a chart",
          // 87.5 to 108 MHz for a tuner that counts in 1/16 MHz.
          .arguments = {Number("from", "lowest frequency, in the tuner's unit").Optional("1400"),
                        Number("to", "highest frequency").Optional("1728"),
                        Number("step", "distance between two measurements").Optional("8"),
                        Number("volume", "16-bit volume; 0 is mute").Optional("0")},
          .run = ScanRadio,
          .codes = {protocol::CONTROL_RADIO},
      },
  };
}

}  // namespace station
