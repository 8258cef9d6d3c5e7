#include "simulator/models/keypad.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/input-event-codes.h>
#include <strings.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "simulator/phone/command_words.h"

namespace simulator {
namespace {

// The kernel's struct input_event on a 32-bit machine.
struct Event {
  uint32_t seconds, microseconds;
  uint16_t type, code;
  uint32_t value;
};
static_assert(sizeof(Event) == 16);

// The phone's keys by the input system's names for their numbers.
struct Key {
  const char* name;
  uint16_t number;
};
constexpr Key KEYS[] = {
    {"deletefile", KEY_DELETEFILE},
    {"macro", KEY_MACRO},
    {"delete", KEY_DELETE},
    {"edit", KEY_EDIT},
    {"exit", KEY_EXIT},
    {"power", KEY_POWER},
    {"undo", KEY_UNDO},
    {"front", KEY_FRONT},
    {"copy", KEY_COPY},
    {"open", KEY_OPEN},
    {"paste", KEY_PASTE},
    {"eject", KEY_EJECTCLOSECD},
    {"cancel", KEY_CANCEL},
};
constexpr uint32_t DOWN = 1;

uint32_t KeyDown(uint32_t number) {
  return number << 16 | DOWN;
}

// A name, a key's number, or a whole value.
uint32_t ValueOf(const std::string& word) {
  for (const Key& key : KEYS) {
    if (strcasecmp(key.name, word.c_str()) == 0) return KeyDown(key.number);
  }
  std::string names;
  for (const Key& key : KEYS) names += fmt::format(" {}", key.name);
  if (word.empty() || word[0] < '0' || word[0] > '9') {
    throw std::invalid_argument(fmt::format("There is no key {}; there are:{}.", word, names));
  }
  const int64_t number = NumberWord(word);
  if (number > UINT32_MAX) throw std::invalid_argument("A key's value has 32 bits.");
  return number <= UINT16_MAX ? KeyDown(static_cast<uint32_t>(number)) : static_cast<uint32_t>(number);
}

}  // namespace

Keypad::Keypad(PhoneServices& phone) : DeviceModel(phone) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  reading_.Reset(ends[0]);
  writing_.Reset(ends[1]);
}

std::vector<std::string> Keypad::Paths() const {
  return {"/dev/input/event0"};
}

OpenAnswer Keypad::Open(const OpenCall& call) {
  if (call.Writes()) return OpenAnswer::Refusal(EACCES);
  // The same queue with file flags of its own.
  return OpenAnswer::PlainDescriptor(posix::FileDescriptor(
      open(fmt::format("/proc/self/fd/{}", reading_.Get()).c_str(), call.ModeFlags() | O_CLOEXEC)));
}

void Keypad::PutEvent(uint32_t value) {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  const Event event = {static_cast<uint32_t>(now.tv_sec), static_cast<uint32_t>(now.tv_nsec / 1000), EV_KEY,
                       static_cast<uint16_t>(value >> 16), value};
  if (write(writing_.Get(), &event, std::min(sizeof event, state.event_bytes)) < 0) {
    throw std::invalid_argument("The keypad's queue is full: nothing reads it.");
  }
}

std::vector<ModelCommand> Keypad::Commands() {
  return {{"key", "NAME | NUMBER | VALUE",
           "presses and releases a key: its name, its number (0x74) or the driver's whole value (0x740001)",
           [this](const std::vector<std::string>& words) { return Press(words); }}};
}

std::string Keypad::Press(const std::vector<std::string>& words) {
  if (words.size() != 1) throw std::invalid_argument("key takes one key.");
  const uint32_t value = ValueOf(words[0]);
  PutEvent(value);
  PutEvent(0);
  return fmt::format("key 0x{:08X}\n", value);
}

}  // namespace simulator
