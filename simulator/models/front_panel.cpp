#include "simulator/models/front_panel.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/input-event-codes.h>
#include <strings.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "protocol/selectors.h"
#include "simulator/models/picture.h"
#include "simulator/phone/device_model.h"
#include "simulator/phone/poll_loop.h"

namespace simulator {

std::vector<std::string> Framebuffer::Paths() const {
  return {"/dev/fb/0"};
}

OpenAnswer Framebuffer::Open(const OpenCall& call) {
  // A pipe can be opened but not mapped.
  if (state.refuses_mapping)
    return OpenAnswer::PlainDescriptor(ValuePipe(phone_.loop, call, [](const auto&) {}));
  return OpenAnswer::Descriptor(memory_.Open(call));
}

std::vector<uint16_t> Framebuffer::Pixels() const {
  std::vector<uint16_t> pixels(size_t{WIDTH} * HEIGHT);
  memcpy(pixels.data(), memory_.Bytes(), memory_.Size());
  return pixels;
}

std::string Framebuffer::Png() const {
  return EncodePng(Pixels(), WIDTH, HEIGHT);
}

posix::FileDescriptor Framebuffer::OpenToRead() const {
  return memory_.Open({.path = {}, .flags = O_RDONLY, .thread = 0});
}

std::vector<ModelCommand> Framebuffer::Commands() {
  return {{"screenshot", "FILE", "the LCD as a PNG picture",
           [this](const std::vector<std::string>&) { return Png(); }, FileWord{FileWord::Opener::Caller, 0}}};
}

namespace {

constexpr uint32_t DOWN = 1;

uint32_t KeyDown(uint32_t number) {
  return number << 16 | DOWN;
}

// A name, a key's number, or a whole value.
uint32_t ValueOf(const std::string& word) {
  for (const KeypadKey& key : KEYPAD_KEYS) {
    if (strcasecmp(key.name, word.c_str()) == 0) return KeyDown(key.input_code);
  }
  std::string names;
  for (const KeypadKey& key : KEYPAD_KEYS) names += fmt::format(" {}", key.name);
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
  const InputEvent event = {static_cast<uint32_t>(now.tv_sec), static_cast<uint32_t>(now.tv_nsec / 1000),
                            EV_KEY, static_cast<uint16_t>(value >> 16), value};
  if (write(writing_.Get(), &event, std::min(sizeof event, state.event_bytes)) < 0) {
    throw std::invalid_argument("The keypad's queue is full: nothing reads it.");
  }
}

std::vector<ModelCommand> Keypad::Commands() {
  return {{"key",
           "[down | dead] NAME | NUMBER | VALUE, or: up",
           "presses and releases a key: its name, its number (0x74) or the driver's whole value (0x740001); "
           "holds it (down); releases what is held (up); from now on a dead key does nothing",
           [this](const std::vector<std::string>& words) { return Press(words); },
           {},
           {{"dead", "power"}, {"dead", "exit"}}}};
}

std::string Keypad::Press(const std::vector<std::string>& words) {
  if (words == std::vector<std::string>{"up"}) {
    PutEvent(0);
    return {};
  }
  const bool holds = words.size() == 2 && words[0] == "down";
  const bool dies = words.size() == 2 && words[0] == "dead";
  if (words.size() != 1 && !holds && !dies) {
    throw std::invalid_argument("key takes one key, after down to hold it.");
  }
  const uint32_t value = ValueOf(words.back());
  if (dies) state.dead_keys.push_back(value);
  if (std::ranges::find(state.dead_keys, value) != state.dead_keys.end()) {
    return fmt::format("key 0x{:08X} is dead\n", value);
  }
  PutEvent(value);
  if (!holds) PutEvent(0);
  return fmt::format("key 0x{:08X}\n", value);
}

std::vector<std::string> TouchPanel::Paths() const {
  return {"/dev/touchscreen/tsc2046"};
}

OpenAnswer TouchPanel::Open(const OpenCall& call) {
  if (call.Writes()) return OpenAnswer::Refusal(EACCES);
  // A socket keeps records apart, so that one read returns one of them.
  posix::Connection sockets = posix::MakeSocketPair(SOCK_SEQPACKET);
  if (!sockets) return OpenAnswer::Refusal(errno);
  fcntl(sockets.writing.Get(), F_SETFL, call.flags & O_NONBLOCK);
  const auto reader = readers_.insert(readers_.end(), std::move(sockets.reading));
  const auto watch = std::make_shared<PollLoop::Id>();
  *watch = phone_.loop.Watch(reader->Get(), POLLIN, [this, reader, watch](short) {
    char ignored[64];
    const ssize_t size = recv(reader->Get(), ignored, sizeof ignored, MSG_DONTWAIT);
    if (size > 0 || (size < 0 && errno == EAGAIN)) return;
    phone_.loop.Unwatch(*watch);
    readers_.erase(reader);
  });
  return OpenAnswer::PlainDescriptor(std::move(sockets.writing));
}

size_t TouchPanel::Deliver(const TouchReading& reading) {
  const size_t size = std::min(sizeof reading, state.reading_bytes);
  return static_cast<size_t>(std::ranges::count_if(readers_, [&](const posix::FileDescriptor& reader) {
    return send(reader.Get(), &reading, size, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0 || errno == EAGAIN;
  }));
}

// The panel's X axis runs along the screen's rows and its Y axis along the columns. Its ends lie at 257 and
// 3812 for the rows, 260 and 3845 for the columns, and the converter counts both backwards from 4096.
TouchReading TouchPanel::ReadingAt(int32_t screen_x, int32_t screen_y) {
  constexpr int32_t FULL_SCALE = 4096;
  const int32_t panel_x = 257 + screen_y * 3555 / static_cast<int32_t>(Framebuffer::HEIGHT - 1);
  const int32_t panel_y = 260 + screen_x * 3585 / static_cast<int32_t>(Framebuffer::WIDTH - 1);
  return {static_cast<uint32_t>(FULL_SCALE - panel_x), static_cast<uint32_t>(FULL_SCALE - panel_y), 1};
}

std::vector<ModelCommand> TouchPanel::Commands() {
  return {
      {"touch",
       "X Y | down X Y | move X Y | up X Y | noise READINGS | dead",
       "touches the screen for a moment at a pixel (from the top left corner), or puts the pen down, draws "
       "and lifts it; noise moves every reading at random by up to so much; a dead panel notices nothing",
       [this](const std::vector<std::string>& words) { return Touch(words); },
       {},
       {{"dead"}}}};
}

std::string TouchPanel::Touch(const std::vector<std::string>& words) {
  if (words == std::vector<std::string>{"dead"}) {
    dead_ = true;
    return {};
  }
  if (words.size() == 2 && words[0] == "noise") {
    constexpr int MOST_NOISE = 500;
    const int noise = CountWord(words[1]);
    if (noise > MOST_NOISE) throw std::invalid_argument(fmt::format("noise is 0 to {}.", MOST_NOISE));
    state.noise = static_cast<uint32_t>(noise);
    return {};
  }
  const bool whole = words.size() == 2;
  const std::string what = words.size() == 3 ? words[0] : "";
  if (!whole && what != "down" && what != "move" && what != "up") {
    throw std::invalid_argument("touch takes a pixel's column and row, alone or after down, move or up.");
  }
  return TouchAt(what, NumberWord(words[words.size() - 2]), NumberWord(words.back()));
}

// `what` is empty for a whole touch.
std::string TouchPanel::TouchAt(const std::string& what, int64_t x, int64_t y) {
  if (x < 0 || x >= Framebuffer::WIDTH || y < 0 || y >= Framebuffer::HEIGHT) {
    throw std::invalid_argument(
        fmt::format("The screen has {} columns and {} rows.", Framebuffer::WIDTH, Framebuffer::HEIGHT));
  }
  TouchReading reading = ReadingAt(static_cast<int32_t>(x), static_cast<int32_t>(y));
  if (dead_) return "The touch panel is dead.\n";
  AddNoise(reading.x);
  AddNoise(reading.y);
  if (what == "up") reading.pen = 0;
  const size_t readers = Deliver(reading);
  if (what.empty()) {
    reading.pen = 0;
    Deliver(reading);
  }
  return readers == 0 ? "No program reads the touch panel.\n"
                      : fmt::format("reading {} {}\n", reading.x, reading.y);
}

void TouchPanel::AddNoise(uint32_t& value) {
  if (state.noise == 0) return;
  chance_ = chance_ * 1664525 + 1013904223;
  value += (chance_ >> 8) % (2 * state.noise + 1) - state.noise;
}

}  // namespace simulator
