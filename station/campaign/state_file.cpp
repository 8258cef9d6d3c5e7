#include "station/campaign/state_file.h"

#include <fmt/format.h>

#include "station/commands/errors.h"

namespace station {

namespace {

using nlohmann::ordered_json;

Trial TrialFrom(const ordered_json& read) {
  Trial trial{.fault = read.at("fault"), .noticed = read.at("noticed")};
  trial.seconds = read.at("seconds");
  for (const auto& step : read.at("steps")) {
    trial.steps.push_back({step.at("name"), step.at("verdict"), step.at("message")});
  }
  return trial;
}

}  // namespace

ordered_json TrialJson(const Trial& trial) {
  ordered_json steps = ordered_json::array();
  for (const TroubledStep& step : trial.steps) {
    steps.push_back({{"name", step.name}, {"verdict", step.verdict}, {"message", step.message}});
  }
  return {{"fault", trial.fault}, {"noticed", trial.noticed}, {"steps", steps}, {"seconds", trial.seconds}};
}

StateFile::StateFile(const std::string& path, const std::string& plan_sha256, bool resume) : path_(path) {
  std::ifstream old(path);
  std::string line;
  const bool goes_on = resume && std::getline(old, line);
  if (goes_on) {
    const auto header = ordered_json::parse(line, nullptr, false);
    if (!header.is_object() || header.value("plan-sha256", "") != plan_sha256) {
      throw UsageError(
          fmt::format("{} is of another plan, or of another version of it: leave out --resume", path));
    }
    while (std::getline(old, line)) {
      const auto read = ordered_json::parse(line, nullptr, false);
      if (read.is_object()) made_.push_back(TrialFrom(read));
    }
  }
  file_.open(path, goes_on ? std::ios::app : std::ios::trunc);
  // The last line may have been cut off when the campaign ended.
  file_ << (goes_on ? "" : ordered_json{{"plan-sha256", plan_sha256}}.dump()) << '\n';
  if (!file_.flush()) throw OutputLost(fmt::format("cannot write {}", path));
}

void StateFile::Add(const Trial& trial) {
  file_ << TrialJson(trial).dump(-1, ' ', false, ordered_json::error_handler_t::replace) << '\n';
  if (!file_.flush()) throw OutputLost(fmt::format("cannot write {}", path_));
}

}  // namespace station
