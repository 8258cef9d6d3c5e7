#include "tests/phone/call_tracer.h"

#include <asm/ioctls.h>
#include <fcntl.h>
#include <linux/audit.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#ifndef __x86_64__
#error "the registers of a call are those of x86-64 and i386"
#endif

namespace {

constexpr unsigned long OPTIONS =
    PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE;
constexpr int CALL_STOP = SIGTRAP | 0x80;  // PTRACE_O_TRACESYSGOOD marks the stops at calls with bit 7
constexpr int WAKE_SIGNAL = SIGURG;
constexpr size_t MEMORY_PAGE = 4096;

void* AsPointer(unsigned long value) {
  return reinterpret_cast<void*>(value);
}

void Resume(pid_t thread, int signal = 0) {
  ptrace(PTRACE_SYSCALL, thread, nullptr, AsPointer(static_cast<unsigned long>(signal)));
}

template <typename Change>
void ChangeRegisters(pid_t thread, Change change) {
  user_regs_struct registers{};
  ptrace(PTRACE_GETREGS, thread, nullptr, &registers);
  change(registers);
  ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
}

bool IsControl(const TracedCall& call) {
  return call.number == (call.narrow ? 54 : 16);  // ioctl
}

bool IsFileControl(const TracedCall& call) {
  return call.narrow ? call.number == 55 || call.number == 221 : call.number == 72;  // fcntl, fcntl64
}

}  // namespace

bool TracedCall::IsRead() const {
  return number == (narrow ? 3 : 0);
}

bool TracedCall::IsWrite() const {
  return number == (narrow ? 4 : 1);
}

bool TracedCall::IsClose() const {
  return number == (narrow ? 6 : 3);
}

bool TracedCall::IsSync() const {
  return number == (narrow ? 118 : 74);
}

bool TracedCall::IsAccess() const {
  return number == (narrow ? 33 : 21);
}

std::string TracedCall::DescriptorPath() const {
  if (arguments[0] > 1024) return {};
  std::error_code error;
  const std::string process = "/proc/" + std::to_string(thread);
  return std::filesystem::read_symlink(process + "/fd/" + std::to_string(arguments[0]), error);
}

std::string TracedCall::WrittenBytes() const {
  return Memory(arguments[1], Size());
}

std::string TracedCall::Memory(uint64_t address, size_t size) const {
  std::string bytes(size, '\0');
  const iovec here = {bytes.data(), bytes.size()};
  const iovec there = {AsPointer(address), bytes.size()};
  const ssize_t read = process_vm_readv(thread, &here, 1, &there, 1, 0);
  bytes.resize(static_cast<size_t>(std::max<ssize_t>(read, 0)));
  return bytes;
}

uint64_t TracedCall::FilePosition() const {
  std::ifstream info("/proc/" + std::to_string(thread) + "/fdinfo/" + std::to_string(arguments[0]));
  std::string label;  // "pos:"
  uint64_t position = 0;
  info >> label >> position;
  return position;
}

std::string TracedCall::PathArgument(size_t index) const {
  std::string text;
  // Up to the end of the page and on from the next: there may be none after the path.
  for (uint64_t address = arguments[index]; text.size() < PATH_MAX;) {
    char bytes[MEMORY_PAGE];
    const size_t size = MEMORY_PAGE - address % MEMORY_PAGE;
    const iovec here = {bytes, size};
    const iovec there = {AsPointer(address), size};
    const ssize_t read = process_vm_readv(thread, &here, 1, &there, 1, 0);
    if (read <= 0 || (text.empty() && bytes[0] != '/')) return {};
    const size_t length = strnlen(bytes, static_cast<size_t>(read));
    text.append(bytes, length);
    if (length < static_cast<size_t>(read)) break;
    address += static_cast<uint64_t>(read);
  }
  return text;
}

struct CallTracer::Tracee {
  pid_t thread;
  CallFate fate;  // of the call that it is in
};

CallTracer::CallTracer(pid_t process, Decide decide) : decide_(std::move(decide)) {
  struct sigaction action {};
  action.sa_handler = [](int) {};  // without SA_RESTART: it only ends a wait
  sigaction(WAKE_SIGNAL, &action, nullptr);
  std::promise<bool> started;
  std::future<bool> attached = started.get_future();
  thread_ = std::thread([this, process, started = std::move(started)]() mutable { Trace(process, started); });
  if (attached.get()) return;
  thread_.join();
  throw std::runtime_error("the server cannot be traced");
}

CallTracer::~CallTracer() {
  ending_ = true;
  while (!ended_) {
    pthread_kill(thread_.native_handle(), WAKE_SIGNAL);
    usleep(1000);
  }
  thread_.join();  // the end of the thread sets its tracees free
}

void CallTracer::Trace(pid_t process, std::promise<bool>& started) {
  const bool attached = ptrace(PTRACE_SEIZE, process, nullptr, AsPointer(OPTIONS)) == 0 &&
                        ptrace(PTRACE_INTERRUPT, process, nullptr, nullptr) == 0;
  if (attached) {
    int status = 0;
    waitpid(process, &status, __WALL);
    tracees_.push_back({process, {}});
    Resume(process);
  }
  started.set_value(attached);
  while (attached && !ending_) {
    int status = 0;
    // This thread's tracees only: other children of the test are waited for elsewhere.
    const pid_t thread = waitpid(-1, &status, __WALL | __WNOTHREAD);
    if (thread < 0 && errno != EINTR) break;
    if (thread > 0) Changed(thread, status);
  }
  ended_ = true;
}

void CallTracer::Changed(pid_t thread, int status) {
  if (!WIFSTOPPED(status)) {
    std::erase_if(tracees_, [&](const Tracee& tracee) { return tracee.thread == thread; });
    return;
  }
  auto tracee = std::ranges::find(tracees_, thread, &Tracee::thread);
  if (tracee == tracees_.end()) tracee = tracees_.insert(tracees_.end(), {thread, {}});  // just forked
  if (power_cut_) {
    kill(thread, SIGKILL);
  } else if (WSTOPSIG(status) == CALL_STOP) {
    AtCall(*tracee);
  } else {
    // A signal on its way, or one of the tracer's own events.
    Resume(thread, status >> 16 == 0 ? WSTOPSIG(status) : 0);
  }
}

void CallTracer::AtCall(Tracee& tracee) {
  __ptrace_syscall_info info{};
  ptrace(PTRACE_GET_SYSCALL_INFO, tracee.thread, AsPointer(sizeof info), &info);
  if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
    TracedCall call = {tracee.thread, info.arch == AUDIT_ARCH_I386, info.entry.nr, {}};
    std::ranges::copy(info.entry.args, call.arguments.begin());
    tracee.fate = decide_(call);
    Begin(tracee);
  } else {
    Finish(tracee);
  }
}

void CallTracer::Begin(const Tracee& tracee) {
  using Kind = CallFate::Kind;
  const CallFate& fate = tracee.fate;
  if (fate.kind == Kind::PowerCut && fate.size == 0) return CutPower();
  if (fate.kind == Kind::Shortened || fate.kind == Kind::PowerCut) {
    // The third argument's register is the same one in both word sizes.
    ChangeRegisters(tracee.thread, [&](user_regs_struct& registers) { registers.rdx = fate.size; });
  } else if (fate.kind == Kind::Refused) {
    ChangeRegisters(tracee.thread, [](user_regs_struct& registers) { registers.orig_rax = ~0ULL; });
  }
  Resume(tracee.thread);
}

void CallTracer::Finish(const Tracee& tracee) {
  if (tracee.fate.kind == CallFate::Kind::PowerCut) return CutPower();
  if (tracee.fate.kind == CallFate::Kind::Refused) {
    ChangeRegisters(tracee.thread, [&](user_regs_struct& registers) {
      registers.rax = static_cast<unsigned long long>(-static_cast<long long>(tracee.fate.error));
    });
  }
  Resume(tracee.thread);
}

// Another process stops at its next call at the latest, so nothing more happens to the files.
void CallTracer::CutPower() {
  power_cut_ = true;
  for (const Tracee& tracee : tracees_) kill(tracee.thread, SIGKILL);
}

TerminalCalls::TerminalCalls(pid_t server)
    : tracer_(server, [this](const TracedCall& call) { return Note(call); }) {}

CallFate TerminalCalls::Note(const TracedCall& call) {
  std::string text;
  if (IsFileControl(call) && call.arguments[1] == F_SETFL) {
    text = "flags " + std::to_string(call.arguments[2]);
  } else if (IsControl(call) && call.arguments[1] == TCFLSH) {
    text = "flush " + std::to_string(call.arguments[2]);
  } else if (IsControl(call) && call.arguments[1] == TCSETS) {
    text = "set";
  } else {
    return {};
  }
  const std::lock_guard lock(mutex_);
  entries_.push_back({call.DescriptorPath(), std::move(text)});
  return {};
}

std::vector<std::string> TerminalCalls::Of(const std::string& terminal) const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> texts;
  for (const Entry& entry : entries_) {
    if (entry.terminal == terminal) texts.push_back(entry.text);
  }
  return texts;
}
