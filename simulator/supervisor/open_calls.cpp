// Opening a path and reading a link.
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string_view>
#include <utility>

#include "simulator/phone/device_descriptors.h"
#include "simulator/supervisor/phone_paths.h"
#include "simulator/supervisor/phone_processes.h"
#include "simulator/supervisor/system_calls.h"

namespace simulator {
namespace {

// Opens of the dynamic loader, the C library and the emulator, which tell nothing about the phone.
bool IsLibraryPath(std::string_view path) {
  for (const std::string_view start : {"/lib", "/usr/lib", "/etc/ld.so", "/usr/share/locale",
                                       "/etc/localtime", "/proc/sys/vm/mmap_min_addr"}) {
    if (path.starts_with(start)) return true;
  }
  return false;
}

}  // namespace

void SystemCalls::OpenExtensible(const CallPointer& call) {
  open_how how = {};
  if (!ReadMemory(call->Thread(), call->Argument(2), &how, sizeof how)) return call->PassOn();
  Open(call, call->IntArgument(0), call->Argument(1), static_cast<int>(how.flags));
}

void SystemCalls::Open(const CallPointer& call, int directory, uint64_t path_address, int flags) {
  const std::optional<std::string> text = ReadText(call->Thread(), path_address, PATH_MAX);
  if (!text || text->empty()) return call->PassOn();
  const std::optional<std::string> path = AbsolutePath(phone_.root, call->Thread(), directory, *text);
  if (!call->StillWaits()) return;
  if (!path) return call->Refuse(ENOENT);
  if (OpenRealProcessFile(*call, *path, flags)) return;

  const ResolvedPath resolved = ResolvePath(phone_.root, *path, (flags & O_NOFOLLOW) == 0);
  FaultRule rule;
  if (const auto strike = faults_.Strike(FaultCall::Open, resolved.path)) rule = *strike;
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

bool SystemCalls::OpenRealProcessFile(TrappedCall& call, const std::string& path, int flags) {
  const std::optional<std::string> real = RealProcessFile(call.Thread(), path);
  if (!real) return false;
  // A sanitizer lists a process's threads in order to stop them, and none can be stopped while it waits for
  // an answer. It does so from a process of its own.
  int process = 0;
  if (real->ends_with("/task") && sscanf(real->c_str(), "/proc/%d/", &process) == 1)
    InterruptHeldCalls(process);
  const posix::FileDescriptor file(open(real->c_str(), (flags & (O_ACCMODE | O_DIRECTORY)) | O_CLOEXEC));
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
  if (ordinary && stat(phone_.root.Outside(path).c_str(), &status) == 0) {
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
  const std::optional<std::string> real = path ? RealProcessFile(call->Thread(), *path) : std::nullopt;
  if (!real || !real->ends_with("/exe")) return call->PassOn();

  char target[PATH_MAX];
  const ssize_t length = readlink(real->c_str(), target, sizeof target);
  if (length < 0) return call->Refuse(errno);
  const std::string outside(target, static_cast<size_t>(length));
  const std::string answer = PhonePath(phone_.root, outside).value_or(outside);
  const size_t size = std::min<size_t>(answer.size(), call->Argument(first + 2));
  if (!WriteMemory(call->Thread(), call->Argument(first + 1), answer.data(), size))
    return call->Refuse(EFAULT);
  call->Answer(static_cast<int64_t>(size));
}

}  // namespace simulator
