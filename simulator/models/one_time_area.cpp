#include "simulator/models/one_time_area.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <bit>
#include <cstring>
#include <stdexcept>

#include "simulator/models/flash_partitions.h"
#include "simulator/phone/root_directory.h"
#include "simulator/supervisor/poll_loop.h"

namespace simulator {
namespace {

const FlashPartition& Partition() {
  return FindFlashPartition("OTP");
}

std::string BlankCells() {
  return std::string(Partition().size, static_cast<char>(ERASED));
}

}  // namespace

// A state directory keeps the cells, not what was written over them.
OneTimeArea::~OneTimeArea() {
  Settled();
}

std::vector<std::string> OneTimeArea::Paths() const {
  return {CharacterDevice(Partition()), BlockDevice(Partition())};
}

void OneTimeArea::Furnish(RootDirectory& root) {
  root.PutFileIfAbsent(CharacterDevice(Partition()), BlankCells());
  state_.cells = root.ReadFile(CharacterDevice(Partition()));
  writes_.Reset(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  inotify_add_watch(writes_.Get(), File().c_str(), IN_MODIFY);
  phone_.loop.Watch(writes_.Get(), POLLIN, [this](short) { Settled(); });
}

OpenAnswer OneTimeArea::Open(const OpenCall&) {
  Settled();
  return OpenAnswer::OrdinaryFile();
}

const OneTimeArea::State& OneTimeArea::Settled() {
  if (!TakeWrites()) return state_;
  ++state_.programmings;
  const posix::FileDescriptor file(open(File().c_str(), O_RDONLY | O_CLOEXEC));
  std::string written = state_.cells;
  if (pread(file.Get(), written.data(), written.size(), 0) < 0) return state_;  // taken away
  for (size_t index = 0; index < written.size(); ++index) {
    const auto cell = static_cast<uint8_t>(state_.cells[index]);
    const auto wanted = static_cast<uint8_t>(written[index]);
    state_.lost_bits += std::popcount(static_cast<unsigned>(wanted & ~cell));
    state_.cells[index] = static_cast<char>(cell & wanted);
  }
  if (state_.cells != written) WriteCells();
  return state_;
}

void OneTimeArea::MakeBlank() {
  state_ = {BlankCells(), 0, 0};
  WriteCells();
}

std::string OneTimeArea::File() const {
  return phone_.root.Outside(CharacterDevice(Partition()));
}

// True when there were writes to the file since the last time.
bool OneTimeArea::TakeWrites() {
  bool any = false;
  char events[1024];
  for (ssize_t size; (size = read(writes_.Get(), events, sizeof events)) > 0;) {
    for (ssize_t place = 0; place < size;) {
      inotify_event event;
      memcpy(&event, events + place, sizeof event);
      any = any || (event.mask & IN_MODIFY) != 0;
      place += static_cast<ssize_t>(sizeof event + event.len);
    }
  }
  return any;
}

// In place: the file has two names, and programs may hold it open.
void OneTimeArea::WriteCells() {
  const posix::FileDescriptor file(open(File().c_str(), O_WRONLY | O_CLOEXEC));
  [[maybe_unused]] const ssize_t written = pwrite(file.Get(), state_.cells.data(), state_.cells.size(), 0);
  TakeWrites();  // this one is no programming
}

std::vector<ModelCommand> OneTimeArea::Commands() {
  return {{"otp", "[blank]", "tells how often the one-time area was programmed, or puts in a blank one",
           [this](const std::vector<std::string>& words) {
             if (words == std::vector<std::string>{"blank"})
               MakeBlank();
             else if (!words.empty())
               throw std::invalid_argument("otp takes no word but \"blank\"");
             const State& state = Settled();
             return fmt::format("{}, programmed {} times, {} bits lost\n",
                                state.cells == BlankCells() ? "blank" : "not blank", state.programmings,
                                state.lost_bits);
           }}};
}

}  // namespace simulator
