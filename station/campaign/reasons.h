// Why faults go unnoticed that no station could notice: a file beside the plan.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace station {

// Patterns of faults' names, and the reason for each.
using Reasons = std::vector<std::pair<std::string, std::string>>;

// Reads a JSON object (with comments) of reasons by pattern. No path, or no file at `path` unless it
// `must_exist`: no reasons. Throws UsageError.
Reasons ReadReasons(const std::string& path, bool must_exist);

// "plans/factory.unseen" for "plans/factory.json".
std::string ReasonsBeside(const std::string& plan_file);

}  // namespace station
