// Opening a path and reading a link.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string_view>
#include <utility>

#include "simulator/phone/device_descriptors.h"
#include "simulator/supervisor/phone_paths.h"
#include "simulator/supervisor/phone_processes.h"
#include "simulator/supervisor/system_calls.h"

namespace simulator {
namespace {

// A directory of the phone's own that lists a process's threads. From the real one, a program would reach
// the PC's files.
posix::FileDescriptor ListThreads(const RootDirectory& root, const posix::FileDescriptor& process,
                                  unsigned number) {
  const std::string name = fmt::format(".threads-{}-{}", getpid(), number);
  if (mkdirat(root.Descriptor(), name.c_str(), 0700) != 0) return {};
  posix::FileDescriptor made(
      openat(root.Descriptor(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  const posix::FileDescriptor tasks(openat(process.Get(), "task", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!made.IsOpen() || !tasks.IsOpen()) return {};
  std::error_code gone;
  for (const auto& thread :
       std::filesystem::directory_iterator(fmt::format("/proc/self/fd/{}", tasks.Get()), gone)) {
    mkdirat(made.Get(), thread.path().filename().c_str(), 0700);
  }
  return made;
}

// Opens of the dynamic loader, the C library and the emulator, which tell nothing about the phone.
bool IsLibraryPath(std::string_view path) {
  for (const std::string_view start : {"/lib", "/usr/lib", "/etc/ld.so", "/usr/share/locale",
                                       "/etc/localtime", "/proc/sys/vm/mmap_min_addr"}) {
    if (path.starts_with(start)) return true;
  }
  return false;
}

}  // namespace

void SystemCalls::Open(const CallPointer& call, int directory, uint64_t path_address, int flags,
                       uint64_t mode) {
  // A set-ID program in the phone's directory would work for every user of the PC.
  if (((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) && (mode & (S_ISUID | S_ISGID)) != 0)
    return call->Refuse(EPERM);
  const std::optional<std::string> text = ReadText(call->Thread(), path_address, PATH_MAX);
  if (!text || text->empty()) return call->PassOn();
  const std::optional<std::string> path = AbsolutePath(phone_.root, call->Thread(), directory, *text);
  if (!call->StillWaits()) return;
  if (!path) return call->Refuse(ENOENT);
  if (OpenProcessFile(*call, *path, flags)) return;

  const ResolvedPath resolved = ResolvePath(phone_.root, *path, (flags & O_NOFOLLOW) == 0);
  FaultRule rule;
  const bool writes = (flags & O_ACCMODE) != O_RDONLY;
  if (const auto strike = faults_.Strike(FaultCall::Open, resolved.path, 0, writes)) rule = *strike;
  if (rule.cuts_power) return phone_.cut_power();
  After(rule, call, [this, call, resolved, flags, rule] {
    if (RefusedBy(
            rule, *call,
            {.kind = JournalKind::Open, .process = call->Thread(), .path = resolved.path, .flags = flags}))
      return;
    DeviceModel* model = ModelOf(resolved.path);
    if (rule.size) return OpenShortened(*call, resolved.path, *rule.size, flags);
    if (model == nullptr || (flags & (O_PATH | O_DIRECTORY)) != 0) {
      return OpenOrdinary(*call, resolved.path, flags, resolved.exists);
    }
    if (resolved.exists) return OpenDevice(*call, *model, resolved.path, flags);
    // A missing device cannot be created by opening it: neither /proc nor a device directory works so.
    phone_.journal.Add({.kind = JournalKind::Open,
                        .process = call->Thread(),
                        .path = resolved.path,
                        .flags = flags,
                        .error = ENOENT});
    call->Refuse(ENOENT);
  });
}

bool SystemCalls::OpenProcessFile(TrappedCall& call, const std::string& path, int flags) {
  const std::optional<ProcessFile> wanted = FindProcessFile(call.Thread(), path);
  if (!wanted) return false;
  const posix::FileDescriptor process = HoldProcess(phone_.root, wanted->process);
  if (!call.StillWaits()) return true;
  if (!process.IsOpen()) {
    call.Refuse(ENOENT);
    return true;
  }
  posix::FileDescriptor file;
  if (wanted->file == "task") {
    // A sanitizer lists a process's threads in order to stop them, and none can be stopped while it waits for
    // an answer. It does so from a process of its own.
    InterruptHeldCalls(wanted->process);
    file = ListThreads(phone_.root, process, ++thread_lists_);
  } else if ((flags & O_ACCMODE) != O_RDONLY || (flags & (O_PATH | O_DIRECTORY)) != 0) {
    errno = EACCES;
  } else {
    file.Reset(openat(process.Get(), wanted->file.c_str(), O_RDONLY | O_CLOEXEC));
  }
  if (file.IsOpen()) {
    call.AnswerWithDescriptor(file.Get(), (flags & O_CLOEXEC) != 0);
  } else {
    call.Refuse(errno);
  }
  return true;
}

void SystemCalls::OpenDevice(TrappedCall& call, DeviceModel& model, const std::string& path, int flags) {
  JournalEntry entry = {.kind = JournalKind::Open, .process = call.Thread(), .path = path, .flags = flags};
  OpenAnswer answer = model.Open({path, flags, call.Thread()});
  if (answer.error == 0 && answer.takes_requests && !answer.descriptor.IsOpen()) answer.error = EIO;
  if (answer.error != 0) {
    entry.error = answer.error;
    phone_.journal.Add(std::move(entry));
    return call.Refuse(answer.error);
  }
  struct stat status;
  const bool ordinary = !answer.descriptor.IsOpen();
  const posix::FileDescriptor file = ordinary ? phone_.root.Open(path, O_PATH) : posix::FileDescriptor();
  if (file.IsOpen() && fstat(file.Get(), &status) == 0) {
    descriptors_.Add(status, {&model, path, {}});
  } else if (answer.takes_requests && fstat(answer.descriptor.Get(), &status) == 0) {
    descriptors_.Add(status, {&model, path, answer.object});
  }
  phone_.journal.Add(std::move(entry));
  if (ordinary) return call.PassOn();
  call.AnswerWithDescriptor(answer.descriptor.Get(), (flags & O_CLOEXEC) != 0);
}

void SystemCalls::OpenOrdinary(TrappedCall& call, const std::string& path, int flags, bool exists) {
  DeviceModel* folder = FolderModelOf(path);
  const int refusal = folder != nullptr ? folder->Open({path, flags, call.Thread()}).error : 0;
  if (!IsLibraryPath(path)) {
    // The kernel's own answer comes after this entry; what stands here is what can be known before it.
    const int missing = exists || (flags & O_CREAT) != 0 ? 0 : ENOENT;
    phone_.journal.Add({.kind = JournalKind::Open,
                        .process = call.Thread(),
                        .path = path,
                        .flags = flags,
                        .error = refusal != 0 ? refusal : missing});
  }
  if (refusal != 0) return call.Refuse(refusal);
  call.PassOn();
}

// The first bytes of the file, as if it ended there.
void SystemCalls::OpenShortened(TrappedCall& call, const std::string& path, int64_t size, int flags) {
  std::string content;
  try {
    content = phone_.root.ReadFile(path);
  } catch (const std::runtime_error&) {
    return call.PassOn();
  }
  content.resize(std::min(content.size(), static_cast<size_t>(std::max<int64_t>(size, 0))));
  phone_.journal.Add({.kind = JournalKind::Open, .process = call.Thread(), .path = path, .flags = flags});
  call.AnswerWithDescriptor(TextSnapshot(content).Get(), (flags & O_CLOEXEC) != 0);
}

void SystemCalls::ReadLink(const CallPointer& call, int directory, size_t first) {
  const std::optional<std::string> text = ReadText(call->Thread(), call->Argument(first), PATH_MAX);
  if (!text) return call->PassOn();
  const std::optional<std::string> path = AbsolutePath(phone_.root, call->Thread(), directory, *text);
  if (!call->StillWaits()) return;
  const std::optional<ProcessFile> wanted = path ? FindProcessFile(call->Thread(), *path) : std::nullopt;
  if (!wanted || !wanted->file.ends_with("exe")) return call->PassOn();

  const posix::FileDescriptor process = HoldProcess(phone_.root, wanted->process);
  if (!process.IsOpen()) return call->Refuse(ENOENT);
  char target[PATH_MAX];
  const ssize_t length = readlinkat(process.Get(), wanted->file.c_str(), target, sizeof target);
  if (!call->StillWaits()) return;
  if (length < 0) return call->Refuse(errno);
  const std::string outside(target, static_cast<size_t>(length));
  const std::string answer = PhonePath(phone_.root, outside).value_or(outside);
  const size_t size = std::min<size_t>(answer.size(), call->Argument(first + 2));
  if (!WriteMemory(call->Thread(), call->Argument(first + 1), answer.data(), size))
    return call->Refuse(EFAULT);
  call->Answer(static_cast<int64_t>(size));
}

// The mode or owner of an open file: only of files and directories of the phone. The devices that it has open
// are the PC's.
void SystemCalls::ChangeOpenFile(const CallPointer& call) {
  const posix::FileDescriptor file(
      open(fmt::format("/proc/{}/fd/{}", call->Thread(), call->IntArgument(0)).c_str(), O_PATH | O_CLOEXEC));
  if (!call->StillWaits()) return;
  struct stat status, root;
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || fstat(phone_.root.Descriptor(), &root) != 0) {
    return call->Refuse(EBADF);
  }
  const bool changes = status.st_dev == root.st_dev && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode));
  const std::string path = fmt::format("/proc/self/fd/{}", file.Get());
  const auto mode = static_cast<mode_t>(call->Argument(1));
  if (!changes || (call->Kind() == Call::ChangeMode && (mode & (S_ISUID | S_ISGID)) != 0)) {
    return call->Refuse(EPERM);
  }
  const auto user = static_cast<uid_t>(call->Argument(1));
  const auto group = static_cast<gid_t>(call->Argument(2));
  // The phone's root is the user who runs the simulator.
  const int result = call->Kind() == Call::ChangeMode
                         ? chmod(path.c_str(), mode)
                         : chown(path.c_str(), user == 0 ? geteuid() : user, group == 0 ? getegid() : group);
  if (result != 0) return call->Refuse(errno);
  call->Answer(0);
}

}  // namespace simulator
