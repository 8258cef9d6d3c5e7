#include "station/link/port_opening.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include "posix/deadline.h"
#include "station/commands/errors.h"
#include "station/link/interruption.h"

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

// The number of a master descriptor's pseudo-terminal, from the kernel's information about the descriptor.
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

// "minicom (process 1234)" for the first other process that has the port's device open too; empty if there is
// none. An ordinary user sees only the user's own processes. A process that has the other side of a
// pseudo-terminal does not count.
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

std::string GroupAdvice(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return "";
  const group* owner = getgrgid(status.st_gid);
  if (owner == nullptr || (status.st_mode & S_IWGRP) == 0) return "";
  return fmt::format("; the group \"{0}\" may use it: \"sudo adduser $USER {0}\", then log in again",
                     owner->gr_name);
}

[[noreturn]] void RefuseHeld(const std::string& path, const std::string& holder) {
  throw LinkFailure(fmt::format("{} is held by {}", path, holder.empty() ? "another program" : holder));
}

[[noreturn]] void RefuseToOpen(const std::string& path, int error) {
  if (error == ENOENT) throw LinkFailure(fmt::format("there is no port {}", path));
  if (error == EACCES) throw LinkFailure(fmt::format("no permission to use {}{}", path, GroupAdvice(path)));
  if (error == EBUSY) RefuseHeld(path, "");
  throw LinkFailure(fmt::format("cannot open {}: {}", path, std::strerror(error)));
}

void HoldPort(int descriptor, const std::string& path) {
  const std::string holder = PortHolder(descriptor);
  // Other serial programs respect this lock. It ends with the descriptor.
  const bool locked = flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  if (locked || !holder.empty()) RefuseHeld(path, holder);
  // A pseudo-terminal keeps this mark while its other side stays open, and would then refuse all later
  // programs.
  struct stat status {};
  if (fstat(descriptor, &status) == 0 && !PseudoTerminal(status.st_rdev)) ioctl(descriptor, TIOCEXCL);
}

void ConfigurePort(int descriptor, const std::string& path) {
  termios settings{};
  tcgetattr(descriptor, &settings);
  cfmakeraw(&settings);
  cfsetspeed(&settings, B115200);
  settings.c_cflag |= CLOCAL | CREAD;
  // Without HUPCL the line stays up after this program. A hang-up would reach the phone's server.
  settings.c_cflag &= ~(HUPCL | CRTSCTS | CSTOPB);
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  if (tcsetattr(descriptor, TCSANOW, &settings) != 0) {
    throw LinkFailure(fmt::format("cannot configure {}: {}", path, std::strerror(errno)));
  }
}

constexpr std::chrono::seconds CONNECT_TIME{5};

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

// Any other word is the name of a service. The system takes a larger number's lowest 16 bits for the port,
// and skips blanks and a sign before a number.
void CheckTcpPort(const std::string& port) {
  constexpr int HIGHEST = 65535;
  const bool number = std::ranges::all_of(port, [](char c) { return c >= '0' && c <= '9'; });
  const auto in_name = [](unsigned char c) { return std::isalnum(c) != 0 || c == '-' || c == '_'; };
  if (!number && std::isalnum(static_cast<unsigned char>(port[0])) != 0 && std::ranges::all_of(port, in_name))
    return;
  const bool short_enough = number && port.size() <= 5;
  if (short_enough && std::stoi(port) >= 1 && std::stoi(port) <= HIGHEST) return;
  throw UsageError(fmt::format("TCP port '{}' is not a number from 1 to {}", port, HIGHEST));
}

// Splits "HOST:PORT"; the last colon is the one before the port.
std::pair<std::string, std::string> SplitAddress(const std::string& address, const char* prefix) {
  const std::size_t colon = address.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == address.size()) {
    throw UsageError(fmt::format("'{0}{1}' is not {0}HOST:PORT", prefix, address));
  }
  CheckTcpPort(address.substr(colon + 1));
  std::string host = address.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  return {host, address.substr(colon + 1)};
}

AddressList Resolve(const std::string& host, const std::string& port) {
  addrinfo wanted{};
  wanted.ai_socktype = SOCK_STREAM;
  wanted.ai_flags = AI_ADDRCONFIG;
  addrinfo* found = nullptr;
  const int error = getaddrinfo(host.c_str(), port.c_str(), &wanted, &found);
  if (error != 0) throw LinkFailure(fmt::format("cannot find {}:{}: {}", host, port, gai_strerror(error)));
  return {found, freeaddrinfo};
}

// Returns 0 or the error number. Throws Aborted.
int Connect(const posix::FileDescriptor& socket, const addrinfo& to) {
  if (connect(socket.Get(), to.ai_addr, to.ai_addrlen) == 0) return 0;
  if (errno != EINPROGRESS) return errno;
  const posix::Deadline deadline(CONNECT_TIME);
  std::array<pollfd, 2> waiting = {{{socket.Get(), POLLOUT, 0}, {InterruptionDescriptor(), POLLIN, 0}}};
  while (poll(waiting.data(), waiting.size(), deadline.MillisecondsLeft()) < 0 && errno == EINTR) {
  }
  CheckInterruption();
  if (waiting[0].revents == 0) return ETIMEDOUT;
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, &error, &size);
  return error;
}

}  // namespace

posix::FileDescriptor OpenSerialPort(const std::string& path) {
  // Non-blocking, because opening must not wait for a carrier.
  posix::FileDescriptor port(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!port.IsOpen()) RefuseToOpen(path, errno);
  if (isatty(port.Get()) == 0) throw LinkFailure(fmt::format("{} is not a serial port", path));
  HoldPort(port.Get(), path);
  ConfigurePort(port.Get(), path);
  return port;
}

void CheckPortName(const std::string& port) {
  for (const char* prefix : {TCP_PREFIX, RFC2217_PREFIX}) {
    if (port.starts_with(prefix)) SplitAddress(port.substr(std::strlen(prefix)), prefix);
  }
}

posix::FileDescriptor OpenTcpPort(const std::string& address, const char* prefix) {
  const auto [host, port] = SplitAddress(address, prefix);
  const AddressList found = Resolve(host, port);
  CheckInterruption();  // the system's search for a name goes on until its end
  int error = 0;
  for (const addrinfo* to = found.get(); to != nullptr; to = to->ai_next) {
    posix::FileDescriptor socket(
        ::socket(to->ai_family, to->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, to->ai_protocol));
    if (!socket.IsOpen()) continue;
    error = Connect(socket, *to);
    if (error != 0) continue;
    // Small commands must leave at once.
    const int on = 1;
    setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return socket;
  }
  throw LinkFailure(fmt::format("cannot connect to {}:{}: {}", host, port, std::strerror(error)));
}

}  // namespace station
