// phonetest: the station's side of the factory and service test protocol.
#include <fmt/format.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <memory>

#include "posix/whole_output.h"
#include "station/commands/clean_text.h"
#include "station/commands/errors.h"
#include "station/tool/command_line.h"
#include "station/tool/output.h"

namespace station {

namespace {

// Asks at the terminal. Throws UsageError if there is none.
bool Confirmed(const std::string& question) {
  if (isatty(STDIN_FILENO) == 0) {
    throw UsageError(question + " There is no terminal for the question: use --yes to do it");
  }
  fmt::print(stderr, "{} [y/N] ", question);
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

ExitStatus RunOperation(const Invocation& invocation) {
  const Settings& settings = invocation.settings;
  const Operation& operation = *invocation.operation;
  const std::string port = ChosenPort(settings);
  if (!operation.question.empty() && !settings.yes && !Confirmed(operation.question)) {
    fmt::print(stderr, "not done\n");
    return ExitStatus::Usage;
  }
  try {
    const std::unique_ptr<Trace> trace = OpenTrace(settings, port);
    Link link(port, trace.get());
    Session session(link, {settings.answer_time, isatty(STDERR_FILENO) != 0});
    const Outcome outcome = Perform(operation, session, invocation.arguments);
    ShowOutcome(operation, session, outcome, settings.json);
    return outcome.failure.empty() ? ExitStatus::Passed : ExitStatus::DeviceFailure;
  } catch (const LinkFailure& failure) {
    ShowLinkFailure(operation, port, failure.what(), settings.json);
    return ExitStatus::LinkFailure;
  }
}

ExitStatus Run(int count, char** words) {
  auto parsed = ParseCommandLine(count, words);
  if (const auto* status = std::get_if<ExitStatus>(&parsed)) return *status;
  auto& invocation = std::get<Invocation>(parsed);
  const ToolCommand* tool_command = invocation.tool_command;
  if (tool_command == nullptr || tool_command->configured) {
    invocation.settings.configuration = LoadConfiguration();
  }
  if (tool_command != nullptr) return tool_command->run(invocation.settings, invocation.given);
  return RunOperation(invocation);
}

ExitStatus Fail(const std::exception& error, ExitStatus status) {
  fmt::print(stderr, "phonetest: {}\n", CleanText(error.what()));
  return status;
}

// The exit status of the whole program.
ExitStatus RunAndReport(int count, char** words) {
  try {
    return Run(count, words);
  } catch (const LinkFailure& error) {
    return Fail(error, ExitStatus::LinkFailure);
  } catch (const PlanError& error) {
    return Fail(error, ExitStatus::PlanError);
  } catch (const OutputLost& error) {
    posix::TellLostOutput(error.what());
    return ExitStatus::OutputLost;
  } catch (const std::exception& error) {
    return Fail(error, ExitStatus::Usage);
  }
}

}  // namespace

}  // namespace station

int main(int count, char** words) {
  // A link that closes is reported; it must not end the program.
  std::signal(SIGPIPE, SIG_IGN);
  posix::HoldStandardDescriptors();
  const station::ExitStatus status = station::RunAndReport(count, words);
  posix::FinishOutput();
  return posix::IsOutputLost() ? posix::OUTPUT_LOST_STATUS : static_cast<int>(status);
}
