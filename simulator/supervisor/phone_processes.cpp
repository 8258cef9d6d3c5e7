#include "simulator/supervisor/phone_processes.h"

#include <charconv>
#include <filesystem>
#include <fstream>

namespace simulator {
namespace {

// The kernel keeps this many characters of a process's name.
constexpr size_t KEPT_NAME = 15;

std::string NameOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/comm");
  std::string name;
  std::getline(file, name);
  return name;
}

}  // namespace

std::vector<pid_t> ProcessesIn(const std::string& root) {
  std::vector<pid_t> processes;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
    const std::string name = entry.path().filename();
    pid_t process = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), process);
    if (error != std::errc() || end != name.data() + name.size()) continue;
    if (std::filesystem::read_symlink(entry.path() / "root", ignored) == root) processes.push_back(process);
  }
  return processes;
}

std::vector<pid_t> ProcessesNamed(const std::string& root, const std::string& name) {
  std::vector<pid_t> processes;
  for (pid_t process : ProcessesIn(root)) {
    if (NameOf(process) == name.substr(0, KEPT_NAME)) processes.push_back(process);
  }
  return processes;
}

}  // namespace simulator
