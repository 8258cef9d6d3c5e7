#include "station/tool/simulated_executable.h"

#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "station/plan/host_program.h"

namespace station {
namespace {

namespace fs = std::filesystem;

// A list of objects; empty if it cannot be asked.
nlohmann::json PhonesOf(const std::string& phonesim) {
  nlohmann::json phones;
  try {
    HostProgram program({phonesim, "status", "--json"});
    if (program.Wait(std::chrono::seconds(10)).empty()) {
      phones = nlohmann::json::parse(program.Output(), nullptr, false);
    }
  } catch (const std::runtime_error&) {
    // There is no such program.
  }
  return phones.is_array() ? phones : nlohmann::json::array();
}

}  // namespace

std::optional<Executable> SimulatedExecutable(const std::string& phonesim, const std::string& port) {
  std::error_code error;
  const std::string device = fs::canonical(port, error);
  if (error || !device.starts_with("/dev/pts/")) return std::nullopt;
  for (const auto& phone : PhonesOf(phonesim)) {
    if (phone.value("host_port", "") != device || !phone.contains("executable")) continue;
    const auto& executable = phone["executable"];
    return Executable{executable.value("path", ""), executable.value("processor", ""),
                      executable.value("sha256", "")};
  }
  return std::nullopt;
}

std::vector<std::string> SimulatedPorts(const std::string& phonesim) {
  std::vector<std::string> ports;
  for (const auto& phone : PhonesOf(phonesim)) ports.push_back(phone.value("host_port", ""));
  return ports;
}

std::string PhonesimBesideTool() {
  std::error_code error;
  const fs::path beside = fs::read_symlink("/proc/self/exe", error).parent_path() / "phonesim";
  return fs::exists(beside, error) ? beside.string() : "phonesim";
}

}  // namespace station
