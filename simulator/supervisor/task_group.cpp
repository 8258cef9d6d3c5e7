#include "simulator/supervisor/task_group.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "posix/file_descriptor.h"

namespace simulator {
namespace {

constexpr std::string_view NAME = "phonesim-tasks-";  // then the simulator's process and a number

// The directory of this process's own group, and the directory of the whole hierarchy that it is in.
struct Hierarchy {
  std::filesystem::path top;
  std::filesystem::path own;
};

// Version 1 has a hierarchy of its own for the counting of processes, version 2 one for everything.
std::vector<Hierarchy> Hierarchies() {
  const std::filesystem::path all = "/sys/fs/cgroup";
  std::vector<Hierarchy> found;
  std::ifstream list("/proc/self/cgroup");
  for (std::string line; std::getline(list, line);) {
    std::istringstream parts(line);
    std::string number, controllers, path;
    std::getline(parts, number, ':');
    std::getline(parts, controllers, ':');
    std::getline(parts, path);
    if (("," + controllers + ",").find(",pids,") != std::string::npos) {
      found.push_back({all / controllers, all / controllers / path.substr(1)});
    }
    if (controllers.empty() && !path.empty()) found.push_back({all, all / path.substr(1)});
  }
  return found;
}

bool WriteText(const char* directory, const char* name, const char* text) {
  char path[PATH_MAX];
  if (directory[0] == 0 || strlen(directory) + strlen(name) + 2 > sizeof path) return false;
  strcpy(path, directory);
  strcat(path, "/");
  strcat(path, name);
  const int file = open(path, O_WRONLY | O_CLOEXEC);
  if (file < 0) return false;
  const auto size = static_cast<ssize_t>(strlen(text));
  const bool written = write(file, text, strlen(text)) == size;
  close(file);
  return written;
}

// A group that cannot hold a number, or that nothing may enter, is none.
bool MakeGroup(const std::filesystem::path& group, unsigned most_tasks) {
  if (mkdir(group.c_str(), 0755) != 0) return false;
  if (WriteText(group.c_str(), "pids.max", std::to_string(most_tasks).c_str()) &&
      access((group / "cgroup.procs").c_str(), W_OK) == 0) {
    return true;
  }
  rmdir(group.c_str());
  return false;
}

// Calls `use(directory)` for this process's own group and those above it, until it returns true.
template <typename Use>
void ForEachPlace(Use use) {
  for (const Hierarchy& hierarchy : Hierarchies()) {
    for (std::filesystem::path place = hierarchy.own.lexically_normal();; place = place.parent_path()) {
      if (use(place)) return;
      if (place == hierarchy.top || !place.has_relative_path() || place.native() <= hierarchy.top.native()) {
        break;
      }
    }
  }
}

}  // namespace

std::string MakeTaskGroup(unsigned most_tasks) {
  static std::atomic<unsigned> last_number = 0;
  const std::string name = fmt::format("{}{}-{}", NAME, getpid(), ++last_number);
  std::string made;
  // Version 2 divides a group among groups only, not among groups and processes: so the group is often one
  // beside our own.
  ForEachPlace([&](const std::filesystem::path& place) {
    if (MakeGroup(place / name, most_tasks)) made = place / name;
    return !made.empty();
  });
  return made;
}

uint64_t RefusedStarts(const std::string& group) {
  std::ifstream file(group + "/pids.events");
  uint64_t count = 0;
  for (std::string word; file >> word;) {
    if (word == "max") file >> count;
  }
  return count;
}

void RemoveDeadTaskGroups() {
  ForEachPlace([](const std::filesystem::path& place) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(place, ignored)) {
      const std::string name = entry.path().filename();
      if (!name.starts_with(NAME)) continue;
      pid_t simulator = 0;
      std::from_chars(name.data() + NAME.size(), name.data() + name.size(), simulator);
      if (simulator > 0 && kill(simulator, 0) != 0 && errno == ESRCH) rmdir(entry.path().c_str());
    }
    return false;
  });
}

bool EnterTaskGroup(const char* group) {
  return WriteText(group, "cgroup.procs", "0");
}

void CloseTaskGroup(const char* group) {
  WriteText(group, "pids.max", "0");
}

void RemoveTaskGroup(const char* group) {
  if (group[0] != 0) rmdir(group);
}

}  // namespace simulator
