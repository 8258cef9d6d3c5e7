#include "tests/station/scripted_phone.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "station/commands/bytes.h"

namespace {

using station::Bytes;
using station::HexText;

// A turn that has not come by then will not come.
constexpr std::chrono::milliseconds PATIENCE{20'000};

// The kernel may deliver the tool's last bytes only after the tool has ended.
constexpr std::chrono::milliseconds GRACE{2000};

// Waits until the bytes are there or the play has been over for the given time.
Bytes ReadExactly(int descriptor, std::size_t size, const std::atomic<bool>& over,
                  std::chrono::milliseconds grace) {
  constexpr std::chrono::milliseconds LOOK{10};
  Bytes bytes;
  std::chrono::milliseconds idle{0};
  std::chrono::milliseconds idle_after{0};
  while (bytes.size() < size && idle < PATIENCE && idle_after < grace) {
    pollfd waiting{descriptor, POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(LOOK.count())) == 1 && (waiting.revents & POLLIN) != 0) {
      std::array<std::uint8_t, 4096> room;
      const ssize_t count = read(descriptor, room.data(), std::min(room.size(), size - bytes.size()));
      if (count <= 0) break;
      bytes.insert(bytes.end(), room.begin(), room.begin() + count);
      continue;
    }
    idle += LOOK;
    if (over) idle_after += LOOK;
  }
  return bytes;
}

std::string Number16(std::size_t number) {
  const Bytes bytes = {static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
  return HexText(bytes, "");
}

std::string ReadAll(const posix::FileDescriptor& file) {
  std::string text;
  std::array<char, 4096> room;
  for (ssize_t count = 0;
       (count = pread(file.Get(), room.data(), room.size(), static_cast<off_t>(text.size()))) > 0;) {
    text.append(room.data(), static_cast<std::size_t>(count));
  }
  return text;
}

posix::FileDescriptor ScratchFile() {
  return posix::FileDescriptor(memfd_create("output", MFD_CLOEXEC));
}

posix::FileDescriptor OpenMaster(std::string& path) {
  posix::FileDescriptor master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!master.IsOpen() || grantpt(master.Get()) != 0 || unlockpt(master.Get()) != 0) {
    throw std::runtime_error("no pseudo-terminal");
  }
  std::array<char, 64> name{};
  ptsname_r(master.Get(), name.data(), name.size());
  path = name.data();
  return master;
}

posix::FileDescriptor OpenSlave(const std::string& path) {
  return posix::FileDescriptor(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
}

// Listens at a port of the loopback that the kernel chooses.
posix::FileDescriptor Listen(std::string& port) {
  posix::FileDescriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener.Get(), generic, size) != 0 || listen(listener.Get(), 1) != 0 ||
      getsockname(listener.Get(), generic, &size) != 0) {
    throw std::runtime_error("no socket to listen at");
  }
  port = "tcp:localhost:" + std::to_string(ntohs(address.sin_port));
  return listener;
}

}  // namespace

ScriptedPhone::ScriptedPhone(std::vector<Turn> script, Kind kind) : script_(std::move(script)) {
  if (kind == Kind::TcpPort) {
    listener_ = Listen(port_);
  } else {
    descriptor_ = OpenMaster(port_);
    other_side_ = OpenSlave(port_);
  }
  thread_ = std::thread([this] { Play(); });
}

ScriptedPhone::~ScriptedPhone() {
  Difference();
}

void ScriptedPhone::Play() {
  if (listener_.IsOpen()) {
    pollfd waiting{listener_.Get(), POLLIN, 0};
    while (!over_ && poll(&waiting, 1, 10) != 1) {
    }
    if (!over_) descriptor_.Reset(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  }
  for (std::size_t turn = 0; turn < script_.size(); ++turn) {
    const Bytes expected = station::BytesFromHex(script_[turn].expected);
    const Bytes came = ReadExactly(descriptor_.Get(), expected.size(), over_, GRACE);
    if (came != expected) {
      difference_ =
          "turn " + std::to_string(turn) + ": expected " + HexText(expected) + ", came " + HexText(came);
      return;
    }
    std::this_thread::sleep_for(script_[turn].delay);
    if (script_[turn].before_answer) script_[turn].before_answer();
    const Bytes answer = station::BytesFromHex(script_[turn].answer);
    if (write(descriptor_.Get(), answer.data(), answer.size()) != static_cast<ssize_t>(answer.size())) {
      difference_ = "turn " + std::to_string(turn) + ": the answer was not taken";
      return;
    }
    if (script_[turn].hangs_up) {
      descriptor_.Reset();
      return;
    }
  }
  const Bytes more = ReadExactly(descriptor_.Get(), 1, over_, std::chrono::milliseconds(30));
  if (!more.empty()) difference_ = "came after the last turn: " + HexText(more);
}

std::string ScriptedPhone::Difference() {
  over_ = true;
  if (thread_.joinable()) thread_.join();
  return difference_;
}

Terminal::Terminal() : keyboard_(OpenMaster(path_)), other_side_(OpenSlave(path_)) {}

void Terminal::Type(const std::string& text) const {
  EXPECT_EQ(write(keyboard_.Get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

void Terminal::Flood(std::chrono::milliseconds time) const {
  const std::string noise(4096, 'n');
  const auto end = std::chrono::steady_clock::now() + time;
  fcntl(keyboard_.Get(), F_SETFL, O_NONBLOCK);
  while (std::chrono::steady_clock::now() < end) {
    pollfd waiting{keyboard_.Get(), POLLOUT, 0};
    if (poll(&waiting, 1, 10) == 1 && write(keyboard_.Get(), noise.data(), noise.size()) == 0) break;
  }
}

termios Terminal::Settings() const {
  termios settings{};
  tcgetattr(other_side_.Get(), &settings);
  return settings;
}

ToolResult RunTool(const std::vector<std::string>& arguments, const std::string& input, const Watch& watch) {
  std::vector<std::string> words = {PHONETEST_PROGRAM};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return RunProgram(std::move(words), input, watch);
}

ToolResult RunProgram(std::vector<std::string> words, const std::string& input, const Watch& watch) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  const posix::FileDescriptor output = ScratchFile();
  const posix::FileDescriptor errors = ScratchFile();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, input.c_str(), O_RDONLY | O_NOCTTY, 0);
  posix_spawn_file_actions_adddup2(&actions, output.Get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errors.Get(), STDERR_FILENO);
  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  const int error = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("cannot run " + words.front());
  int status = 0;
  while (watch && waitpid(child, &status, WNOHANG) == 0) {
    watch({.output = ReadAll(output), .errors = ReadAll(errors)});
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (!watch) waitpid(child, &status, 0);
  return {.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status),
          .output = ReadAll(output),
          .errors = ReadAll(errors),
          .took = std::chrono::steady_clock::now() - start};
}

std::string Repeat(const std::string& byte, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) text += byte;
  return text;
}

std::string GreyJpeg(std::size_t width, std::size_t height, std::size_t padding) {
  // Both Huffman tables hold a single code: the bit 0 means "no difference" or "end of block". So two bits
  // are a block.
  const std::string table = "FFC40014";
  const std::string single_code = "01" + Repeat("00", 16);
  const std::size_t bits = width / 8 * (height / 8) * 2;
  std::string data = Repeat("00", bits / 8);
  if (bits % 8 != 0) data += HexText(Bytes{static_cast<std::uint8_t>(0xFF >> bits % 8)}, "");
  return "FFD8FFFE" + Number16(padding + 2) + Repeat("2A", padding) + "FFDB004300" + Repeat("01", 64) +
         "FFC0000B08" + Number16(height) + Number16(width) + "01011100" + table + "00" + single_code + table +
         "10" + single_code + "FFDA0008010100003F00" + data + "FFD9";
}

// The tool's runs are stored in a database there, not in the user's own.
[[maybe_unused]] static const int data_is_our_own =
    setenv("XDG_DATA_HOME", (TemporaryFolder() + "/data").c_str(), 1);

const std::string& TemporaryFolder() {
  static const struct Folder {
    Folder() {
      std::filesystem::create_directories(path);
    }
    ~Folder() {
      std::error_code error;
      std::filesystem::remove_all(path, error);
    }
    std::string path = testing::TempDir() + "phonetest-tests-" + std::to_string(getpid());
  } folder;
  return folder.path;
}

std::string TemporaryFile(const std::string& name, const std::string& content) {
  const std::string path = TemporaryFolder() + "/" + name;
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
