#include "simulator/phonesim/client.h"

#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "simulator/phonesim/control_socket.h"
#include "simulator/phonesim/terminal_relay.h"

namespace simulator {
namespace {

int Show(const Answer& answer) {
  fmt::print(answer.good ? stdout : stderr, "{}", answer.text);
  return answer.good ? 0 : 1;
}

int NoSuchPhone(const std::string& name) {
  fmt::print(stderr, "No simulated phone named {} runs.\n", name);
  return 1;
}

// Commands whose answer is a file's content, by the phone's own word for it.
bool GivesFile(const std::string& name, const std::string& command) {
  return Request(name, {"gives-file", command}).good;
}

}  // namespace

std::string PhoneAtPort(const std::string& port) {
  std::error_code error;
  const std::string device = std::filesystem::canonical(port, error).string();
  for (const std::string& name : RunningPhones()) {
    if (Request(name, {"host-port"}).text == device) return name;
  }
  throw std::runtime_error(fmt::format("No simulated phone has the port {}.", port));
}

int StopPhone(const std::string& name) {
  const Answer answer = Request(name, {"stop"});
  // The name is free again when the phone is gone.
  while (answer.good && ConnectTo(name).IsOpen()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  return Show(answer);
}

int ShowPhones() {
  for (const std::string& name : RunningPhones()) Show(Request(name, {"status"}));
  return 0;
}

int ShellInPhone(const std::string& name) {
  const posix::FileDescriptor phone = ConnectTo(name);
  if (!phone.IsOpen()) return NoSuchPhone(name);
  SendWords(phone, {"shell"});
  const Answer answer = ReceiveStatus(phone);
  if (!answer.descriptor.IsOpen()) return NoSuchPhone(name);
  RelayTerminal(answer.descriptor);
  return 0;
}

int ShowJournal(const std::string& name, bool follow) {
  const posix::FileDescriptor phone = ConnectTo(name);
  if (!phone.IsOpen()) return NoSuchPhone(name);
  SendWords(phone,
            follow ? std::vector<std::string>{"journal", "--follow"} : std::vector<std::string>{"journal"});
  ReceiveStatus(phone);
  char bytes[1 << 14];
  ssize_t size;
  while ((size = read(phone.Get(), bytes, sizeof bytes)) > 0) {
    fwrite(bytes, 1, static_cast<size_t>(size), stdout);
    fflush(stdout);
  }
  return 0;
}

int CommandPhone(const std::string& name, std::vector<std::string> words) {
  if (words.size() < 2 || !GivesFile(name, words[0])) return Show(Request(name, words));
  const std::string file = words.back();
  words.pop_back();
  const Answer answer = Request(name, words);
  if (!answer.good) return Show(answer);
  std::ofstream stream(file, std::ios::binary);
  stream << answer.text;
  if (stream.flush()) return 0;
  fmt::print(stderr, "{} cannot be written.\n", file);
  return 1;
}

}  // namespace simulator
