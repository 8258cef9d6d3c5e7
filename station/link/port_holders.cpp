#include "station/link/port_holders.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>

namespace station {

namespace {

namespace fs = std::filesystem;

const dev_t MASTER_DEVICE = makedev(5, 2);  // /dev/ptmx
constexpr unsigned FIRST_PSEUDO_TERMINAL = 136;

// The number of a pseudo-terminal, from its device number.
std::optional<unsigned> PseudoTerminal(dev_t device) {
  if (major(device) < FIRST_PSEUDO_TERMINAL || major(device) >= FIRST_PSEUDO_TERMINAL + 8)
    return std::nullopt;
  return (major(device) - FIRST_PSEUDO_TERMINAL) * 256 + minor(device);
}

// The number of the pseudo-terminal that a master descriptor belongs to; the kernel tells it in the
// descriptor's information.
std::optional<unsigned> MasterOf(const fs::path& process, const std::string& descriptor) {
  std::ifstream information(process / "fdinfo" / descriptor);
  for (std::string key; information >> key;) {
    unsigned number = 0;
    if (key == "tty-index:" && information >> number) return number;
  }
  return std::nullopt;
}

bool Holds(const fs::path& process, dev_t device) {
  const std::optional<unsigned> terminal = PseudoTerminal(device);
  bool holds = false;
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(process / "fd", error)) {
    struct stat status {};
    if (stat(entry.path().c_str(), &status) != 0 || !S_ISCHR(status.st_mode)) continue;
    holds = holds || status.st_rdev == device;
    if (terminal && status.st_rdev == MASTER_DEVICE &&
        MasterOf(process, entry.path().filename()) == terminal) {
      return false;
    }
  }
  return holds;
}

}  // namespace

std::string PortHolder(int port) {
  struct stat status {};
  if (fstat(port, &status) != 0) return "";
  const std::string own = std::to_string(getpid());
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename();
    const bool process = std::ranges::all_of(name, [](char c) { return c >= '0' && c <= '9'; });
    if (!process || name == own || !Holds(entry.path(), status.st_rdev)) continue;
    std::string program;
    std::getline(std::ifstream(entry.path() / "comm"), program);
    return fmt::format("{} (process {})", program, name);
  }
  return "";
}

}  // namespace station
