#include "tests/phone/server_process.h"

#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

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

size_t Threads(pid_t process) {
  const fs::directory_iterator tasks("/proc/" + std::to_string(process) + "/task");
  return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
}

bool ComesToThreads(pid_t process, size_t count) {
  for (int attempt = 0; attempt < 5000; ++attempt) {
    if (Threads(process) == count) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return false;
}
