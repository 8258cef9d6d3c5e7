#include "station/tool/command_line.h"

#include <fmt/format.h>

#include <map>

#include "station/commands/errors.h"
#include "station/link/port_list.h"
#include "station/tool/tool_commands.h"

namespace station {

namespace {

// Titles of the groups in the help page and the explanation of each first word, in the order shown.
struct Topic {
  const char* word;
  const char* group;
  const char* help;
};

constexpr Topic TOPICS[] = {
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

std::string ChoicesText(const Argument& argument) {
  std::string names;
  for (const Choice& choice : argument.choices)
    names += names.empty() ? choice.name : fmt::format(", {}", choice.name);
  return names;
}

std::string HelpText(const Argument& argument) {
  std::string text = argument.help;
  if (!argument.choices.empty()) {
    text += fmt::format(" ({}{})", ChoicesText(argument), argument.only_choices ? "" : ", or a number");
  }
  if (argument.fallback && argument.kind != Argument::Kind::Flag && !argument.fallback->empty()) {
    text += fmt::format(" [{}]", *argument.fallback);
  }
  if (!argument.same_as.empty()) text += fmt::format(" [as {}]", argument.same_as);
  return text;
}

void AddFlag(CLI::App& subcommand, const Argument& argument, Request& request) {
  subcommand.add_flag_callback(
      "--" + argument.name, [&request, name = argument.name] { request.arguments[name] = "true"; },
      argument.help);
}

void AddArgument(CLI::App& subcommand, const Argument& argument, Request& request) {
  if (argument.kind == Argument::Kind::Flag) {
    AddFlag(subcommand, argument, request);
    return;
  }
  const auto take = [&request, argument](const std::string& text) {
    try {
      CheckArgument(argument, text);
    } catch (const UsageError& error) {
      throw CLI::ValidationError(error.what());
    }
    request.arguments[argument.name] = text;
  };
  std::string flags = argument.positional ? argument.name : "--" + argument.name;
  if (argument.name == "output") flags = "-o," + flags;
  CLI::Option* option = subcommand.add_option_function<std::string>(flags, take, HelpText(argument));
  option->type_name(ValueForm(argument));
  const bool stands_in = argument.fallback || !argument.same_as.empty() || !argument.length_of.empty();
  if (!stands_in) option->required();
}

// The subcommand for the words, made with those above it where they are not there yet.
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
  app.add_option(
         "--port", settings.ports,
         "the phone's serial port, or tcp:HOST:PORT; may be left out when only one USB serial port is "
         "plugged in")
      ->type_name("PORT")
      ->allow_extra_args(false);
  app.add_option_function<long>(
         "--timeout",
         [&settings](const long& milliseconds) {
           settings.answer_time = std::chrono::milliseconds(milliseconds);
         },
         "how long to wait for an answer, in milliseconds, instead of each command's own time")
      ->type_name("MS")
      ->check(CLI::Range(1, 3'600'000));
  app.add_flag("--json", settings.json, "results as JSON on standard output");
  app.add_option("--trace", settings.trace_file, "record every byte on the link, with direction and time")
      ->type_name("FILE");
  app.add_flag("--yes", settings.yes, "answer every question with yes");
}

void AddOperation(CLI::App& app, const Operation& operation, Request& request) {
  CLI::App& subcommand = Subcommand(app, operation.words, operation.help);
  for (const Argument& argument : operation.arguments) AddArgument(subcommand, argument, request);
  subcommand.callback([&request, &operation] { request.operation = &operation; });
}

}  // namespace

std::vector<std::string> ChosenPorts(const Settings& settings) {
  if (!settings.ports.empty()) return settings.ports;
  return {OnlyPort(ListPorts())};
}

std::string ChosenPort(const Settings& settings) {
  const std::vector<std::string> ports = ChosenPorts(settings);
  if (ports.size() > 1) throw UsageError("one command goes to one phone: give --port once");
  return ports.front();
}

void DescribeCommandLine(CLI::App& app, Request& request) {
  app.fallthrough();
  app.require_subcommand(1);
  app.get_formatter()->column_width(30);
  AddGlobalOptions(app, request.settings);
  // In the topics' order, so that the help page shows them in it.
  std::multimap<std::ptrdiff_t, const Operation*> ordered;
  for (const Operation& operation : Operations()) {
    const Topic* topic = FindTopic(operation.words.substr(0, operation.words.find(' ')));
    ordered.emplace(topic != nullptr ? topic - TOPICS : std::ssize(TOPICS), &operation);
  }
  AddToolCommands(app, request);
  for (const auto& [place, operation] : ordered) AddOperation(app, *operation, request);
  // Last, since subcommands take over what is set before them.
  app.footer(
      "Exit status: 0 passed, 1 the phone reports a failure, 2 wrong usage, 3 no answer or no port, 4 error "
      "in a "
      "plan.");
}

}  // namespace station
