#include "station/report/run_folder.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <filesystem>

#include "station/commands/errors.h"

namespace station {

std::string MakeRunFolder(const std::string& reports, const std::string& plan_file) {
  namespace fs = std::filesystem;
  std::error_code error;
  fs::create_directories(reports, error);
  const std::string name = fmt::format("{:%Y-%m-%dT%H.%M.%S}-{}", fmt::localtime(std::time(nullptr)),
                                       fs::path(plan_file).stem().string());
  for (int number = 1; !error; ++number) {
    const fs::path folder = fs::path(reports) / (number == 1 ? name : fmt::format("{}-{}", name, number));
    // Other phones' runs may begin in the same second; only one of them makes the folder.
    if (fs::create_directory(folder, error)) return folder;
  }
  throw OutputLost(fmt::format("cannot make a folder for the report in {}: {}", reports, error.message()));
}

}  // namespace station
