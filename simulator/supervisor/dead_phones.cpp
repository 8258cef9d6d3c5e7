#include "simulator/supervisor/dead_phones.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "simulator/phone/removal.h"
#include "simulator/phone/root_directory.h"
#include "simulator/supervisor/phone_processes.h"
#include "simulator/supervisor/task_group.h"

namespace simulator {

void RemoveDeadPhones() {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(TemporaryDirectory(), ignored)) {
    const std::string& path = entry.path().native();
    if (!entry.path().filename().native().starts_with(TEMPORARY_NAME)) continue;
    // Its simulator and its guardian hold the lock as long as they live.
    const posix::FileDescriptor lock = LockDirectory(path);
    struct stat status;
    if (!lock.IsOpen() || fstat(lock.Get(), &status) != 0 || status.st_uid != geteuid()) continue;
    EndProcessesIn(path);
    RemoveTree(path.c_str());
  }
  RemoveDeadTaskGroups();
}

}  // namespace simulator
