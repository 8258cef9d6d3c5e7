#include "simulator/phone/furnishing.h"

#include <sys/stat.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <numbers>
#include <stdexcept>
#include <string>
#include <string_view>

namespace simulator {

namespace {

// The tools that busybox plays, by the name of a link to it. Those that would reach for the machine's own
// kernel (modules, network, power) are models' and not here.
constexpr const char* BUSYBOX_TOOLS[] = {
    "[",      "awk",    "basename", "cat",      "chmod",    "chown",   "clear",  "cmp",     "cp",
    "cut",    "date",   "dd",       "df",       "diff",     "dirname", "du",     "env",     "expr",
    "false",  "find",   "free",     "grep",     "gunzip",   "gzip",    "head",   "hexdump", "id",
    "kill",   "less",   "ln",       "ls",       "md5sum",   "mkdir",   "mkfifo", "more",    "mv",
    "od",     "printf", "pwd",      "readlink", "rm",       "rmdir",   "sed",    "seq",     "sha256sum",
    "sleep",  "sort",   "stat",     "stty",     "sync",     "tail",    "tar",    "tee",     "test",
    "time",   "touch",  "tr",       "true",     "truncate", "tty",     "uname",  "uniq",    "unlink",
    "usleep", "vi",     "wc",       "which",    "xargs",    "yes",     "zcat"};

constexpr const char* DIRECTORIES[] = {"/bin",  "/sbin", "/usr/bin", "/usr/sbin", "/etc",      "/dev",
                                       "/home", "/mnt",  "/proc",    "/root",     "/usr/share"};

std::filesystem::path FindBusybox() {
  for (const char* path : {"/usr/bin/busybox", "/bin/busybox"}) {
    if (std::filesystem::exists(path)) return path;
  }
  throw std::runtime_error("A simulated phone needs the program busybox (Debian: busybox-static).");
}

}  // namespace

void PutUserland(RootDirectory& root) {
  for (const char* directory : DIRECTORIES) root.MakeDirectory(directory);
  root.Remove("/tmp");
  root.MakeDirectory("/tmp");
  root.SetMode("/tmp", 01777);
  root.PutFileIfAbsent("/etc/passwd", "root:x:0:0:root:/root:/bin/sh\n");
  root.PutFileIfAbsent("/etc/group", "root:x:0:\n");

  root.CopyProgramIn(FindBusybox(), "/bin/busybox");
  // Hard links, since a symbolic one takes an inode: making those was most of a phone's boot.
  for (const char* tool : BUSYBOX_TOOLS) root.PutHardLink(std::string("/bin/") + tool, "/bin/busybox");
  // busybox starts its own tools by this name.
  root.PutLink("/proc/self/exe", "/bin/busybox");
  // busybox's shell would play the tools itself, unseen; dash finds and starts each as the program that it
  // is.
  root.CopyProgramIn("/bin/dash", "/bin/sh");
}

namespace {

using std::string_view_literals::operator""sv;

constexpr char SETTINGS[] = "/usr/share/config/setup/";

// A short beep that dies away: 16-bit samples, 8000 a second, as the phone's player takes them.
std::string Sound(double frequency, double seconds) {
  constexpr double SAMPLE_RATE = 8000;
  std::string samples;
  const int count = static_cast<int>(seconds * SAMPLE_RATE);
  for (int index = 0; index < count; ++index) {
    const double fading = 1 - static_cast<double>(index) / count;
    const double wave = std::sin(2 * std::numbers::pi * frequency * index / SAMPLE_RATE);
    const auto sample = static_cast<int16_t>(12000 * fading * wave);
    samples += static_cast<char>(sample & 0xFF);
    samples += static_cast<char>(sample >> 8);
  }
  return samples;
}

// The scripts are not executable: a program has to make them so first.
constexpr char RESET_SCRIPT[] = R"(#!/bin/sh
# Puts the default settings back.
cp -f /usr/share/config/setup/setup.default /usr/share/config/setup/setup.conf
)";
constexpr char CLEAR_SCRIPT[] = R"(#!/bin/sh
# Clears what the user left behind.
rm -f /usr/share/config/setup/recent.list
)";

void PutSettings(RootDirectory& root) {
  const struct {
    const char* name;
    double frequency;
    double seconds;
  } SOUNDS[] = {
      {"Touch_Scr_Click.pcm", 1800, 0.02},
      {"Touch_Scr_Tone.pcm", 880, 0.1},
      {"Water.pcm", 640, 0.08},
      {"PlugSound.pcm", 523, 0.2},
  };
  const std::string folder = SETTINGS;
  for (const auto& sound : SOUNDS) {
    root.PutFileIfAbsent(folder + sound.name, Sound(sound.frequency, sound.seconds));
  }
  root.PutFileIfAbsent(folder + "setup.default", "volume=4\nring=1\nvibrate=1\n");
  root.PutFileIfAbsent(folder + "setup.conf", "volume=4\nring=1\nvibrate=1\n");
  root.PutFileIfAbsent(folder + "setup_reset.sh", RESET_SCRIPT);
  root.PutFileIfAbsent(folder + "setup_clear.sh", CLEAR_SCRIPT);
  // Three counters of 32 bits, the seconds of the last, the outgoing and the incoming calls, then the log.
  root.PutFileIfAbsent("/usr/share/config/calllog/callmeter.log",
                       "\x2A\0\0\0\x10\x0E\0\0\x84\3\0\0call log\n"sv);
}

// Commands for the chip, each after the packet type 1: a code, a parameter length, parameters.
constexpr std::string_view BLUETOOTH_SCRIPT =
    "\x01\x03\x0C\x00"                                              // reset
    "\x01\x36\xFF\x05\x00\xC2\x01\x00\x09"                          // UART speed 115200
    "\x01\x06\xFC\x06\x00\x00\x00\x00\x00\x00"                      // device address
    "\x01\x1C\xFD\x07\x01\x02\x00\x00\x00\x00\xFF"                  // audio: slave, 16 bits
    "\x01\x0C\xFD\x09\x01\x01\x00\x00\x00\x00\x00\x00\x64\x01\x17"  // sleep after inactivity
    "\x01\x13\x0C\x10SIMULATED PHONE\x00"sv;                        // local name

}  // namespace

void PutFactoryFiles(RootDirectory& root) {
  root.PutFileIfAbsent("/etc/version", "R1.2 build 7\n");
  root.PutFileIfAbsent("/usr/share/config/version", "C1.0.4\n");
  root.PutFileIfAbsent("/root/resource/version", "RES-0603\n");
  root.PutFileIfAbsent("/usr/share/app_data/bluetooth/ti6150_template", BLUETOOTH_SCRIPT);
  root.MakeDirectory("/usr/share/app");
  root.MakeDirectory("/usr/share/usr_data/Photos");
  PutSettings(root);
}

}  // namespace simulator
