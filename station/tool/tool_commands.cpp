// The subcommands that are not about one command of the phone.
#include <fmt/format.h>

#include <charconv>

#include "posix/whole_output.h"
#include "station/commands/clean_text.h"
#include "station/configuration/slots.h"
#include "station/plan/plan_search.h"
#include "station/tool/campaign_command.h"
#include "station/tool/check_plan.h"
#include "station/tool/command_line.h"
#include "station/tool/given_options.h"
#include "station/tool/protocol_page.h"
#include "station/tool/recorded_trace.h"
#include "station/tool/replay.h"
#include "station/tool/results_commands.h"
#include "station/tool/run_plan.h"
#include "station/tool/serve.h"
#include "station/tool/show_configuration.h"

namespace station {

namespace {

using Given = ToolCommand::Given;
using Kind = ToolCommand::Option::Kind;

std::map<std::string, std::string> SlotsOf(const std::vector<std::string>& ports,
                                           const Configuration& configuration) {
  const std::vector<PortDescription> plugged_in = ListPorts();
  std::map<std::string, std::string> slots;
  for (const std::string& port : ports) {
    const std::string slot = SlotOf(port, configuration, plugged_in);
    if (!slot.empty()) slots[port] = slot;
  }
  return slots;
}

ExitStatus Run(const Settings& settings, Given& given) {
  const bool check = !given["check"].empty();
  const bool list = !given["list"].empty();
  if (check && list) throw UsageError("--check and --list exclude each other");
  if (check || list) {
    const PlanQuestion question = {.plan_file = FindPlan(OnlyText(given, "plan")),
                                   .variables = ParseAssignments("--set", given["set"]),
                                   .port = settings.ports.empty() ? "" : settings.ports.front(),
                                   .answers = OnlyText(given, "answers"),
                                   .json = settings.json};
    return check ? CheckPlan(question) : ListPlan(question);
  }
  const Configuration& configuration = settings.configuration;
  const std::vector<std::string> ports = ChosenPorts(settings);
  return ExecutePlan({.plan_file = FindPlan(OnlyText(given, "plan")),
                      .ports = ports,
                      .slots = SlotsOf(ports, configuration),
                      .variables = ParseAssignments("--set", given["set"]),
                      .report_folder = OnlyText(given, "report"),
                      .reports_folder = configuration.Text("reports"),
                      .station = OnlyText(given, "station", StationName(configuration)),
                      .person = OnlyText(given, "operator", configuration.Text("operator")),
                      .trace_file = settings.trace_file,
                      .answer_time = settings.answer_time,
                      .answers = OnlyText(given, "answers"),
                      .json = settings.json,
                      .results = GivenResults(settings, given),
                      .attached = given["attach"],
                      .retest_reason = OnlyText(given, "retest-reason"),
                      .reserve = GivenCount(given, "reserve", 0, MOST_RESERVED)});
}

std::chrono::milliseconds ParsePause(const std::string& text) {
  constexpr double LONGEST = 3600;
  double seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc{} || end != text.data() + text.size() || !(seconds >= 0 && seconds <= LONGEST)) {
    throw UsageError(fmt::format("--longest-pause: '{}' is not a number from 0 to {} s", text, LONGEST));
  }
  return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
}

ExitStatus RunReplay(const Settings& settings, Given& given) {
  const std::chrono::milliseconds longest_pause = ParsePause(OnlyText(given, "longest-pause", "10"));
  const IgnoredFields ignored(given["ignore"]);
  const std::string port = ChosenPort(settings);
  ReadTrace(OnlyText(given, "trace"));  // a wrong file is told before the port is opened
  const std::unique_ptr<Trace> trace = OpenTrace(settings, port);
  Link link(port, trace.get());
  const ReplayResult result = Replay(link, {.trace_file = OnlyText(given, "trace"),
                                            .longest_pause = longest_pause,
                                            .answer_time = settings.answer_time,
                                            .ignored = ignored});
  const bool same = result.difference.empty();
  if (settings.json) {
    nlohmann::ordered_json json = {{"result", same ? "same" : "different"},
                                   {"bytes-sent", result.sent},
                                   {"bytes-received", result.received}};
    if (!same) {
      json["difference"] = result.difference;
      json["line"] = result.line;
      json["command"] = result.explanation.command;
      json["field"] = result.explanation.field;
      json["recorded"] = result.explanation.recorded;
      json["now"] = result.explanation.now;
    }
    posix::Print("{}\n", JsonText(json));
  } else if (same) {
    posix::Print("{} bytes sent, {} bytes received: no difference\n", result.sent, result.received);
  } else {
    fmt::print(stderr, "phonetest: {}\n", CleanText(result.difference));
  }
  return same ? ExitStatus::Passed : ExitStatus::DeviceFailure;
}

ExitStatus ShowCommands(const Settings&, Given& given) {
  const bool markdown = !given["markdown"].empty();
  const bool manual = !given["manual"].empty();
  if (markdown && manual) throw UsageError("--markdown and --manual exclude each other");
  posix::Print("{}", markdown ? ProtocolPage() : manual ? ManualCommandList() : CommandList());
  return ExitStatus::Passed;
}

ExitStatus ShowCompletion(const Settings&, Given& given) {
  const std::string kind = OnlyText(given, "kind");
  if (kind.empty()) {
    posix::Print("{}", BashCompletion());
  } else if (kind == "plans") {
    for (const std::string& name : PlanNames()) posix::Print("{}\n", name);
  } else if (kind == "ports") {
    for (const std::string& name : PortNames()) posix::Print("{}\n", name);
  } else {
    throw UsageError(fmt::format("'{}' is neither plans nor ports", kind));
  }
  return ExitStatus::Passed;
}

}  // namespace

const std::vector<ToolCommand>& ToolCommands() {
  static const std::vector<ToolCommand> commands = [] {
    std::vector<ToolCommand> all = {
        {"run",
         "run a test plan on all given ports at the same time",
         {{Kind::Positional, "plan", "plan: a file (JSON with comments), or the name of an installed one",
           "PLAN"},
          {Kind::Repeated, "set", "set a variable of the plan", "NAME=VALUE"},
          {Kind::Flag, "check",
           "only check the plan, and the answers if given: tell the mistakes, and touch no phone"},
          {Kind::Flag, "list", "only list the plan's steps with their limits, and touch no phone"},
          {Kind::Text, "answers",
           "answer the plan's questions for a script: pass, fail, or a JSON file of these by the steps' "
           "names",
           "pass|fail|FILE"},
          {Kind::Text, "report",
           "write report.html, report.json, report.xml (JUnit) and pictures into this folder [a new one in "
           "the "
           "configured folder]",
           "FOLDER"},
          {Kind::Text, "station",
           "name of this station for the report [as configured, or this computer's name]", "NAME"},
          {Kind::Text, "operator", "name of the operator for the report [as configured]", "NAME"},
          ResultsOption(),
          {Kind::Flag, "no-results", "do not store the run in a database"},
          {Kind::Text, "reserve",
           "numbers of each pool that the plan draws from, kept for this station for when the database is "
           "away [0]",
           "COUNT"},
          {Kind::Text, "retest-reason",
           "why a phone that has passed is tested again, if the plan asks for a reason", "TEXT"},
          {Kind::Repeated, "attach", "store this file with the run when it has ended", "FILE"}},
         Run},
        CampaignCommand(),
        {"replay",
         "send again what --trace recorded, and report the first different answer",
         {{Kind::Positional, "trace", "trace file", "FILE"},
          {Kind::Text, "longest-pause",
           "longest pause between two commands, in seconds; longer recorded pauses are shortened [10]",
           "SECONDS"},
          {Kind::Repeated, "ignore",
           "do not compare this field of an answer, which time changes, such as \"clock get.time\"; without "
           "a "
           "field the whole answer",
           "COMMAND.FIELD"}},
         RunReplay},
        ServeCommand(),
        {"ports",
         "list this computer's serial ports, with their USB serial numbers and slots",
         {},
         ShowPorts},
        {"configuration", "show what is configured and where each value comes from", {}, ShowConfiguration},
        {"commands",
         "list all commands with their codes",
         {{Kind::Flag, "markdown", "print the whole protocol page"},
          {Kind::Flag, "manual", "print the list in the manual page's form"}},
         ShowCommands,
         /*configured=*/false},
        {"completion",
         "print the completion script for bash",
         {{Kind::OptionalPositional, "kind", "what the script asks for: print the plans or the ports instead",
           "plans|ports"}},
         ShowCompletion,
         /*configured=*/false},
    };
    for (const auto& group : {ExportCommands(), YieldCommands(), NumberCommands(), HistoryCommands()})
      all.insert(all.begin() + 1, group.begin(), group.end());
    return all;
  }();
  return commands;
}

}  // namespace station
