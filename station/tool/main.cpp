// phonetest: the station's side of the factory and service test protocol.
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <memory>

#include "station/commands/errors.h"
#include "station/tool/command_line.h"
#include "station/tool/output.h"

namespace station {

namespace {

// Asks at the terminal. Throws UsageError when there is nobody to ask.
bool Confirmed(const std::string& question) {
  if (isatty(STDIN_FILENO) == 0) {
    throw UsageError(question + " There is no terminal to ask at: give --yes to do it");
  }
  fmt::print(stderr, "{} [y/N] ", question);
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

ExitStatus RunOperation(const Request& request) {
  const Settings& settings = request.settings;
  const Operation& operation = *request.operation;
  const std::string port = ChosenPort(settings);
  if (!operation.question.empty() && !settings.yes && !Confirmed(operation.question)) {
    fmt::print(stderr, "not done\n");
    return ExitStatus::Usage;
  }
  try {
    std::unique_ptr<Trace> trace;
    if (!settings.trace_file.empty()) trace = std::make_unique<Trace>(settings.trace_file, port);
    Link link(port, trace.get());
    Session session(link, {settings.answer_time, isatty(STDERR_FILENO) != 0});
    const Outcome outcome = Perform(operation, session, request.arguments);
    ShowOutcome(operation, session, outcome, settings.json);
    return outcome.failure.empty() ? ExitStatus::Passed : ExitStatus::DeviceFailure;
  } catch (const LinkFailure& failure) {
    ShowLinkFailure(operation, port, failure.what(), settings.json);
    return ExitStatus::LinkFailure;
  }
}

ExitStatus Run(int count, char** words) {
  CLI::App app("Test commands for a phone on a serial port.", "phonetest");
  Request request;
  DescribeCommandLine(app, request);
  try {
    app.parse(count, words);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? ExitStatus::Passed : ExitStatus::Usage;
  }
  return request.action ? request.action() : RunOperation(request);
}

}  // namespace

}  // namespace station

int main(int count, char** words) {
  // A link that closes is reported, not fatal.
  std::signal(SIGPIPE, SIG_IGN);
  station::ExitStatus status{};
  try {
    status = station::Run(count, words);
  } catch (const station::UsageError& error) {
    fmt::print(stderr, "phonetest: {}\n", error.what());
    status = station::ExitStatus::Usage;
  } catch (const station::LinkFailure& error) {
    fmt::print(stderr, "phonetest: {}\n", error.what());
    status = station::ExitStatus::LinkFailure;
  } catch (const station::PlanError& error) {
    fmt::print(stderr, "phonetest: {}\n", error.what());
    status = station::ExitStatus::PlanError;
  } catch (const std::exception& error) {
    fmt::print(stderr, "phonetest: {}\n", error.what());
    status = station::ExitStatus::Usage;
  }
  return static_cast<int>(status);
}
