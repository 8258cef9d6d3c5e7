#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>

#include <cerrno>
#include <cstring>

#include "station/commands/errors.h"
#include "station/link/port_holders.h"
#include "station/link/port_opening.h"

namespace station {

namespace {

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

bool IsPseudoTerminal(int descriptor) {
  // Major numbers of the pseudo-terminals' device side.
  constexpr unsigned FIRST = 136;
  constexpr unsigned LAST = 143;
  struct stat status {};
  if (fstat(descriptor, &status) != 0) return false;
  return major(status.st_rdev) >= FIRST && major(status.st_rdev) <= LAST;
}

void HoldPort(int descriptor, const std::string& path) {
  const std::string holder = PortHolder(descriptor);
  // The lock is what other well-behaved serial programs look at, and it goes with the descriptor.
  const bool locked = flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  if (locked || !holder.empty()) RefuseHeld(path, holder);
  // A pseudo-terminal would keep this mark when its other side stays open, and so lock everybody out for
  // good.
  if (!IsPseudoTerminal(descriptor)) ioctl(descriptor, TIOCEXCL);
}

void ConfigurePort(int descriptor, const std::string& path) {
  termios settings{};
  tcgetattr(descriptor, &settings);
  cfmakeraw(&settings);
  cfsetspeed(&settings, B115200);
  settings.c_cflag |= CLOCAL | CREAD;
  // Without HUPCL the line stays up between two runs of this program; a hang-up would reach the phone's
  // server.
  settings.c_cflag &= ~(HUPCL | CRTSCTS | CSTOPB);
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  if (tcsetattr(descriptor, TCSANOW, &settings) != 0) {
    throw LinkFailure(fmt::format("cannot configure {}: {}", path, std::strerror(errno)));
  }
}

}  // namespace

posix::FileDescriptor OpenSerialPort(const std::string& path) {
  // Non-blocking from the start: an open must not wait for a carrier.
  posix::FileDescriptor port(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!port.IsOpen()) RefuseToOpen(path, errno);
  if (isatty(port.Get()) == 0) throw LinkFailure(fmt::format("{} is not a serial port", path));
  HoldPort(port.Get(), path);
  ConfigurePort(port.Get(), path);
  return port;
}

}  // namespace station
