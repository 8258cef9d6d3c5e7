// phonesim: a phone without hardware, in the foreground or in the background, and the commands that control
// it.
#include <fmt/format.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "completion/bash_completion.h"
#include "completion/mistyped_words.h"
#include "posix/background.h"
#include "posix/file_descriptor.h"
#include "posix/whole_output.h"
#include "program_version.h"
#include "simulator/control/control_socket.h"
#include "simulator/phonesim/client.h"
#include "simulator/phonesim/command_list.h"
#include "simulator/phonesim/session.h"
#include "simulator/phonesim/terminal.h"
#include "simulator/supervisor/dead_phones.h"

namespace {

using simulator::PhoneEnd;
using simulator::Session;
using simulator::SessionOptions;

constexpr int CANNOT_SIMULATE = 1;
constexpr int WRONG_USAGE = 2;
constexpr int SERVER_FAILED = 3;

void PrepareStart() {
  simulator::RemoveDeadPhones();
  sigset_t ending;
  sigemptyset(&ending);
  for (int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ending, number);
  sigprocmask(SIG_BLOCK, &ending, nullptr);
  signal(SIGPIPE, SIG_IGN);
}

int ExitStatus(const PhoneEnd& end) {
  const bool server_failed = end.reason == PhoneEnd::Reason::ServerKilled ||
                             end.reason == PhoneEnd::Reason::OverLimit ||
                             (end.reason == PhoneEnd::Reason::ServerExited && end.status != 0);
  return server_failed ? SERVER_FAILED : 0;
}

std::string Greeting(Session& session) {
  return fmt::format("phone: {}\nhost port: {}\nmodem data port: {}", session.Name(),
                     session.Phone().HostPort(), session.Phone().Command({"modem-data"}));
}

// Sets `restart` to the options with which the phone is switched on again, or to nothing.
int RunOnce(const SessionOptions& options, std::optional<SessionOptions>& restart) {
  PrepareStart();
  Session session(options);
  posix::Print("{}", Greeting(session));
  posix::FinishOutput();
  const PhoneEnd end = session.Run();
  posix::Print("{}\n", end.Text());
  restart = session.OptionsOfRestart();
  return ExitStatus(end);
}

int RunInForeground(const SessionOptions& options) {
  std::optional<SessionOptions> restart = options;
  int status = 0;
  while (restart) {
    const SessionOptions next = *restart;
    status = RunOnce(next, restart);
  }
  return status;
}

int RunShellOnly(const SessionOptions& options) {
  PrepareStart();
  Session session(options);
  posix::Print("{}", Greeting(session));
  posix::FinishOutput();
  simulator::RelayTerminal(session.Phone().OpenShell());
  session.Phone().OnLoop([] {});  // the shell may be gone before the phone's end is stated
  const auto end = session.Phone().WaitForEnd(std::chrono::milliseconds(0));
  if (end && end->reason == PhoneEnd::Reason::OverLimit) {
    posix::Print("{}\n", end->Text());
    return SERVER_FAILED;
  }
  return 0;
}

int StartInBackground(const SessionOptions& options) {
  return posix::RunInBackground("phonesim", [&options](const std::function<void(const std::string&)>& ready) {
    std::optional<SessionOptions> next = options;
    while (next) {
      PrepareStart();
      Session session(std::exchange(next, std::nullopt).value());
      session.AwaitServer();
      // From now on, only `phonesim stop` and `phonesim status` can tell it.
      if (posix::IsOutputLost()) throw posix::OutputLost(posix::LostOutput().front());
      if (!session.Options().goes_on) ready(Greeting(session));
      session.Run();
      next = session.OptionsOfRestart();
    }
  });
}

struct PanelWish {
  std::string address = "127.0.0.1";
  int port = 0;  // 0: any free one
  std::string public_name;
  pid_t ends_with = 0;  // a process of the PC, at whose end the page ends; 0: none
};

void AddPanelOptions(CLI::App& command, PanelWish& wish) {
  command.add_option("--panel-port", wish.port, "the page's port (default: any free one)")
      ->check(CLI::Range(0, 65535));
  command
      .add_option(
          "--listen", wish.address,
          "the address to listen on. Others than loopback are for a proxy with TLS in front; name it with "
          "--public-name")
      ->capture_default_str();
  command.add_option("--public-name", wish.public_name,
                     "the host name under which a proxy with TLS serves the page");
}

// Beside phonesim after a build, in a folder of its own after an installation.
std::string ProgramOfPhonesim(const std::string& name) {
  const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  const std::filesystem::path installed = (folder / SERVER_FOLDER / name).lexically_normal();
  const std::filesystem::path beside = folder / name;
  return !std::filesystem::exists(beside) && std::filesystem::exists(installed) ? installed : beside;
}

// Becomes the program of the page: of the named phone, or of all. Returns only if it cannot.
int BecomePanel(const PanelWish& wish, const std::string& name, bool in_background) {
  posix::FinishOutput();
  const std::string program = ProgramOfPhonesim("phonesim-panel");
  std::vector<std::string> words = {program,
                                    "--name",
                                    name,
                                    "--panel-port",
                                    std::to_string(wish.port),
                                    "--listen",
                                    wish.address,
                                    "--public-name",
                                    wish.public_name};
  if (in_background) words.push_back("--background");
  if (wish.ends_with != 0) words.insert(words.end(), {"--ends-with", std::to_string(wish.ends_with)});
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  execv(program.c_str(), arguments.data());
  posix::ThrowErrno(program);
}

int RefuseUsage(const std::string& sentence) {
  fmt::print(stderr, "phonesim: {}\nRun with --help for more information.\n", sentence);
  return WRONG_USAGE;
}

// Returns the exit status for what ended the reading of the command line: help, version or a mistake.
int ShowEnd(const CLI::App& app, const CLI::ParseError& end) {
  if (end.get_exit_code() == 0) {
    std::ostringstream text;
    app.exit(end, text, text);
    posix::PrintText(text.str());
    return 0;
  }
  return RefuseUsage(end.what());
}

int ShowCommands(bool as_manual) {
  posix::Print("{}", as_manual ? simulator::ManualPhoneCommands() : simulator::PhoneCommandList());
  return 0;
}

// `kind` is what the script itself asks for when a key is pressed.
int ShowCompletion(const CLI::App& app, const std::string& kind) {
  if (kind == "phones") return simulator::ListNames();
  if (kind == "ports") return simulator::ListPorts();
  const std::vector<completion::Source> sources = {{"PHONE", "phones"}, {"PORT", "ports"}};
  posix::Print("{}", completion::BashScript(app, sources, simulator::PhoneCommandNames()));
  return 0;
}

// The arguments after "--" are the server's.
std::vector<std::string> SplitServerArguments(int& argc, char** argv) {
  for (int index = 1; index < argc; ++index) {
    if (std::string_view(argv[index]) != "--") continue;
    const std::vector<std::string> arguments(argv + index + 1, argv + argc);
    argc = index;
    return arguments;
  }
  return {};
}

// The running phone is asked first: the list of all commands takes a phone that is made for it.
int RunPhoneCommand(const CLI::App& app, const std::string& name, const std::vector<std::string>& words) {
  if (words[0].starts_with('-')) return RefuseUsage(fmt::format("there is no option {}", words[0]));
  const posix::Deadline deadline(simulator::CONTROL_TIME_OUT);
  if (const auto status = simulator::TryCommand(name, words, deadline)) return *status;
  const std::string mistyped = completion::Mistyped(app, words, simulator::PhoneCommandNames());
  if (!mistyped.empty()) return RefuseUsage(mistyped);
  return simulator::CommandPhone(name, words, deadline);
}

// What the command line asks for.
struct Wish {
  static constexpr uint64_t MIB = 1 << 20;

  SessionOptions session = {};
  std::string port = {};
  uint64_t memory_mib = session.phone.limits.memory / MIB;
  uint64_t disk_mib = session.phone.limits.disk / MIB;
  bool no_server = false;
  bool with_panel = false;
  bool as_json = false;
  bool as_manual = false;
  std::string completion_kind = {};
  std::string script = {};
  simulator::JournalWish journal = {};
  PanelWish panel = {};
  std::function<int()> work = {};  // the command; empty without one

  // Of the phone that a command goes to.
  std::string PhoneName() const {
    return session.name.empty() ? "phone" : session.name;
  }
};

void AddPhoneOptions(CLI::App& app, Wish& wish) {
  SessionOptions& session = wish.session;
  app.add_option("--name", session.name, "the name of the phone, if several run")->type_name("PHONE");
  app.add_option("--port", wish.port, "names the running phone by its serial port")->type_name("PORT");
  app.add_option("--server", session.phone.server,
                 "the server program, an ARM executable too (default: phonetestd beside phonesim, or the "
                 "installed one)");
  app.add_option("--sysroot", session.phone.sysroot,
                 "a directory with the loader and libraries of an ARM server (default: the ARM compiler's)");
  app.add_option("--state", session.phone.state_directory,
                 "a directory that keeps the phone's files between boots");
  app.add_option("--journal", session.journal_file,
                 "a file for everything that happens; a JSON object in each line if its name ends in .json");
  app.add_option("--link", session.phone.host_port_link,
                 "a symbolic link to the host's end of the serial port");
  app.add_option("--camera", session.camera_file, "a PNG or JPEG picture that the camera sees");
  app.add_option("--lcd", session.lcd_file,
                 "a PNG file for the LCD's last picture, written when the phone ends");
  app.add_option("--most-tasks", session.phone.limits.tasks,
                 "the phone ends above so many processes and threads")
      ->capture_default_str();
  app.add_option("--most-memory", wish.memory_mib, "the phone ends above so many MiB of memory in use")
      ->check(CLI::Range(1, 1 << 20))
      ->capture_default_str();
  app.add_option("--most-disk", wish.disk_mib, "the phone ends above so many MiB of files")
      ->check(CLI::Range(1, 1 << 20))
      ->capture_default_str();
  app.add_option("--ends-with", session.ends_with,
                 "the phone, or the page, ends with this process of the PC, also if that is killed")
      ->type_name("PROCESS")
      ->check(CLI::PositiveNumber);
  app.add_flag("--no-waiting", session.phone.instant_sleeps, "the phone's sleeps take no time");
  app.add_flag("--no-server", wish.no_server, "starts a shell in the phone instead of the server");
  app.add_flag("--verbose,-v", session.prints_journal, "prints everything that happens");
}

int StartAsWished(const Wish& wish) {
  const int failure = StartInBackground(wish.session);
  return failure == 0 && wish.with_panel ? BecomePanel(wish.panel, wish.session.name, true) : failure;
}

void AddPhoneCommands(CLI::App& app, Wish& wish) {
  const auto add = [&](const char* word, const char* help, std::function<int()> work) {
    return app.add_subcommand(word, help)->fallthrough()->callback([&wish, work = std::move(work)] {
      wish.work = work;
    });
  };
  CLI::App* start = add("start", "starts a phone in the background", [&] { return StartAsWished(wish); });
  start->add_flag("--panel", wish.with_panel, "also shows the phone as a page; prints its address");
  add("stop", "stops the phone", [&] { return simulator::StopPhone(wish.PhoneName()); });
  add("status", "lists the phones that run", [&] {
    return simulator::ShowPhones(wish.as_json);
  })->add_flag("--json", wish.as_json, "as JSON, with the executable's SHA-256 and what confines the phone");
  add("shell", "opens a shell in the phone", [&] { return simulator::ShellInPhone(wish.PhoneName()); });
  CLI::App* journal = add("journal", "prints what has happened so far",
                          [&] { return simulator::ShowJournal(wish.PhoneName(), wish.journal); });
  journal->add_flag("--follow,-f", wish.journal.follow, "goes on with what happens from now on");
  journal->add_flag("--json", wish.journal.as_json, "a JSON object in each line");
  journal->add_option("--last", wish.journal.last, "leaves out what came before so many newest entries");
  add("defects", "lists the commands that make the phone's devices defective, as JSON", [&] {
    return simulator::CommandPhone(wish.PhoneName(), {"defects"},
                                   posix::Deadline(simulator::CONTROL_TIME_OUT));
  });
  add("lcd",
      "writes each changed picture of the LCD to standard output, at most 25 a second, as 240 x 320 "
      "little-endian RGB565 pixels",
      [&] { return simulator::FollowLcd(wish.PhoneName()); });
  add("listen", "writes what the phone plays to standard output, as a WAV stream",
      [&] { return simulator::Listen(wish.PhoneName()); });
  add("restart",
      "takes the battery out and puts it in: the phone boots anew, and what is in flash and on the card "
      "stays",
      [&] { return simulator::RestartPhone(wish.PhoneName()); });
  add("script", "runs a file with a command for the phone in each line, until one fails",
      [&] { return simulator::RunScript(wish.PhoneName(), wish.script); })
      ->add_option("file", wish.script,
                   "the file, or - for standard input; in it, `wait SECONDS` waits, and # starts a comment")
      ->required();
  CLI::App* panel = add("panel", "shows the phones that run as a page; prints its address",
                        [&] { return BecomePanel(wish.panel, wish.session.name, false); });
  for (CLI::App* command : {start, panel}) AddPanelOptions(*command, wish.panel);
}

void AddLists(CLI::App& app, Wish& wish) {
  CLI::App* commands = app.add_subcommand("commands", "lists the commands that go to a phone");
  commands->add_flag("--manual", wish.as_manual, "in the manual page's form");
  commands->callback([&wish] { wish.work = [&wish] { return ShowCommands(wish.as_manual); }; });
  CLI::App* completion = app.add_subcommand("completion", "prints the completion script for bash");
  completion
      ->add_option("kind", wish.completion_kind,
                   "what the script asks for: prints the running phones or their ports instead")
      ->check(CLI::IsMember({"phones", "ports"}));
  completion->callback(
      [&] { wish.work = [&app, &wish] { return ShowCompletion(app, wish.completion_kind); }; });
}

int RunProgram(int argc, char** argv) {
  Wish wish;
  SessionOptions& session = wish.session;
  session.phone.server_arguments = SplitServerArguments(argc, argv);
  session.phone.server = ProgramOfPhonesim("phonetestd");
  CLI::App app(
      "A simulated phone: boots the test-command server without hardware.\n"
      "Without a command it runs in the foreground until Ctrl-C; arguments after -- are the server's.\n"
      "A command that is not listed here goes to the running phone: `phonesim commands` shows them.");
  app.name("phonesim");
  app.set_version_flag("--version", fmt::format("phonesim {}", PROGRAM_VERSION), "print the version");
  AddPhoneOptions(app, wish);
  AddPhoneCommands(app, wish);
  AddLists(app, wish);
  app.prefix_command();
  const std::string mistyped = completion::Mistyped(app, {argv + 1, argv + argc}, std::nullopt);
  if (!mistyped.empty()) return RefuseUsage(mistyped);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& wrong) {
    return ShowEnd(app, wrong);
  }

  wish.panel.ends_with = session.ends_with;
  session.phone.limits.memory = wish.memory_mib * Wish::MIB;
  session.phone.limits.disk = wish.disk_mib * Wish::MIB;
  session.phone.echo_console = !app.got_subcommand("start") && !wish.no_server;
  if (wish.no_server) session.phone.server.clear();
  if (!wish.port.empty()) session.name = simulator::PhoneAtPort(wish.port);
  if (wish.work) return wish.work();
  const std::vector<std::string> words = app.remaining();
  if (!words.empty()) return RunPhoneCommand(app, wish.PhoneName(), words);
  return wish.no_server ? RunShellOnly(session) : RunInForeground(session);
}

int RunAndReport(int argc, char** argv) {
  try {
    return RunProgram(argc, argv);
  } catch (const posix::OutputLost& lost) {
    posix::TellLostOutput(lost.what());
    return posix::OUTPUT_LOST_STATUS;
  } catch (const std::exception& failure) {
    fmt::print(stderr, "phonesim: {}\n", failure.what());
    return CANNOT_SIMULATE;
  }
}

}  // namespace

int main(int argc, char** argv) {
  posix::HoldStandardDescriptors();
  const int status = RunAndReport(argc, argv);
  posix::FinishOutput();
  return posix::IsOutputLost() ? posix::OUTPUT_LOST_STATUS : status;
}
