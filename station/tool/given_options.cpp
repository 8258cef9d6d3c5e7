#include "station/tool/given_options.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <charconv>

namespace station {

std::string OnlyText(ToolCommand::Given& given, const std::string& name, const std::string& fallback) {
  return given[name].empty() ? fallback : given[name].front();
}

std::map<std::string, std::string> ParseAssignments(const std::string& option,
                                                    const std::vector<std::string>& assignments) {
  std::map<std::string, std::string> values;
  for (const std::string& assignment : assignments) {
    const std::size_t equals = assignment.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw UsageError(fmt::format("{}: '{}' is not NAME=VALUE", option, assignment));
    }
    values[assignment.substr(0, equals)] = assignment.substr(equals + 1);
  }
  return values;
}

std::size_t GivenCount(ToolCommand::Given& given, const std::string& name, std::size_t least,
                       std::size_t most) {
  if (given[name].empty()) return least;
  const std::string& text = given[name].front();
  std::size_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error == std::errc{} && end == text.data() + text.size() && count >= least && count <= most)
    return count;
  throw UsageError(fmt::format("--{}: '{}' is not a whole number from {} to {}", name, text, least, most));
}

std::string StationName(const Configuration& configuration) {
  const std::string configured = configuration.Text("station");
  if (!configured.empty()) return configured;
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

}  // namespace station
