#include "simulator/models/programs.h"

#include <elf.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "simulator/phone/root_directory.h"

namespace simulator {

namespace {

// The smallest program: it ends at once with exit status 0. A shell script that does nothing would take
// longer to start than everything else that happens when a tool runs.
constexpr uint64_t LOAD_ADDRESS = 0x400000;

struct DoNothingProgram {
  Elf64_Ehdr header;
  Elf64_Phdr segment;
  uint8_t code[9];
} __attribute__((packed));

constexpr DoNothingProgram DO_NOTHING = {
    {{ELFMAG0, ELFMAG1, ELFMAG2, ELFMAG3, ELFCLASS64, ELFDATA2LSB, EV_CURRENT, ELFOSABI_SYSV, 0, 0, 0, 0, 0,
      0, 0, 0},
     ET_EXEC,
     EM_X86_64,
     EV_CURRENT,
     LOAD_ADDRESS + offsetof(DoNothingProgram, code),
     offsetof(DoNothingProgram, segment),
     0,
     0,
     sizeof(Elf64_Ehdr),
     sizeof(Elf64_Phdr),
     1,
     0,
     0,
     0},
    {PT_LOAD, PF_R | PF_X, 0, LOAD_ADDRESS, LOAD_ADDRESS, sizeof(DoNothingProgram), sizeof(DoNothingProgram),
     0x1000},
    {0x31, 0xFF,           // xor edi, edi
     0xB8, 0x3C, 0, 0, 0,  // mov eax, 60 (exit)
     0x0F, 0x05},          // syscall
};

// A signal by number or name, without its dash: "9", "KILL", "SIGKILL".
int SignalNumber(std::string_view name) {
  if (!name.empty() && isdigit(static_cast<unsigned char>(name[0]))) return std::stoi(std::string(name));
  if (name.starts_with("SIG")) name.remove_prefix(3);
  for (int number = 1; number < NSIG; ++number) {
    const char* abbreviation = sigabbrev_np(number);
    if (abbreviation != nullptr && name == abbreviation) return number;
  }
  return SIGTERM;
}

}  // namespace

Tools::Tools(PhoneServices& phone) : DeviceModel(phone) {
  state.modules = {"omap_bi", "net_fd", "serial_fd", "usbdcore"};
}

std::vector<std::string> Tools::Paths() const {
  return {"/sbin/insmod", "/sbin/rmmod",  "/sbin/ifconfig",  "/sbin/poweroff",
          "/sbin/halt",   "/sbin/reboot", "/usr/bin/killall"};
}

void Tools::Furnish(RootDirectory& root) {
  const std::string_view program(reinterpret_cast<const char*>(&DO_NOTHING), sizeof DO_NOTHING);
  for (const std::string& path : Paths()) root.PutFile(path, program, 0755);
}

int Tools::Exec(const ExecCall& call) {
  const std::string tool = std::filesystem::path(call.path).filename();
  if (tool == "killall") {
    KillAll(call.arguments);
  } else if (tool == "insmod" && call.arguments.size() > 1) {
    state.modules.insert(std::filesystem::path(call.arguments[1]).stem());
  } else if (tool == "rmmod" && call.arguments.size() > 1) {
    state.modules.erase(call.arguments[1]);
  } else if (tool == "poweroff" || tool == "halt" || tool == "reboot") {
    phone_.power_off();
  }
  return 0;
}

void Tools::KillAll(const std::vector<std::string>& arguments) {
  int signal = SIGTERM;
  for (size_t index = 1; index < arguments.size(); ++index) {
    const std::string& word = arguments[index];
    if (word.starts_with('-')) {
      signal = SignalNumber(word.substr(1));
      continue;
    }
    for (pid_t process : phone_.processes_named(word)) kill(process, signal);
  }
}

namespace {

constexpr char LAUNCHER[] = "/usr/bin/Launcher.elf";
constexpr char EVENTS[] = "/dev/launcher_events";

}  // namespace

std::vector<std::string> Launcher::Paths() const {
  return {LAUNCHER};
}

void Launcher::Furnish(RootDirectory& root) {
  root.PutFile(LAUNCHER, fmt::format("#!/bin/sh\nread event <>{}\n", EVENTS), 0755);
  root.PutNamedPipe(EVENTS);
}

void Launcher::Start() {
  phone_.start_program(LAUNCHER);
}

size_t Launcher::Running() const {
  return phone_.processes_named("Launcher.elf").size();
}

std::vector<ModelCommand> Launcher::Commands() {
  return {{"launcher", "[start]", "tells whether the user interface runs, or starts it",
           [this](const std::vector<std::string>& words) {
             if (words == std::vector<std::string>{"start"})
               Start();
             else if (!words.empty())
               throw std::invalid_argument("launcher takes no word but \"start\".");
             return fmt::format("{} running\n", Running());
           }}};
}

namespace {

constexpr char PLAYER[] = "/root/wavplayer.elf";
constexpr char PLAYER_NAME[] = "wavplayer.elf";
constexpr char WAITING_PLACE[] = "/root/.playing";

// Nothing ever writes to the named pipe, so its reader waits for ever: in one process, and without a sleep
// that could be made instant.
constexpr char PLAYER_SCRIPT[] = R"(#!/bin/sh
[ -f "$1" ] || { echo "wavplayer: no file $1"; exit 1; }
read end </root/.playing
)";

constexpr const char* CLIPS[] = {"/root/dmode/QeluAudioTest3.mp3", "/root/dmode/1500Hz AAC 48kHz.3gp",
                                 "/root/dmode/1500Hz AMR.3gp", "/usr/share/usr_data/Preload/HelloQelu.mp3"};

}  // namespace

std::vector<std::string> MediaPlayer::Paths() const {
  return {PLAYER};
}

void MediaPlayer::Furnish(RootDirectory& root) {
  root.PutFile(PLAYER, PLAYER_SCRIPT, 0755);
  root.PutNamedPipe(WAITING_PLACE);
  for (const char* clip : CLIPS) root.PutStandIn(clip);
}

int MediaPlayer::Exec(const ExecCall& call) {
  const auto first = call.arguments.begin() + (call.arguments.empty() ? 0 : 1);
  state.starts.push_back({{first, call.arguments.end()}, call.thread});
  if (state.starts.size() > MOST_STARTS) state.starts.pop_front();
  return 0;
}

std::vector<pid_t> MediaPlayer::Playing() const {
  return phone_.processes_named(PLAYER_NAME);
}

std::vector<ModelCommand> MediaPlayer::Commands() {
  return {{"player", "", "tells what the media player plays", [this](const std::vector<std::string>&) {
             const std::vector<pid_t> playing = Playing();
             std::string text;
             for (const Start& start : state.starts) {
               if (std::ranges::find(playing, start.process) == playing.end()) continue;
               text += fmt::format("plays {}\n", fmt::join(start.arguments, " "));
             }
             return text.empty() ? "plays nothing\n" : text;
           }}};
}

}  // namespace simulator
