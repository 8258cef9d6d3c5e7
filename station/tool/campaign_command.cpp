#include "station/tool/campaign_command.h"

#include <fmt/format.h>

#include <charconv>
#include <sstream>
#include <thread>

#include "station/campaign/campaign.h"
#include "station/plan/plan_search.h"
#include "station/tool/given_options.h"
#include "station/tool/simulated_executable.h"

namespace station {

namespace {

using Given = ToolCommand::Given;
using Kind = ToolCommand::Option::Kind;

unsigned NumberWithin(const std::string& option, const std::string& text, unsigned most) {
  unsigned number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number == 0 || number > most) {
    throw UsageError(fmt::format("--{}: '{}' is not a number from 1 to {}", option, text, most));
  }
  return number;
}

// Most of a trial is waiting, so that a processor can serve several.
unsigned UsualJobs() {
  return 3 * std::max(std::thread::hardware_concurrency(), 1u);
}

std::vector<std::vector<std::string>> SplitLines(const std::vector<std::string>& lines) {
  std::vector<std::vector<std::string>> split;
  for (const std::string& line : lines) {
    std::istringstream words(line);
    split.emplace_back(std::istream_iterator<std::string>(words), std::istream_iterator<std::string>());
  }
  return split;
}

ExitStatus RunCampaignFrom(const Settings& settings, Given& given) {
  constexpr unsigned MOST_JOBS = 64;
  constexpr unsigned LONGEST = 3600;
  const std::string limit = OnlyText(given, "time-limit");
  CampaignOrder order;
  order.setup = {
      .plan_file = FindPlan(OnlyText(given, "plan")),
      .variables = ParseAssignments("--set", given["set"]),
      .phonesim = OnlyText(given, "phonesim", PhonesimBesideTool()),
      .preparations = SplitLines(given["prepare"]),
      .time_limit = std::chrono::seconds(limit.empty() ? 0 : NumberWithin("time-limit", limit, LONGEST))};
  order.report_folder = OnlyText(given, "report");
  order.reasons_file = OnlyText(given, "reasons");
  order.only = OnlyText(given, "only");
  order.jobs = NumberWithin("jobs", OnlyText(given, "jobs", std::to_string(UsualJobs())), MOST_JOBS);
  order.list = !given["list"].empty();
  order.resume = !given["resume"].empty();
  order.json = settings.json;
  return RunCampaign(order);
}

}  // namespace

ToolCommand CampaignCommand() {
  return {
      "campaign",
      "run a test plan on simulated phones with one fault each, and tell which faults no step notices",
      {{Kind::Positional, "plan", "plan: a file (JSON with comments), or the name of an installed one",
        "PLAN"},
       {Kind::Repeated, "set", "set a variable of the plan", "NAME=VALUE"},
       {Kind::Repeated, "prepare", "a command of this tool for each phone before its fault", "COMMAND"},
       {Kind::Text, "only", "try the faults whose name fits this pattern with * and ?", "PATTERN"},
       {Kind::Flag, "list", "list the faults, and try none"},
       {Kind::Text, "jobs", "phones at the same time [3 for each processor]", "NUMBER"},
       {Kind::Text, "time-limit", "end a plan after so many seconds [three times the good run and 15]",
        "SECONDS"},
       {Kind::Text, "report", "write campaign.html, campaign.json and the state of the work into this folder",
        "FOLDER"},
       {Kind::Flag, "resume", "go on from the state in the report's folder"},
       {Kind::Text, "reasons",
        "JSON file with the reasons why faults go unnoticed [the plan's name with .unseen, if there is one]",
        "FILE"},
       {Kind::Text, "phonesim", "the program phonesim [the one beside this tool]", "FILE"}},
      RunCampaignFrom,
      false};
}

}  // namespace station
