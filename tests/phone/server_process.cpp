#include "tests/phone/server_process.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/phone/phone_test.h"

namespace fs = std::filesystem;

std::multiset<std::pair<dev_t, ino_t>> OpenObjects(pid_t process) {
  std::multiset<std::pair<dev_t, ino_t>> objects;
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(process) + "/fd")) {
    struct stat status;
    const bool standard = std::stoi(entry.path().filename()) <= 2;
    if (!standard && stat(entry.path().c_str(), &status) == 0) objects.emplace(status.st_dev, status.st_ino);
  }
  return objects;
}

size_t OpenDescriptors(pid_t process) {
  return OpenObjects(process).size();
}

// Without the thread sanitizer's own, which takes no signal.
size_t Threads(pid_t process) {
  size_t count = 0;
  for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    std::ifstream status(task.path() / "status");
    std::string line;
    while (std::getline(status, line) && !line.starts_with("SigBlk:")) continue;
    if (line.ends_with("0000000000000000")) ++count;
  }
  return count;
}

bool ComesToThreads(pid_t process, size_t count) {
  return Eventually([=] { return Threads(process) == count; });
}
