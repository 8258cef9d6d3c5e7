#include "station/tasks/pass_through.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <thread>

#include "posix/raw_terminal.h"
#include "posix/whole_output.h"
#include "protocol/selectors.h"
#include "station/commands/bytes.h"
#include "station/commands/errors.h"

namespace station {

namespace {

constexpr std::uint8_t LEAVE_KEY = 0x1D;  // Ctrl-]

// Pauses before and after the frame, so that the phone reads it alone.
constexpr std::chrono::milliseconds FRAME_PAUSE{100};

// What is read at once, and the most that is held until the phone takes it.
constexpr std::size_t ROOM = 4096;

// Returns false if the output is lost.
bool WriteOutput(std::span<const std::uint8_t> bytes) {
  return posix::WriteToOutput({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

volatile std::sig_atomic_t interrupted = 0;

// While this object lives, an interruption only sets the flag: the phone must still leave the relay.
class InterruptionHeld {
 public:
  InterruptionHeld() {
    interrupted = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted = 1; };
    for (std::size_t i = 0; i < SIGNALS.size(); ++i) sigaction(SIGNALS[i], &action, &before_[i]);
  }
  InterruptionHeld(const InterruptionHeld&) = delete;
  InterruptionHeld& operator=(const InterruptionHeld&) = delete;
  ~InterruptionHeld() {
    for (std::size_t i = 0; i < SIGNALS.size(); ++i) sigaction(SIGNALS[i], &before_[i], nullptr);
  }

 private:
  static constexpr std::array<int, 3> SIGNALS = {SIGINT, SIGTERM, SIGHUP};
  std::array<struct sigaction, 3> before_{};
};

class Relay {
 public:
  Relay(Link& link, bool keys) : link_(link), keys_(keys) {}

  void Run(std::chrono::milliseconds linger) {
    // An interruption just before the wait is noticed after this time.
    constexpr std::chrono::milliseconds LOOK{500};
    constexpr std::chrono::seconds STUCK{5};
    while (!leaving_) Turn(LOOK);
    // Data from the modem does not extend this time.
    auto end = Clock::now() + STUCK;
    while (!pending_.empty()) {
      const std::size_t before = pending_.size();
      Turn(LOOK);
      if (pending_.size() != before) end = Clock::now() + STUCK;
      if (Clock::now() >= end) throw LinkFailure(fmt::format("{} does not take what is sent", link_.Port()));
    }
    while (!asked_ && Turn(linger)) {
    }
  }

 private:
  // Waits for something to do and does it; returns false if the time passed first. Both directions are served
  // in every turn, so that neither can block the other.
  bool Turn(std::chrono::milliseconds limit) {
    const bool reading = !leaving_ && pending_.empty();
    std::array<pollfd, 2> waiting = {{
        link_.Polled(static_cast<short>(POLLIN | (pending_.empty() ? 0 : POLLOUT))),
        {reading ? STDIN_FILENO : -1, POLLIN, 0},
    }};
    const int ready = poll(waiting.data(), waiting.size(), static_cast<int>(limit.count()));
    if (interrupted != 0) leaving_ = asked_ = true;
    if (ready <= 0) return ready < 0;
    if ((waiting[0].revents & (POLLIN | POLLHUP | POLLERR)) != 0) FromModem();
    if ((waiting[0].revents & POLLOUT) != 0) ToModem();
    if (waiting[1].revents != 0) FromInput();
    return true;
  }

  void FromModem() {
    std::array<std::uint8_t, ROOM> room;
    // The phone must leave the relay also when the output is closed.
    if (!WriteOutput(std::span(room).first(link_.ReceiveWaiting(room)))) leaving_ = asked_ = true;
  }

  void FromInput() {
    std::array<std::uint8_t, ROOM> room;
    const ssize_t count = read(STDIN_FILENO, room.data(), room.size());
    if (count < 0 && errno == EINTR) return;
    pending_.assign(room.begin(), room.begin() + std::max<ssize_t>(count, 0));
    if (count <= 0) leaving_ = true;
    const auto key = keys_ ? std::ranges::find(pending_, LEAVE_KEY) : pending_.end();
    if (key != pending_.end()) {
      pending_.erase(key, pending_.end());
      leaving_ = asked_ = true;
    }
    ToModem();
  }

  void ToModem() {
    if (pending_.empty()) return;
    const auto sent = static_cast<std::ptrdiff_t>(link_.SendSome(pending_));
    pending_.erase(pending_.begin(), pending_.begin() + sent);
  }

  Link& link_;
  bool keys_;             // the leave key is looked for
  bool leaving_ = false;  // no more input is taken
  bool asked_ = false;    // a person wants to leave now
  Bytes pending_;
};

}  // namespace

void RelayToModem(Link& link, bool plain, std::chrono::milliseconds linger) {
  const bool terminal = isatty(STDIN_FILENO) != 0 && !plain;
  {
    const InterruptionHeld held;
    std::optional<posix::RawTerminal> raw;
    if (terminal) {
      fmt::print(stderr, "connected to the modem; Ctrl-] leaves\n");
      raw.emplace(STDIN_FILENO, TCSANOW);
    }
    Relay(link, terminal).Run(linger);
  }
  std::this_thread::sleep_for(FRAME_PAUSE);
  link.Send(LEAVE_FRAME, Clock::now() + std::chrono::seconds(5));
  std::this_thread::sleep_for(FRAME_PAUSE);
  if (terminal) fmt::print(stderr, "\nback\n");
}

}  // namespace station
