// The subcommands that are not about one command of the phone.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "station/link/port_list.h"
#include "station/tool/command_line.h"
#include "station/tool/protocol_page.h"
#include "station/tool/replay.h"
#include "station/tool/run_plan.h"

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

void AddRun(CLI::App& app, Invocation& invocation) {
  struct Given {
    std::string plan;
    std::vector<std::string> assignments;
    std::string report;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* run =
      app.add_subcommand("run", "run a test plan on all given ports at the same time")->group(GROUP);
  run->add_option("plan", given->plan, "plan file, JSON with comments")->type_name("FILE")->required();
  run->add_option("--set", given->assignments, "give a variable of the plan its value")
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false);
  run->add_option("--report", given->report,
                  "write report.html, report.json, report.xml (JUnit) and pictures into this folder")
      ->type_name("FOLDER");
  run->callback([&invocation, given] {
    invocation.own_subcommand = [given](const Settings& settings) {
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
  const std::unique_ptr<Trace> trace = OpenTrace(settings, port);
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

void AddReplay(CLI::App& app, Invocation& invocation) {
  struct Given {
    std::string file;
    double longest_pause = 10;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* replay =
      app.add_subcommand("replay", "send again what --trace recorded, and report the first different answer")
          ->group(GROUP);
  replay->add_option("trace", given->file, "trace file")->type_name("FILE")->required();
  replay
      ->add_option("--longest-pause", given->longest_pause,
                   "longest pause between two commands, in seconds; longer recorded pauses are shortened")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, 3600.0))
      ->capture_default_str();
  replay->callback([&invocation, given] {
    invocation.own_subcommand = [given](const Settings& settings) {
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

void AddPorts(CLI::App& app, Invocation& invocation) {
  CLI::App* ports = app.add_subcommand("ports", "list this computer's serial ports")->group(GROUP);
  ports->callback([&invocation] {
    invocation.own_subcommand = [](const Settings& settings) { return ShowPorts(settings.json); };
  });
}

void AddCommands(CLI::App& app, Invocation& invocation) {
  struct Given {
    bool markdown = false;
    bool manual = false;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* commands = app.add_subcommand("commands", "list all commands with their codes")->group(GROUP);
  auto* markdown = commands->add_flag("--markdown", given->markdown, "print the whole protocol page");
  commands->add_flag("--manual", given->manual, "print the list in the manual page's form")
      ->excludes(markdown);
  commands->callback([&invocation, given] {
    invocation.own_subcommand = [given](const Settings&) {
      fmt::print("{}", given->markdown ? ProtocolPage()
                       : given->manual ? ManualCommandList()
                                       : CommandList());
      return ExitStatus::Passed;
    };
  });
}

void AddCompletion(CLI::App& app, Invocation& invocation) {
  CLI::App* completion =
      app.add_subcommand("completion", "print the completion script for bash")->group(GROUP);
  completion->callback([&invocation] {
    invocation.own_subcommand = [](const Settings&) {
      fmt::print("{}", BashCompletion());
      return ExitStatus::Passed;
    };
  });
}

}  // namespace

void AddToolCommands(CLI::App& app, Invocation& invocation) {
  AddRun(app, invocation);
  AddReplay(app, invocation);
  AddPorts(app, invocation);
  AddCommands(app, invocation);
  AddCompletion(app, invocation);
}

}  // namespace station
