#include "tests/fuzz/fed_calls.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

namespace {

Feed* feed = nullptr;
std::string content;
size_t taken = 0;  // from the modem's port
int modem = -1;    // its descriptor
int storage = -1;  // of the file that is written

// A file in memory with these bytes, from its start.
int MemoryFile(const std::string& bytes) {
  const int file = memfd_create("fed", MFD_CLOEXEC);
  if (write(file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) return -1;
  lseek(file, 0, SEEK_SET);
  return file;
}

// The next piece of the modem's port; a length of 255 is a read that fails.
ssize_t ReadModem(void* buffer, size_t room) {
  if (taken >= content.size()) return 0;
  const auto length = static_cast<uint8_t>(content[taken++]);
  if (length == 255) {
    errno = EIO;
    return -1;
  }
  const size_t count = std::min({size_t{length}, room, content.size() - taken});
  memcpy(buffer, content.data() + taken, count);
  taken += count;
  return static_cast<ssize_t>(count);
}

}  // namespace

Feed::Feed(std::string bytes) {
  feed = this;
  content = std::move(bytes);
  taken = 0;
}

Feed::~Feed() {
  feed = nullptr;
}

extern "C" {

FILE* __real_popen(const char* command, const char* mode);
FILE* __wrap_popen(const char* command, const char* mode) {
  if (feed == nullptr) return __real_popen(command, mode);
  const std::string& printed = feed->mtd_lines.empty() ? content : feed->mtd_lines;
  return fdopen(MemoryFile(printed), mode);
}

int __real_pclose(FILE* pipe);
int __wrap_pclose(FILE* pipe) {
  return feed == nullptr ? __real_pclose(pipe) : fclose(pipe);
}

int __real_system(const char* command);
int __wrap_system(const char* command) {
  return feed == nullptr ? __real_system(command) : 0;
}

// A pipe that already holds what the program will print.
int __real_pipe2(int* ends, int flags);
int __wrap_pipe2(int* ends, int flags) {
  const int result = __real_pipe2(ends, flags);
  if (feed == nullptr || result != 0) return result;
  return write(ends[1], content.data(), std::min<size_t>(content.size(), 4096)) < 0 ? -1 : 0;
}

pid_t __real_fork();
pid_t __wrap_fork() {
  return feed == nullptr ? __real_fork() : 1;
}

pid_t __real_waitpid(pid_t process, int* status, int options);
pid_t __wrap_waitpid(pid_t process, int* status, int options) {
  return feed == nullptr ? __real_waitpid(process, status, options) : process;
}

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (feed == nullptr) return __real_open(path, flags, mode);
  if (strncmp(path, "/dev/csmi_tty", 13) == 0) {
    taken = 0;
    return modem = MemoryFile("");
  }
  if ((flags & O_ACCMODE) == O_WRONLY) return storage = MemoryFile("");
  return MemoryFile(content);
}

int __real_close(int descriptor);
int __wrap_close(int descriptor) {
  if (feed != nullptr && descriptor >= 0 && descriptor == storage) {
    feed->written.resize(static_cast<size_t>(lseek(descriptor, 0, SEEK_END)));
    if (pread(descriptor, feed->written.data(), feed->written.size(), 0) < 0) feed->written.clear();
    storage = -1;
  }
  if (feed != nullptr && descriptor == modem) modem = -1;
  return __real_close(descriptor);
}

ssize_t __real_read(int descriptor, void* buffer, size_t room);
ssize_t __wrap_read(int descriptor, void* buffer, size_t room) {
  if (feed != nullptr && descriptor >= 0 && descriptor == modem) return ReadModem(buffer, room);
  return __real_read(descriptor, buffer, room);
}
}
