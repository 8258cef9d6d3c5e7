#include "posix/whole_output.h"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <set>

#include "posix/file_descriptor.h"

namespace posix {
namespace {

namespace fs = std::filesystem;

std::mutex telling;
std::set<std::string> told;

std::string CannotWrite(const std::string& path, const std::string& reason) {
  return fmt::format("cannot write {}: {}", path, reason);
}

// The content and the name are on the disk, as far as the file's system can tell.
std::string Sync(int descriptor) {
  if (fsync(descriptor) == 0 || errno == EINVAL || errno == ENOTSUP || errno == EROFS) return "";
  return std::strerror(errno);
}

std::string WriteNewFile(const std::string& path, std::string_view content, mode_t mode) {
  FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!file.IsOpen()) return std::strerror(errno);
  if (mode != 0) fchmod(file.Get(), mode);
  std::string reason = WriteAll(file.Get(), content);
  if (reason.empty()) reason = Sync(file.Get());
  if (close(file.Release()) != 0 && reason.empty()) reason = std::strerror(errno);
  return reason;
}

}  // namespace

std::string WriteAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return std::strerror(errno);
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return "";
}

std::string WriteWholeFile(const std::string& path, std::string_view content) {
  static std::atomic<unsigned> number = 0;
  std::error_code error;
  // A link stays one: what it leads to is replaced.
  const fs::path led_to = fs::canonical(path, error);
  const std::string target = error ? path : led_to.string();
  struct stat status {};
  const bool exists = stat(target.c_str(), &status) == 0;
  if (exists && !S_ISREG(status.st_mode)) {
    const FileDescriptor device(open(target.c_str(), O_WRONLY | O_CLOEXEC));
    const std::string reason = device.IsOpen() ? WriteAll(device.Get(), content) : std::strerror(errno);
    return reason.empty() ? "" : CannotWrite(path, reason);
  }
  const std::string beside = fmt::format("{}.{}-{}.part", target, getpid(), number++);
  std::string reason = WriteNewFile(beside, content, exists ? status.st_mode & 07777 : 0);
  if (reason.empty() && rename(beside.c_str(), target.c_str()) != 0) reason = std::strerror(errno);
  if (reason.empty()) return "";
  unlink(beside.c_str());
  return CannotWrite(path, reason);
}

void TellLostOutput(const std::string& sentence) {
  const std::lock_guard<std::mutex> lock(telling);
  if (!told.insert(sentence).second) return;
  std::string clean = sentence;
  for (char& character : clean) {
    if (static_cast<unsigned char>(character) < 0x20 || character == 0x7F) character = '?';
  }
  [[maybe_unused]] const std::string ignored =
      WriteAll(STDERR_FILENO, fmt::format("{}: {}\n", program_invocation_short_name, clean));
}

bool IsOutputLost() {
  return !LostOutput().empty();
}

std::vector<std::string> LostOutput() {
  const std::lock_guard<std::mutex> lock(telling);
  return {told.begin(), told.end()};
}

bool WriteToOutput(std::string_view bytes) {
  const std::string reason = WriteAll(STDOUT_FILENO, bytes);
  if (!reason.empty()) TellLostOutput(CannotWrite("standard output", reason));
  return reason.empty();
}

void PrintText(std::string_view text) {
  if (std::ferror(stdout) != 0) return;
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size()) return;
  TellLostOutput(CannotWrite("standard output", std::strerror(errno)));
}

void FinishOutput() {
  if (std::ferror(stdout) != 0 || std::fflush(stdout) == 0) return;
  TellLostOutput(CannotWrite("standard output", std::strerror(errno)));
}

void HoldStandardDescriptors() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest free number is taken.
    if (fcntl(number, F_GETFD) < 0) open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace posix
