#include "station/tool/simulated_executable.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "posix/file_descriptor.h"

namespace station {
namespace {

namespace fs = std::filesystem;

// What the program prints; empty if it cannot be started.
std::string OutputOf(const std::string& program, const char* first, const char* second) {
  posix::Connection pipe = posix::MakePipe();
  if (!pipe) return {};
  const char* arguments[] = {program.c_str(), first, second, nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe.writing.Get(), STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t process = 0;
  const int error =
      posix_spawnp(&process, program.c_str(), &actions, nullptr, const_cast<char**>(arguments), environ);
  posix_spawn_file_actions_destroy(&actions);
  pipe.writing.Reset();
  if (error != 0) return {};
  std::string output;
  char bytes[4096];
  ssize_t size;
  while ((size = read(pipe.reading.Get(), bytes, sizeof bytes)) > 0) {
    output.append(bytes, static_cast<std::size_t>(size));
  }
  waitpid(process, nullptr, 0);
  return output;
}

}  // namespace

std::optional<Executable> SimulatedExecutable(const std::string& phonesim, const std::string& port) {
  std::error_code error;
  const std::string device = fs::canonical(port, error);
  if (error || !device.starts_with("/dev/pts/")) return std::nullopt;
  const auto phones = nlohmann::json::parse(OutputOf(phonesim, "status", "--json"), nullptr, false);
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
