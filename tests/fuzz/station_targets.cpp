// What the station tool reads: answers, arguments, plans with their limits, recorded traces, configurations
// and what a serial server sends. Whatever they hold, they are refused with the exception that leads to the
// right exit status.
#include <sys/mman.h>
#include <unistd.h>

#include "posix/file_descriptor.h"
#include "station/commands/command.h"
#include "station/commands/errors.h"
#include "station/configuration/configuration_file.h"
#include "station/link/telnet.h"
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

void TryConfiguration(Input input) {
  const MemoryFile file(input.Text());
  try {
    for (const Slot& slot : ReadConfigurationFile(file.Path()).slots)
      Check(!slot.name.empty(), "a slot's name");
  } catch (const UsageError&) {
  }
}

// A stream taken in pieces of any size is the same as in one, and escaped data comes back.
void TryTelnet(Input input) {
  const size_t piece = 1 + input.Byte() % 16;
  const std::string text = input.Text();
  const Bytes stream(text.begin(), text.end());
  const auto decode = [](Bytes received, size_t step) {
    telnet::Decoder decoder;
    std::pair<Bytes, std::vector<Bytes>> taken;
    for (size_t at = 0; at < received.size(); at += step) {
      const auto room = std::span(received).subspan(at, std::min(step, received.size() - at));
      const size_t size =
          decoder.Decode(room, [&](const Bytes& command) { taken.second.push_back(command); });
      taken.first.insert(taken.first.end(), room.begin(), room.begin() + static_cast<std::ptrdiff_t>(size));
    }
    return taken;
  };
  const auto whole = decode(stream, std::max<size_t>(stream.size(), 1));
  Check(decode(stream, piece) == whole, "the pieces make no difference");
  for (const Bytes& command : whole.second)
    Check(command.size() >= 1 && command.size() <= 64, "a command's size");
  Bytes escaped;
  telnet::AppendEscaped(escaped, stream);
  Check(decode(escaped, piece) == std::pair(stream, std::vector<Bytes>()), "escaped data comes back");
}

const bool added = AddTargets({{"answers", TryAnswer},
                               {"arguments", TryArguments},
                               {"plans", TryPlan},
                               {"limits", TryLimit},
                               {"traces", TryTrace},
                               {"configurations", TryConfiguration},
                               {"telnet", TryTelnet}});

}  // namespace
