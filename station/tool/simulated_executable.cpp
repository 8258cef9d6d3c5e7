#include "station/tool/simulated_executable.h"

#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "station/plan/host_program.h"

namespace station {
namespace {

namespace fs = std::filesystem;

// What it prints; empty if it cannot be asked.
std::string StatusOf(const std::string& phonesim) {
  try {
    HostProgram program({phonesim, "status", "--json"});
    return program.Wait(std::chrono::seconds(10)).empty() ? program.Output() : "";
  } catch (const std::runtime_error&) {
    return "";
  }
}

}  // namespace

std::optional<Executable> SimulatedExecutable(const std::string& phonesim, const std::string& port) {
  std::error_code error;
  const std::string device = fs::canonical(port, error);
  if (error || !device.starts_with("/dev/pts/")) return std::nullopt;
  const auto phones = nlohmann::json::parse(StatusOf(phonesim), nullptr, false);
  if (!phones.is_array()) return std::nullopt;
  for (const auto& phone : phones) {
    if (phone.value("host_port", "") != device || !phone.contains("executable")) continue;
    const auto& executable = phone["executable"];
    return Executable{executable.value("path", ""), executable.value("processor", ""),
                      executable.value("sha256", "")};
  }
  return std::nullopt;
}

std::string PhonesimBesideTool() {
  std::error_code error;
  const fs::path beside = fs::read_symlink("/proc/self/exe", error).parent_path() / "phonesim";
  return fs::exists(beside, error) ? beside.string() : "phonesim";
}

}  // namespace station
