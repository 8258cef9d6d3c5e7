#include "station/tool/tool_commands.h"

#include <fmt/format.h>

#include <memory>

#include "station/link/port_list.h"
#include "station/plan/execution.h"
#include "station/tool/completion.h"
#include "station/tool/protocol_page.h"
#include "station/tool/replay.h"

namespace station {

namespace {

constexpr const char* GROUP = "Plans and tools";

std::map<std::string, std::string> ParseAssignments(const std::vector<std::string>& assignments) {
  std::map<std::string, std::string> values;
  for (const std::string& assignment : assignments) {
    const std::size_t equals = assignment.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw UsageError(fmt::format("--set: '{}' is not NAME=VALUE", assignment));
    }
    values[assignment.substr(0, equals)] = assignment.substr(equals + 1);
  }
  return values;
}

void AddRun(CLI::App& app, Request& request) {
  struct Given {
    std::string plan;
    std::vector<std::string> assignments;
    std::string report;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* run = app.add_subcommand("run", "run a test plan, on each --port at the same time")->group(GROUP);
  run->add_option("plan", given->plan, "plan file, JSON with comments")->type_name("FILE")->required();
  run->add_option("--set", given->assignments, "give a variable of the plan its value")
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false);
  run->add_option("--report", given->report,
                  "write report.html, report.json, report.xml (JUnit) and pictures there")
      ->type_name("FOLDER");
  run->callback([&request, given] {
    request.action = [&settings = request.settings, given] {
      return ExecutePlan({.plan_file = given->plan,
                          .ports = ChosenPorts(settings),
                          .variables = ParseAssignments(given->assignments),
                          .report_folder = given->report,
                          .trace_file = settings.trace_file,
                          .answer_time = settings.answer_time,
                          .always_yes = settings.yes,
                          .json = settings.json});
    };
  });
}

ExitStatus RunReplay(const Settings& settings, const std::string& file, double longest_pause) {
  const std::string port = ChosenPort(settings);
  std::unique_ptr<Trace> trace;
  if (!settings.trace_file.empty()) trace = std::make_unique<Trace>(settings.trace_file, port);
  Link link(port, trace.get());
  const std::chrono::duration<double> pause(longest_pause);
  const ReplayResult result =
      Replay(link, {.trace_file = file,
                    .longest_pause = std::chrono::ceil<std::chrono::milliseconds>(pause),
                    .answer_time = settings.answer_time});
  const bool same = result.difference.empty();
  if (settings.json) {
    nlohmann::ordered_json json = {{"result", same ? "same" : "different"},
                                   {"bytes-sent", result.sent},
                                   {"bytes-received", result.received}};
    if (!same) json["difference"] = result.difference;
    fmt::print("{}\n", json.dump(2));
  } else if (same) {
    fmt::print("{} bytes sent, {} bytes received: no difference\n", result.sent, result.received);
  } else {
    fmt::print(stderr, "phonetest: {}\n", result.difference);
  }
  return same ? ExitStatus::Passed : ExitStatus::DeviceFailure;
}

void AddReplay(CLI::App& app, Request& request) {
  struct Given {
    std::string file;
    double longest_pause = 10;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* replay =
      app.add_subcommand("replay", "send again what a --trace recorded and report the first different answer")
          ->group(GROUP);
  replay->add_option("trace", given->file, "trace file")->type_name("FILE")->required();
  replay
      ->add_option("--longest-pause", given->longest_pause,
                   "the recorded pauses between commands are kept, up to so many seconds")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, 3600.0))
      ->capture_default_str();
  replay->callback([&request, given] {
    request.action = [&settings = request.settings, given] {
      return RunReplay(settings, given->file, given->longest_pause);
    };
  });
}

ExitStatus ShowPorts(bool json) {
  const std::vector<PortDescription> ports = ListPorts();
  if (!json) {
    fmt::print("{}", ports.empty() ? "no serial port\n" : PortTable(ports));
    return ExitStatus::Passed;
  }
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const PortDescription& port : ports) {
    list.push_back(
        {{"port", port.path}, {"usb", port.usb}, {"name", port.name}, {"serial-number", port.serial_number}});
  }
  fmt::print("{}\n", list.dump(2));
  return ExitStatus::Passed;
}

void AddPorts(CLI::App& app, Request& request) {
  CLI::App* ports = app.add_subcommand("ports", "list this computer's serial ports")->group(GROUP);
  ports->callback(
      [&request] { request.action = [&settings = request.settings] { return ShowPorts(settings.json); }; });
}

void AddCommands(CLI::App& app, Request& request) {
  struct Given {
    bool markdown = false;
    bool manual = false;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* commands = app.add_subcommand("commands", "list all commands with their codes")->group(GROUP);
  auto* markdown = commands->add_flag("--markdown", given->markdown, "the whole protocol page instead");
  commands->add_flag("--manual", given->manual, "the manual page's list instead")->excludes(markdown);
  commands->callback([&request, given] {
    request.action = [given] {
      fmt::print("{}", given->markdown ? ProtocolPage()
                       : given->manual ? ManualCommandList()
                                       : CommandList());
      return ExitStatus::Passed;
    };
  });
}

void AddCompletion(CLI::App& app, Request& request) {
  CLI::App* completion =
      app.add_subcommand("completion", "print the completion script for bash")->group(GROUP);
  completion->callback([&app, &request] {
    request.action = [&app] {
      fmt::print("{}", BashCompletion(app));
      return ExitStatus::Passed;
    };
  });
}

}  // namespace

void AddToolCommands(CLI::App& app, Request& request) {
  AddRun(app, request);
  AddReplay(app, request);
  AddPorts(app, request);
  AddCommands(app, request);
  AddCompletion(app, request);
}

}  // namespace station
