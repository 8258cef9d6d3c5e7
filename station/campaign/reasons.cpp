#include "station/campaign/reasons.h"

#include <fmt/format.h>

#include <filesystem>

#include "station/commands/errors.h"
#include "station/tasks/operation.h"

namespace station {

std::string ReasonsBeside(const std::string& plan_file) {
  return std::filesystem::path(plan_file).replace_extension(".unseen");
}

Reasons ReadReasons(const std::string& path, bool must_exist) {
  constexpr std::size_t LARGEST = 1 << 20;
  if (!must_exist && !std::filesystem::exists(path)) return {};
  const auto read = nlohmann::ordered_json::parse(ReadFile(path, LARGEST), nullptr, false, true);
  if (!read.is_object()) throw UsageError(fmt::format("{} is not a JSON object of reasons", path));
  Reasons reasons;
  for (const auto& [pattern, reason] : read.items()) {
    if (!reason.is_string())
      throw UsageError(fmt::format("{}: the reason for \"{}\" is not a text", path, pattern));
    reasons.emplace_back(pattern, reason.get<std::string>());
  }
  return reasons;
}

}  // namespace station
