#include "station/tool/serve.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <optional>

#include "posix/whole_output.h"
#include "program_version.h"
#include "station/commands/clean_text.h"
#include "station/configuration/slots.h"
#include "station/line/demonstration.h"
#include "station/line/line_page.h"
#include "station/line/results_store.h"
#include "station/line/simulated_slots.h"
#include "station/line/tokens.h"
#include "station/link/interruption.h"
#include "station/plan/plan_search.h"
#include "station/tool/given_options.h"
#include "station/tool/results_commands.h"
#include "station/tool/simulated_executable.h"

namespace station {

namespace {

using Given = ToolCommand::Given;
using Kind = ToolCommand::Option::Kind;
using Assignments = std::map<std::string, std::string>;

// "A=/dev/ttyACM0", or the name of a configured slot.
SlotOrder ReadSlot(const std::string& text, const Configuration& configuration) {
  const std::size_t equals = text.find('=');
  const std::string name = text.substr(0, equals);
  if (equals != std::string::npos) return {name, text.substr(equals + 1), ""};
  if (configuration.FindSlot(name) == nullptr) {
    throw UsageError(fmt::format("--port: '{}' is neither SLOT=PORT nor a configured slot", text));
  }
  return {name, NamedPort(name, configuration, ListPorts()), ""};
}

std::vector<SlotOrder> ReadSlots(const Settings& settings, const Assignments& barcodes) {
  std::vector<std::string> words = settings.ports;
  if (words.empty()) {
    for (const Slot& slot : settings.configuration.slots) words.push_back(slot.name);
  }
  if (words.empty()) throw UsageError("serve needs slots: --port SLOT=PORT for each, or a configuration");
  std::vector<SlotOrder> slots;
  for (const std::string& word : words) slots.push_back(ReadSlot(word, settings.configuration));
  for (const auto& [name, barcode] : barcodes) {
    if (std::ranges::find(slots, name, &SlotOrder::name) == slots.end())
      throw UsageError(fmt::format("--barcode: there is no slot '{}'", name));
  }
  for (SlotOrder& slot : slots) {
    const auto given = barcodes.find(slot.name);
    slot.barcode = given != barcodes.end() ? given->second : "SLOT-" + slot.name;
  }
  return slots;
}

bool IsLoopback(const std::string& address) {
  in_addr four;
  if (inet_pton(AF_INET, address.c_str(), &four) == 1) return ntohl(four.s_addr) >> 24 == 127;
  return address == "localhost" || address == "::1";
}

// "127.0.0.1:8080" or "[::1]:8080". The network needs tokens that were handed out before.
void ReadListen(const std::string& text, bool has_tokens, web::PageServerOptions& options) {
  if (text.empty()) return;
  const std::size_t colon = text.rfind(':');
  const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
  const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), options.port);
  if (error != std::errc{} || end != port.data() + port.size() || options.port < 0 || options.port > 65535) {
    throw UsageError(fmt::format("--listen: '{}' is not ADDRESS:PORT", text));
  }
  options.address = text.substr(0, colon);
  if (options.address.starts_with('[') && options.address.ends_with(']'))
    options.address = options.address.substr(1, options.address.size() - 2);
  if (!IsLoopback(options.address) && !has_tokens) {
    throw UsageError("--listen on a network needs --token-file, so that only people with a token get in");
  }
}

web::PageServerOptions ReadServer(Given& given) {
  web::PageServerOptions options{.name = "phonetest serve"};
  options.roles = {OPERATOR_ROLE, MANAGER_ROLE};
  options.public_host = OnlyText(given, "public-host");
  const std::string file = OnlyText(given, "token-file");
  if (!file.empty()) options.tokens = ReadTokens(file);
  ReadListen(OnlyText(given, "listen"), !file.empty(), options);
  return options;
}

LineOrder ReadLine(const Settings& settings, Given& given) {
  const std::string plan = OnlyText(given, "plan");
  if (plan.empty()) throw UsageError("serve needs a plan: --plan PLAN");
  const bool simulates = !given["simulate"].empty();
  if (simulates && !given["barcode"].empty())
    throw UsageError("--barcode is for slots with ports: simulated ones have SLOT-1, SLOT-2 and so on");
  return {
      .slots = simulates ? std::vector<SlotOrder>()
                         : ReadSlots(settings, ParseAssignments("--barcode", given["barcode"])),
      .plan = ReadPlanOutline(FindPlan(plan)),
      .variables = ParseAssignments("--set", given["set"]),
      .station = OnlyText(given, "station", StationName(settings.configuration)),
      .tool_version = PROGRAM_VERSION,
      .answer_time = settings.answer_time,
      .reserve = GivenCount(given, "reserve", 0, MOST_RESERVED),
      .insert = {},
      .executable = [](const std::string& port) { return SimulatedExecutable(PhonesimBesideTool(), port); }};
}

void Greet(LinePage& page) {
  const LineOrder& order = page.GetLine().Order();
  posix::Print("The line “{}” has {} slot{}. Ctrl-C ends it.\n", CleanText(order.plan.name),
               order.slots.size(), order.slots.size() == 1 ? "" : "s");
  posix::Print("operator:     {}\n", page.Server().Address(OPERATOR_ROLE));
  posix::Print("line manager: {}\n", page.Server().Address(MANAGER_ROLE));
  posix::FinishOutput();
}

void WaitForSignal() {
  while (!Interrupted()) {
    pollfd waiting{InterruptionDescriptor(), POLLIN, 0};
    poll(&waiting, 1, -1);
  }
}

bool HasVariable(const PlanOutline& plan, const std::string& name) {
  return std::ranges::find(plan.variables, name, &PlanVariable::name) != plan.variables.end();
}

// Simulated phones instead of ports. The plan's programs that play the phone's user are told of them.
std::unique_ptr<SimulatedSlots> Simulate(Given& given, LineOrder& order) {
  constexpr std::size_t MOST = 64;
  const bool demonstrates = !given["demo"].empty();
  const bool simulates = !given["simulate"].empty();
  if (!simulates && demonstrates) throw UsageError("--demo needs --simulate");
  if (!simulates) return nullptr;
  const std::string phonesim = PhonesimBesideTool();
  auto slots = std::make_unique<SimulatedSlots>(phonesim, GivenCount(given, "simulate", 1, MOST));
  if (demonstrates) slots->SeedDefects();
  slots->ShowPhones();
  order.slots = slots->Orders();
  if (HasVariable(order.plan, "phonesim")) order.variables.try_emplace("phonesim", phonesim);
  if (HasVariable(order.plan, "factory-info"))
    order.variables.try_emplace("factory-info", slots->FactoryInformation());
  order.insert = [&slots = *slots](const std::string& slot, const std::string& serial) {
    slots.Insert(slot, serial);
  };
  return slots;
}

ExitStatus Serve(const Settings& settings, Given& given) {
  NoteInterruptions();
  ResultsStore store(*GivenResults(settings, given));
  LineOrder order = ReadLine(settings, given);
  const std::unique_ptr<SimulatedSlots> simulated = Simulate(given, order);
  LinePage page(std::move(order), store, ReadServer(given));
  page.Start();
  Greet(page);
  std::optional<Demonstration> demonstration;
  if (!given["demo"].empty()) demonstration.emplace(page.GetLine());
  WaitForSignal();
  CleanUpFromHere();  // the programs that stop simulated phones are waited for
  return ExitStatus::Passed;
}

}  // namespace

ToolCommand ServeCommand() {
  return {
      "serve",
      "show the operators of a test line a page: scan phones, run the plan, answer, history and yield",
      {{Kind::Text, "plan", "plan: a file (JSON with comments), or the name of an installed one", "PLAN"},
       {Kind::Repeated, "set", "set a variable of the plan for every phone", "NAME=VALUE"},
       {Kind::Repeated, "barcode", "what the label at a slot says [SLOT-NAME]", "SLOT=TEXT"},
       {Kind::Text, "station", "name of this station [as configured, or this computer's name]", "NAME"},
       {Kind::Text, "simulate", "simulated phones as slots: a scanned serial number puts the phone in", "N"},
       {Kind::Flag, "demo", "with --simulate: the line runs by itself, and some phones have defects"},
       ResultsOption(),
       {Kind::Text, "reserve",
        "numbers of each pool that the plan draws from, kept for this station for when the database is away "
        "[0]",
        "COUNT"},
       {Kind::Text, "listen",
        "where the page is served; a network's address needs --token-file [127.0.0.1:0]", "ADDRESS:PORT"},
       {Kind::Text, "token-file", "the tokens of operators and line manager; made if it does not exist",
        "FILE"},
       {Kind::Text, "public-host", "the name that a proxy with TLS serves the page under", "NAME"}},
      Serve};
}

}  // namespace station
