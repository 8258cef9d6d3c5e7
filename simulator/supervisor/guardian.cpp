#include "simulator/supervisor/guardian.h"

#include <fmt/format.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "posix/message_socket.h"
#include "simulator/phone/removal.h"
#include "simulator/supervisor/guardian_process.h"
#include "simulator/supervisor/phone_processes.h"
#include "simulator/supervisor/seccomp_filter.h"
#include "simulator/supervisor/task_group.h"

namespace simulator {
namespace {

std::string Refusal(const LinkReport& report) {
  const char* reason = strerrordesc_np(report.error);
  switch (report.step) {
    case StartStep::UserNamespace:
    case StartStep::ChangeRoot:
      return fmt::format(
          "A simulated phone needs chroot or a user namespace, and this machine allows neither here ({}).",
          reason);
    case StartStep::Filter:
      return fmt::format("A simulated phone needs seccomp user notification (Linux 5.9 or newer): {}.",
                         reason);
    case StartStep::Fork:
      break;
  }
  return fmt::format("A process of the simulated phone could not be started: {}.", reason);
}

// Where the kernel says nothing of a start that it refuses, the simulator must find more than the limit at
// one of its counts, whatever ends meanwhile.
unsigned KernelsMostTasks(unsigned limit) {
  return limit + limit / 4 + 2;
}

}  // namespace

Guardian::Guardian(std::string root, bool removes_root, int lock, std::string link_path,
                   std::string link_target, const PhoneLimits& limits)
    : root_(std::move(root)),
      removes_root_(removes_root),
      link_path_(std::move(link_path)),
      link_target_(std::move(link_target)),
      limits_(limits),
      // One above the limit, so the simulator sees that it is passed.
      task_group_(MakeTaskGroup(limits.tasks + 1)),
      filters_(MakeSystemCallFilters()) {
  int link[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, link) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  link_.Reset(link[0]);
  posix::FileDescriptor guardians_end(link[1]);
  process_ = fork();
  if (process_ == 0)
    RunGuardian({root_.c_str(), removes_root_, lock, link_path_.c_str(), link_target_.c_str(), &filters_,
                 limits_.disk, KernelsMostTasks(limits_.tasks), task_group_.c_str(), guardians_end.Get()});
  if (process_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
}

Guardian::~Guardian() {
  Finish();
}

StartedProgram Guardian::Start(const ProgramStart& program) {
  StartHeader header = {LinkKind::Start, ++last_number_, static_cast<uint32_t>(program.arguments.size() + 1),
                        static_cast<uint32_t>(program.environment.size()), program.controls_terminal};
  std::string message(reinterpret_cast<const char*>(&header), sizeof header);
  const auto add = [&message](const std::string& text) { message.append(text.c_str(), text.size() + 1); };
  add(program.path);
  for (const std::string& argument : program.arguments) add(argument);
  for (const std::string& setting : program.environment) add(setting);
  if (message.size() > MAX_LINK_MESSAGE ||
      !posix::SendMessage(link_.Get(), message.data(), message.size(), program.standard, 3)) {
    throw CannotSimulate(Refusal({LinkKind::Refused, 0, 0, 0, StartStep::Fork, errno, {}}));
  }

  posix::FileDescriptor listener;
  const LinkReport report = AwaitReport(listener);
  if (report.kind != LinkKind::Started) throw CannotSimulate(Refusal(report));
  // Dropped on the way, since no number was free: the program's calls would wait without end.
  if (!listener.IsOpen())
    throw CannotSimulate(Refusal({LinkKind::Refused, 0, 0, 0, StartStep::Fork, EMFILE, {}}));
  return {report.number, report.process, std::move(listener), report.confinement};
}

LinkReport Guardian::AwaitReport(posix::FileDescriptor& descriptor) {
  while (true) {
    LinkReport report;
    const posix::Message answer = posix::ReceiveMessage(link_.Get(), &report, sizeof report);
    if (answer.size != sizeof report) return {LinkKind::Refused, 0, 0, 0, StartStep::Fork, ECHILD, {}};
    descriptor.Reset(answer.descriptors[0]);
    if (report.kind != LinkKind::Ended) return report;
    ends_.push_back({report.number, report.status});
  }
}

void Guardian::KillAll() {
  const StartHeader header = {LinkKind::Kill, 0, 0, 0, 0};
  posix::FileDescriptor none;
  if (posix::SendMessage(link_.Get(), &header, sizeof header, nullptr, 0)) AwaitReport(none);
}

std::optional<EndedProgram> Guardian::TakeEnd() {
  if (ends_.empty()) {
    LinkReport report;
    const posix::Message message = posix::ReceiveMessage(link_.Get(), &report, sizeof report);
    if (message.size != sizeof report) return std::nullopt;
    return EndedProgram{report.number, report.status};
  }
  const EndedProgram end = ends_.front();
  ends_.pop_front();
  return end;
}

void Guardian::Finish() {
  if (process_ <= 0) return;
  link_.Reset();
  int status = 0;
  while (waitpid(process_, &status, 0) < 0 && errno == EINTR) continue;
  process_ = 0;
  if (WIFEXITED(status)) return;
  // The guardian was killed: we do its work.
  EndProcessesIn(root_);
  RemoveTaskGroup(task_group_.c_str());
  if (removes_root_) RemoveTree(root_.c_str());
  RemoveLink(link_path_.c_str(), link_target_.c_str());
}

}  // namespace simulator
