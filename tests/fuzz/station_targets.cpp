// What the station tool reads: answers, arguments, plans with their limits, and recorded traces. Whatever
// they hold, they are refused with the exception that leads to the right exit status.
#include <sys/mman.h>
#include <unistd.h>

#include "posix/file_descriptor.h"
#include "station/commands/command.h"
#include "station/commands/errors.h"
#include "station/plan/plan.h"
#include "station/tasks/operation.h"
#include "station/tool/recorded_trace.h"
#include "tests/fuzz/target.h"

namespace {

using namespace station;

class MemoryFile {
 public:
  explicit MemoryFile(const std::string& content) : file_(memfd_create("input", MFD_CLOEXEC)) {
    Check(write(file_.Get(), content.data(), content.size()) == static_cast<ssize_t>(content.size()), "room");
  }
  std::string Path() const {
    return "/proc/self/fd/" + std::to_string(file_.Get());
  }

 private:
  posix::FileDescriptor file_;
};

const Command& AnyCommand(Input& input) {
  return CommandTable()[input.Byte() % CommandTable().size()];
}

void TryAnswer(Input input) {
  const Command& command = AnyCommand(input);
  const std::vector<uint8_t> answer = input.Bytes(AnswerSize(command.answer));
  AnswerFailure(command, answer);
  const auto readings = DecodeAnswer(command.answer, answer);
  Check(!ReadingsJson(readings).dump().empty(), "readings can be reported");
  ReadingsText(readings);
}

void TryArguments(Input input) {
  const Command& command = AnyCommand(input);
  ArgumentValues given;
  for (const Argument& argument : command.request) {
    if (argument.kind == Argument::Kind::Content) return;  // the name of any file
    if (!input.IsEmpty()) given[argument.name] = input.Line();
  }
  try {
    size_t size = 0;
    for (const Argument& argument : command.request) size += argument.size;
    Check(EncodeRequest(command.request, given).size() == size, "a request has its size");
  } catch (const UsageError&) {
  }
}

void TryPlan(Input input) {
  const MemoryFile file(input.Text());
  try {
    LoadPlan(file.Path(), {{"given", "${name}"}}, {{"result", "out"}});
  } catch (const PlanError&) {
  }
}

// Two JSON texts, a line each: the limit and the value that it judges.
void TryLimit(Input input) {
  const auto limit = nlohmann::json::parse(input.Line(), nullptr, false);
  const auto value = nlohmann::json::parse(input.Line(), nullptr, false);
  if (limit.is_discarded() || value.is_discarded()) return;
  try {
    JudgeLimit(ParseLimit("reading", limit), value);
  } catch (const PlanError&) {
  }
}

void TryTrace(Input input) {
  const MemoryFile file("# phonetest trace 1\n" + input.Text());
  try {
    for (const RecordedPiece& piece : ReadTrace(file.Path())) {
      Check(piece.time >= std::chrono::milliseconds(0), "a piece has a time that can be waited for");
    }
  } catch (const UsageError&) {
  }
}

const bool added = AddTargets({{"answers", TryAnswer},
                               {"arguments", TryArguments},
                               {"plans", TryPlan},
                               {"limits", TryLimit},
                               {"traces", TryTrace}});

}  // namespace
