#include "station/plan/plan_search.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "station/commands/errors.h"

namespace station {

namespace {

namespace fs = std::filesystem;

constexpr const char* EXTENSION = ".json";

// Seen from the program: an installation may move as a whole.
fs::path InstalledPlans() {
  std::error_code error;
  return (fs::read_symlink("/proc/self/exe", error).parent_path() / PLAN_FOLDER).lexically_normal();
}

}  // namespace

std::string FindPlan(const std::string& name) {
  if (name.find('/') != std::string::npos) return name;
  std::string looked_for;
  for (const fs::path& folder : {fs::path(), InstalledPlans()}) {
    for (const char* extension : {"", EXTENSION}) {
      const std::string file = folder / (name + extension);
      std::error_code error;
      if (fs::exists(file, error) && !fs::is_directory(file, error)) return file;
      looked_for += (looked_for.empty() ? "" : ", ") + file;
      if (name.ends_with(EXTENSION)) break;
    }
  }
  throw PlanError(fmt::format("there is no plan \"{}\"; looked for {}", name, looked_for));
}

std::vector<std::string> PlanNames() {
  std::set<std::string> names;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(".", error)) {
    if (entry.path().extension() == EXTENSION) names.insert(entry.path().filename());
  }
  for (const auto& entry : fs::directory_iterator(InstalledPlans(), error)) {
    if (entry.path().extension() == EXTENSION) names.insert(entry.path().stem());
  }
  return {names.begin(), names.end()};
}

}  // namespace station
