#include "station/link/serial_server.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <string>

#include "station/commands/errors.h"
#include "station/link/interruption.h"
#include "station/link/port_opening.h"

namespace station {

namespace {

using namespace telnet;

constexpr std::uint8_t BINARY = 0;
constexpr std::uint8_t NO_GO_AHEAD = 3;
constexpr std::uint8_t COM_PORT = 44;
constexpr std::uint8_t FROM_SERVER = 100;  // added to the code of what it answers or asks
constexpr std::uint8_t SUSPEND = 8;
constexpr std::uint8_t RESUME = 9;

constexpr auto TIME_OUT = std::chrono::seconds(5);

struct PortSetting {
  std::uint8_t code;
  Bytes value;
  const char* meaning;
};

// What must be as it is here; the numbers are RFC 2217's.
const std::vector<PortSetting>& PortSettings() {
  static const std::vector<PortSetting> settings = {
      {1, {0x00, 0x01, 0xC2, 0x00}, "115200 baud"},
      {2, {8}, "8 data bits"},
      {3, {1}, "no parity"},
      {4, {1}, "1 stop bit"},
      {5, {1}, "no handshake"},
  };
  return settings;
}

// An open port on this computer has both lines on too. A server without them need not answer.
const std::vector<PortSetting> LINES = {{5, {8}, "DTR on"}, {5, {11}, "RTS on"}};

constexpr std::uint8_t PURGE = 12;
constexpr std::uint8_t PURGE_BOTH = 3;

void AppendRequest(Bytes& stream, std::uint8_t code, const Bytes& value) {
  stream.insert(stream.end(), {ESCAPE, SUBNEGOTIATION, COM_PORT, code});
  AppendEscaped(stream, value);
  stream.insert(stream.end(), {ESCAPE, SUBNEGOTIATION_END});
}

}  // namespace

SerialServer::SerialServer(const std::string& address)
    : name_(RFC2217_PREFIX + address), descriptor_(OpenTcpPort(address, RFC2217_PREFIX)) {
  Negotiate();
  SetPortUp();
}

void SerialServer::Negotiate() {
  for (const std::uint8_t option : {COM_PORT, BINARY, NO_GO_AHEAD}) Reply({WILL, option});
  for (const std::uint8_t option : {BINARY, NO_GO_AHEAD}) Reply({DO, option});
  const auto refused = [this](std::uint8_t option) {
    return said_.contains({DONT, option}) || said_.contains({WONT, option});
  };
  Await([&] { return Agreed() || refused(COM_PORT) || refused(BINARY); },
        std::chrono::steady_clock::now() + TIME_OUT);
  if (refused(COM_PORT)) throw LinkFailure(name_ + ": the server does not let its port be set up");
  if (refused(BINARY)) throw LinkFailure(name_ + ": the server refuses binary transfer");
}

bool SerialServer::Agreed() const {
  return said_.contains({DO, COM_PORT}) && said_.contains({DO, BINARY}) && said_.contains({WILL, BINARY});
}

void SerialServer::SetPortUp() {
  for (const PortSetting& setting : PortSettings()) AppendRequest(replies_, setting.code, setting.value);
  // The answers to these have the code of the handshake's.
  const auto deadline = std::chrono::steady_clock::now() + TIME_OUT;
  const auto all_set = [this] {
    return std::ranges::all_of(PortSettings(),
                               [this](const auto& setting) { return set_.contains(setting.code); });
  };
  Await(all_set, deadline);
  for (const PortSetting& setting : PortSettings()) {
    const Bytes& value = set_[setting.code];
    if (value == setting.value) continue;
    throw LinkFailure(
        fmt::format("{}: the server does not set {}; it says {}", name_, setting.meaning, HexText(value)));
  }
  for (const PortSetting& line : LINES) AppendRequest(replies_, line.code, line.value);
  AppendRequest(replies_, PURGE, {PURGE_BOTH});
  Await([this] { return set_.contains(PURGE); }, deadline);
}

void SerialServer::Await(const std::function<bool()>& done, Time deadline) {
  constexpr std::size_t LONGEST_TEXT = 200;
  std::string text;  // such as "Port already in use", before the server hangs up
  while (!done()) {
    FlushReplies();
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    CheckInterruption();
    if (left <= 0) {
      throw LinkFailure(name_ +
                        ": the server does not answer as RFC 2217 has it; a raw one is tcp:HOST:PORT");
    }
    std::array<pollfd, 2> waiting = {
        {{descriptor_.Get(), static_cast<short>(POLLIN | (replies_.empty() || suspended_ ? 0 : POLLOUT)), 0},
         {InterruptionDescriptor(), POLLIN, 0}}};
    poll(waiting.data(), waiting.size(), static_cast<int>(left));
    std::array<std::uint8_t, 512> room;
    const ssize_t count = Read(room);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (count <= 0) {
      while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())) != 0) text.pop_back();
      throw LinkFailure(fmt::format("{}: the server has hung up{}{}", name_, text.empty() ? "" : ": ", text));
    }
    const auto size = static_cast<std::size_t>(count);
    text.append(room.begin(),
                room.begin() + static_cast<std::ptrdiff_t>(std::min(size, LONGEST_TEXT - text.size())));
  }
}

void SerialServer::Take(const Bytes& command) {
  if (command[0] != SUBNEGOTIATION) {
    TakeOption(command[0], command[1]);
    return;
  }
  if (command.size() < 3 || command[1] != COM_PORT || command[2] <= FROM_SERVER) return;
  const auto code = static_cast<std::uint8_t>(command[2] - FROM_SERVER);
  if (code == SUSPEND || code == RESUME) suspended_ = code == SUSPEND;
  // The first answer counts: later ones with the same code are the lines'.
  set_.try_emplace(code, command.begin() + 3, command.end());
}

void SerialServer::TakeOption(std::uint8_t verb, std::uint8_t option) {
  const bool known = option == BINARY || option == NO_GO_AHEAD || option == COM_PORT;
  // Each is answered once: an answer to an answer would go on for ever.
  if (!said_.insert({verb, option}).second) return;
  if (verb == DO && !known) Reply({WONT, option});
  if (verb == WILL && !known) Reply({DONT, option});
  // What this side asked for is answered by these already.
  if (verb == WILL && option == COM_PORT) Reply({DO, option});
}

void SerialServer::Reply(std::initializer_list<std::uint8_t> command) {
  replies_.push_back(ESCAPE);
  replies_.insert(replies_.end(), command);
}

void SerialServer::FlushReplies() {
  if (half_sent_ || suspended_ || replies_.empty()) return;
  const ssize_t written = write(descriptor_.Get(), replies_.data(), replies_.size());
  if (written > 0) replies_.erase(replies_.begin(), replies_.begin() + written);
}

ssize_t SerialServer::Write(std::span<const std::uint8_t> data) {
  constexpr std::size_t PIECE = 16384;
  if (data.empty()) return 0;
  if (suspended_) {
    errno = EAGAIN;
    return -1;
  }
  // Another command follows one that was given up in the middle.
  if (half_sent_ && data[0] != ESCAPE) {
    half_sent_ = false;
    replies_.insert(replies_.begin(), ESCAPE);
  }
  FlushReplies();
  if (!replies_.empty()) {
    errno = EAGAIN;
    return -1;
  }
  Bytes stream;
  AppendEscaped(stream, data.first(std::min(data.size(), PIECE)));
  const std::span<const std::uint8_t> rest = std::span(stream).subspan(half_sent_ ? 1 : 0);
  const ssize_t written = write(descriptor_.Get(), rest.data(), rest.size());
  if (written < 0) return written;
  std::size_t left = static_cast<std::size_t>(written) + (half_sent_ ? 1 : 0);
  ssize_t taken = 0;
  for (; left > 0; ++taken) {
    const std::size_t size = data[static_cast<std::size_t>(taken)] == ESCAPE ? 2 : 1;
    if (left < size) break;
    left -= size;
  }
  half_sent_ = left > 0;
  return taken;
}

ssize_t SerialServer::Read(std::span<std::uint8_t> room) {
  for (;;) {
    const ssize_t count = read(descriptor_.Get(), room.data(), room.size());
    if (count <= 0) return count;
    const std::size_t size = decoder_.Decode(room.first(static_cast<std::size_t>(count)),
                                             [this](const Bytes& command) { Take(command); });
    FlushReplies();
    if (size > 0) return static_cast<ssize_t>(size);
  }
}

}  // namespace station
