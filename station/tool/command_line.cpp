#include "station/tool/command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <map>
#include <sstream>

#include "completion/bash_completion.h"
#include "completion/mistyped_words.h"
#include "posix/whole_output.h"
#include "program_version.h"
#include "station/commands/clean_text.h"
#include "station/commands/errors.h"
#include "station/configuration/slots.h"
#include "station/link/port_list.h"
#include "station/link/port_opening.h"

namespace station {

namespace {

constexpr const char* PROGRAM = "phonetest";
constexpr const char* DESCRIPTION = "Test commands for a phone on a serial port.";

// The first words of the commands with their group in the help page and their explanation, in the order
// shown.
struct Topic {
  const char* word;
  const char* group;
  const char* help;
};

constexpr Topic TOPICS[] = {
    {"numbers", "Plans and tools", "pools of identities and Bluetooth addresses, which are given out once"},
    {"ping", "Link", ""},
    {"no-operation", "Link", ""},
    {"raw", "Link", ""},
    {"pause-link", "Link", ""},
    {"display", "Device tests", "LCD test pictures and backlight"},
    {"motor", "Device tests", "vibration motor"},
    {"led", "Device tests", ""},
    {"uart-rx", "Device tests", ""},
    {"tone", "Device tests", "tone generator"},
    {"audio-path", "Device tests", "sound paths of the codec"},
    {"play", "Device tests", ""},
    {"key", "Device tests", "keypad"},
    {"touch", "Device tests", "touchscreen"},
    {"radio", "Device tests", "FM radio"},
    {"camera", "Device tests", "camera self-test and test pictures"},
    {"memory-card", "Device tests", ""},
    {"run-in", "Device tests", ""},
    {"factory-info", "Production data", "the 128-byte factory information"},
    {"factory-field", "Production data", "the two 10-byte fields of the factory information"},
    {"identity", "Production data", "the 15-digit identity number"},
    {"bluetooth-address", "Production data", "the Bluetooth device address kept in flash"},
    {"partition-word", "Production data", ""},
    {"modem-image", "Production data", "the modem's file-system image"},
    {"versions", "Maintenance", ""},
    {"version", "Maintenance", "one of the phone's three version texts"},
    {"clock", "Maintenance", "real-time clock"},
    {"calibration", "Maintenance", "touchscreen calibration file"},
    {"factory-reset", "Maintenance", ""},
    {"stop-ui", "Maintenance", ""},
    {"power-off", "Maintenance", ""},
    {"sim-check", "Modem and Bluetooth", ""},
    {"at", "Modem and Bluetooth", ""},
    {"modem", "Modem and Bluetooth", "modem state, lines, control and pass-through"},
    {"bluetooth", "Modem and Bluetooth", "functions of the Bluetooth test tool"},
};

const Topic* FindTopic(const std::string& word) {
  for (const Topic& topic : TOPICS) {
    if (word == topic.word) return &topic;
  }
  return nullptr;
}

void AddFlag(CLI::App& subcommand, const Argument& argument, Invocation& invocation) {
  subcommand.add_flag_callback(
      "--" + argument.name, [&invocation, name = argument.name] { invocation.arguments[name] = "true"; },
      argument.help);
}

void AddArgument(CLI::App& subcommand, const Argument& argument, Invocation& invocation) {
  if (argument.kind == Argument::Kind::Flag) {
    AddFlag(subcommand, argument, invocation);
    return;
  }
  const auto take = [&invocation, name = argument.name](const std::string& text) {
    invocation.arguments[name] = text;
  };
  std::string flags = argument.positional ? argument.name : "--" + argument.name;
  if (argument.name == "output") flags = "-o," + flags;
  CLI::Option* option = subcommand.add_option_function<std::string>(flags, take, HelpText(argument));
  option->type_name(ValueForm(argument));
  const bool has_default = argument.fallback || !argument.same_as.empty() || !argument.length_of.empty();
  if (!has_default) option->required();
}

// The subcommand for the words. It is made with those above it if they do not exist yet.
CLI::App& Subcommand(CLI::App& app, const std::string& words, const std::string& help) {
  const std::size_t blank = words.find(' ');
  const std::string first = words.substr(0, blank);
  const Topic* topic = FindTopic(first);
  const bool whole = blank == std::string::npos;
  const auto known =
      app.get_subcommands([&](const CLI::App* candidate) { return candidate->get_name() == first; });
  CLI::App* subcommand = known.empty() ? nullptr : known.front();
  if (subcommand == nullptr) {
    subcommand = app.add_subcommand(first, whole ? help : topic != nullptr ? topic->help : "");
    const bool outermost = app.get_parent() == nullptr;
    subcommand->group(outermost && topic != nullptr ? topic->group : "Subcommands");
  }
  if (whole) return *subcommand;
  subcommand->require_subcommand(1);
  return Subcommand(*subcommand, words.substr(blank + 1), help);
}

void AddGlobalOptions(CLI::App& app, Settings& settings) {
  app.set_version_flag("--version", fmt::format("{} {}", PROGRAM, PROGRAM_VERSION), "print the version");
  app.add_option("--port", settings.ports,
                 "the phone's serial port, a configured slot, tcp:HOST:PORT or rfc2217:HOST:PORT; not needed "
                 "if one is configured "
                 "(PHONETEST_PORT) or exactly one USB serial port is plugged in")
      ->type_name("PORT")
      ->allow_extra_args(false);
  const Argument time =
      Number("timeout", "how long to wait for an answer, instead of each command's own time")
          .Within({1, 3'600'000, "ms"});
  app.add_option_function<std::string>(
         "--timeout",
         [&settings, time](const std::string& text) {
           CheckArgument(time, text);
           settings.answer_time = std::chrono::milliseconds(NumberOf(time, text));
         },
         HelpText(time))
      ->type_name("MS");
  app.add_flag("--json", settings.json, "results as JSON on standard output");
  app.add_option("--trace", settings.trace_file, "record every byte on the link, with direction and time")
      ->type_name("FILE");
  app.add_flag("--yes", settings.yes,
               "do what cannot be undone without asking; a plan's questions are answered with run --answers");
}

void AddOperation(CLI::App& app, const Operation& operation, Invocation& invocation) {
  CLI::App& subcommand = Subcommand(app, operation.words, operation.help);
  for (const Argument& argument : operation.arguments) AddArgument(subcommand, argument, invocation);
  subcommand.callback([&invocation, &operation] { invocation.operation = &operation; });
}

void AddToolCommand(CLI::App& app, const ToolCommand& command, Invocation& invocation) {
  CLI::App* subcommand = &Subcommand(app, command.word, command.help);
  if (command.word.find(' ') == std::string::npos) subcommand->group("Plans and tools");
  for (const ToolCommand::Option& option : command.options) {
    std::vector<std::string>& values = invocation.given[option.name];
    if (option.kind == ToolCommand::Option::Kind::Flag) {
      subcommand->add_flag_callback(
          "--" + option.name, [&values] { values = {"true"}; }, option.help);
      continue;
    }
    const bool needed = option.kind == ToolCommand::Option::Kind::Positional;
    const bool positional = needed || option.kind == ToolCommand::Option::Kind::OptionalPositional;
    const auto take = [&values](const std::vector<std::string>& texts) { values = texts; };
    CLI::Option* added = subcommand->add_option_function<std::vector<std::string>>(
        positional ? option.name : "--" + option.name, take, option.help);
    added->type_name(option.form)->required(needed)->allow_extra_args(false);
    if (option.kind != ToolCommand::Option::Kind::Repeated) added->expected(1);
  }
  subcommand->callback([&invocation, &command] { invocation.tool_command = &command; });
}

void DescribeCommandLine(CLI::App& app, Invocation& invocation) {
  app.fallthrough();
  app.require_subcommand(1);
  app.get_formatter()->column_width(30);
  AddGlobalOptions(app, invocation.settings);
  // The help page shows them in the order in which they are added.
  std::multimap<std::ptrdiff_t, const Operation*> ordered;
  for (const Operation& operation : Operations()) {
    const Topic* topic = FindTopic(operation.words.substr(0, operation.words.find(' ')));
    ordered.emplace(topic != nullptr ? topic - TOPICS : std::ssize(TOPICS), &operation);
  }
  for (const ToolCommand& command : ToolCommands()) AddToolCommand(app, command, invocation);
  for (const auto& [place, operation] : ordered) AddOperation(app, *operation, invocation);
  // Last, since subcommands inherit what is set before them.
  app.footer(
      "Exit status: 0 passed, 1 the phone reports a failure, 2 wrong usage, 3 no answer or no port, 4 error "
      "in a plan, 5 a plan is incomplete: steps were not run because a value is missing, 6 aborted by Ctrl-C "
      "or a signal, 7 output was lost. If several apply to a plan, 7 wins, then 6, 4, 3, 1 and 5.");
}

ExitStatus Refuse(const std::string& reason) {
  fmt::print(stderr, "{}: {}\nRun with --help for more information.\n", PROGRAM, CleanText(reason));
  return ExitStatus::Usage;
}

}  // namespace

std::string HelpText(const Argument& argument) {
  std::string text = argument.help;
  if (const std::string allowed = AllowedText(argument); !allowed.empty())
    text += fmt::format(" ({})", allowed);
  if (argument.fallback && argument.kind != Argument::Kind::Flag && !argument.fallback->empty()) {
    text += fmt::format(" [{}]", *argument.fallback);
  }
  if (!argument.same_as.empty()) text += fmt::format(" [as {}]", argument.same_as);
  return text;
}

std::vector<std::string> ChosenPorts(const Settings& settings) {
  std::vector<PortDescription> plugged_in = ListPorts();
  std::vector<std::string> ports = settings.ports;
  const std::string configured = settings.configuration.Text("port");
  if (ports.empty() && !configured.empty()) ports.push_back(configured);
  for (std::string& port : ports) {
    port = NamedPort(port, settings.configuration, plugged_in);
    CheckPortName(port);
  }
  if (!ports.empty()) return ports;
  NameSlots(plugged_in, settings.configuration);
  return {OnlyPort(plugged_in)};
}

std::string ChosenPort(const Settings& settings) {
  const std::vector<std::string> ports = ChosenPorts(settings);
  if (ports.size() > 1) throw UsageError("one command goes to one phone: give --port once");
  return ports.front();
}

std::unique_ptr<Trace> OpenTrace(const Settings& settings, const std::string& port) {
  return settings.trace_file.empty() ? nullptr : std::make_unique<Trace>(settings.trace_file, port);
}

std::variant<Invocation, ExitStatus> ParseCommandLine(int count, char** words) {
  CLI::App app(DESCRIPTION, PROGRAM);
  Invocation invocation;
  DescribeCommandLine(app, invocation);
  const std::string mistyped = completion::Mistyped(app, {words + 1, words + count});
  if (!mistyped.empty()) return Refuse(mistyped);
  try {
    app.parse(count, words);
    if (invocation.operation != nullptr) CheckArguments(*invocation.operation, invocation.arguments);
  } catch (const UsageError& error) {
    return Refuse(error.what());
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {  // help or version
      std::ostringstream text;
      app.exit(error, text, text);
      posix::Print("{}", text.str());
      return ExitStatus::Passed;
    }
    return Refuse(error.what());
  }
  return invocation;
}

std::string BashCompletion() {
  CLI::App app(DESCRIPTION, PROGRAM);
  Invocation invocation;
  DescribeCommandLine(app, invocation);
  return completion::BashScript(app, {{"PORT", "ports"}, {"PLAN", "plans"}});
}

}  // namespace station
