// The start of a program.
#include <cerrno>
#include <filesystem>
#include <utility>

#include "simulator/supervisor/phone_paths.h"
#include "simulator/supervisor/process_memory.h"
#include "simulator/supervisor/system_calls.h"

namespace simulator {
namespace {

// The command line of `sh -c TEXT`, as `system` and `popen` start it.
std::optional<std::string> ShellText(const std::string& path, const std::vector<std::string>& arguments) {
  if (std::filesystem::path(path).filename() != "sh" || arguments.size() < 3 || arguments[1] != "-c") {
    return std::nullopt;
  }
  return arguments[2] == "--" && arguments.size() > 3 ? arguments[3] : arguments[2];
}

}  // namespace

void SystemCalls::Exec(const CallPointer& call, int directory, size_t first) {
  const std::optional<std::string> text = ReadText(call->Thread(), call->Argument(first), PATH_MAX);
  const auto arguments = ReadTextList(call->Thread(), call->Argument(first + 1), call->Narrow());
  if (!text || text->empty() || !arguments || !call->StillWaits()) return call->PassOn();
  const std::optional<std::string> absolute = AbsolutePath(phone_.root, call->Thread(), directory, *text);
  if (!absolute) return call->PassOn();
  // A tool that is a link is known by its own name, not by that of the program that plays it.
  const std::string path = std::filesystem::path(*absolute).lexically_normal();
  const ResolvedPath resolved = ResolvePath(phone_.root, path);
  if (!resolved.exists) return call->PassOn();

  JournalEntry entry = {
      .kind = JournalKind::Tool, .process = call->Thread(), .path = path, .arguments = *arguments};
  if (const std::optional<std::string> command = ShellText(path, *arguments)) {
    entry = {.kind = JournalKind::Shell, .process = call->Thread(), .text = *command};
  }
  FaultRule rule;
  if (const auto strike = faults_.Strike(FaultCall::Exec, path)) rule = *strike;
  After(rule, call, [this, call, rule, entry, path, arguments = *arguments]() mutable {
    if (StrikeDead(rule, *call, entry)) return;
    DeviceModel* model = ModelOf(path);
    if (model != nullptr) entry.error = model->Exec({path, std::move(arguments), call->Thread()});
    const int error = entry.error;
    phone_.journal.Add(std::move(entry));
    if (error != 0) return call->Refuse(error);
    call->PassOn();
  });
}

}  // namespace simulator
