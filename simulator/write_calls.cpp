// Writes to the phone's ordinary files, seen only with PhoneOptions::observe_writes: a test can then cut the
// power at any of them, in the middle of its bytes too.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

#include "simulator/phone_paths.h"
#include "simulator/process_memory.h"
#include "simulator/system_calls.h"

namespace simulator {
namespace {

// The longest write that is looked at; a longer one passes unseen.
constexpr uint64_t MAX_WRITE = 1 << 24;

// The caller's own descriptor, which shares its position.
FileDescriptor BorrowDescriptor(const TrappedCall& call) {
  const FileDescriptor process(static_cast<int>(syscall(SYS_pidfd_open, ProcessOf(call.Thread()), 0)));
  return FileDescriptor(static_cast<int>(syscall(SYS_pidfd_getfd, process.Get(), call.IntArgument(0), 0)));
}

bool ReadPiece(pid_t thread, uint64_t address, uint64_t size, std::vector<uint8_t>& bytes) {
  if (bytes.size() + size > MAX_WRITE) return false;
  const size_t start = bytes.size();
  bytes.resize(start + size);
  return size == 0 || ReadMemory(thread, address, bytes.data() + start, size);
}

std::optional<std::vector<uint8_t>> WrittenBytes(const TrappedCall& call) {
  std::vector<uint8_t> bytes;
  if (call.Kind() != Call::WritePieces) {
    if (!ReadPiece(call.Thread(), call.Argument(1), call.Argument(2), bytes)) return std::nullopt;
    return bytes;
  }
  const size_t width = call.Narrow() ? 4 : 8;
  for (uint64_t index = 0; index < std::min<uint64_t>(call.Argument(2), IOV_MAX); ++index) {
    uint64_t piece[2] = {};
    for (uint64_t field = 0; field < 2; ++field) {
      const uint64_t address = call.Argument(1) + (2 * index + field) * width;
      if (!ReadMemory(call.Thread(), address, &piece[field], width)) return std::nullopt;
    }
    if (!ReadPiece(call.Thread(), piece[0], piece[1], bytes)) return std::nullopt;
  }
  return bytes;
}

int64_t WritePosition(const TrappedCall& call) {
  if (call.Kind() != Call::WriteAt) return DescriptorPosition(call.Thread(), call.IntArgument(0));
  if (!call.Narrow()) return static_cast<int64_t>(call.Argument(3));
  return static_cast<int64_t>(call.Argument(3) | call.Argument(4) << 32);
}

}  // namespace

void SystemCalls::Write(const CallPointer& call) {
  const std::string link = fmt::format("/proc/{}/fd/{}", call->Thread(), call->IntArgument(0));
  struct stat status;
  if (stat(link.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return call->PassOn();
  char target[PATH_MAX];
  const ssize_t length = readlink(link.c_str(), target, sizeof target);
  const std::optional<std::string> path =
      PhonePath(phone_.root, std::string(target, static_cast<size_t>(std::max<ssize_t>(length, 0))));
  if (!path) return call->PassOn();
  std::optional<std::vector<uint8_t>> bytes = WrittenBytes(*call);
  if (!bytes || !call->StillWaits()) return call->PassOn();

  const int64_t position = WritePosition(*call);
  JournalEntry entry = {.kind = JournalKind::Write,
                        .process = call->Thread(),
                        .path = *path,
                        .bytes_in = *bytes,
                        .offset = position};
  const std::optional<FaultRule> rule = faults_.Strike(FaultCall::Write, *path);
  if (rule && rule->error != 0) {
    StrikeDead(*rule, *call, std::move(entry));
    return;
  }
  if (!rule || (!rule->size && !rule->power_cut)) {
    phone_.journal.Add(std::move(entry));
    return call->PassOn();
  }
  // The write comes short: only so many bytes reach the file.
  const size_t kept = std::min(bytes->size(), static_cast<size_t>(rule->size.value_or(INT64_MAX)));
  const FileDescriptor file = BorrowDescriptor(*call);
  const ssize_t written = call->Kind() == Call::WriteAt ? pwrite(file.Get(), bytes->data(), kept, position)
                                                        : write(file.Get(), bytes->data(), kept);
  entry.bytes_in.resize(kept);
  entry.result = written;
  phone_.journal.Add(std::move(entry));
  if (rule->power_cut) return cut_power_();
  call->Answer(written);
}

}  // namespace simulator
