#include "simulator/models/flash.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>

#include "simulator/phone/poll_loop.h"
#include "simulator/phone/root_directory.h"

namespace simulator {

namespace {

constexpr char PARTITION_LIST[] = "/proc/mtd";
constexpr uint32_t RECORD_SIZE = 32768;
constexpr uint32_t FACTORY_RECORD_SIZE = 128;

constexpr char ERASER[] = R"(#!/bin/sh
# eraseall [-q] DEVICE: sets every byte of a flash device to 0xFF; -q keeps quiet.
if [ "$1" = -q ]; then shift; else echo "Erasing $1"; fi
# Reads a piece and overwrites it, then the next, so the device keeps its size.
exec tr '\000-\377' '\377' <"$1" 1<>"$1"
)";

void Put(std::string& record, size_t offset, std::string_view text) {
  record.replace(offset, text.size(), text);
}

// Both copies are the same: the factory wrote them.
std::string PartitionRecord() {
  using namespace std::string_view_literals;
  std::string record(RECORD_SIZE, '\0');
  Put(record, 4, "PARTINFO");
  Put(record, 12, "\1\0\0\0"sv);
  for (size_t index = 0; index < std::size(FLASH_PARTITIONS); ++index) {
    const FlashPartition& partition = FLASH_PARTITIONS[index];
    Put(record, 16 + 64 * index,
        fmt::format("{} {} {:#x}", partition.number, partition.name, partition.size));
  }
  const auto* bytes = reinterpret_cast<const uint8_t*>(record.data());
  const uint16_t sum = RecordCheckSum({bytes + 4, RECORD_SIZE - 4});
  record[0] = static_cast<char>(sum);
  record[1] = static_cast<char>(sum >> 8);
  return record;
}

// Two fields of ten characters, with other text of the factory's between and after them.
std::string FactoryRecord() {
  std::string record(FACTORY_RECORD_SIZE, '\0');
  Put(record, 0, "SN06012345");
  Put(record, 10, "LINE3 SHIFT");
  Put(record, 21, "HW02060115");
  Put(record, 31, "simulated phone");
  return record;
}

std::string FirstContent(const FlashPartition& partition) {
  std::string content(partition.size, static_cast<char>(ERASED));
  if (partition.name.starts_with("Partition Info")) Put(content, 0, PartitionRecord());
  if (partition.name == "Factory Info") Put(content, 0, FactoryRecord());
  return content;
}

}  // namespace

std::string CharacterDevice(const FlashPartition& partition) {
  return fmt::format("/dev/mtd/{}", partition.number);
}

std::string BlockDevice(const FlashPartition& partition) {
  return fmt::format("/dev/mtdblock_bbs/{}", partition.number);
}

const FlashPartition& FindFlashPartition(std::string_view name) {
  const auto* found = std::ranges::find(FLASH_PARTITIONS, name, &FlashPartition::name);
  if (found == std::end(FLASH_PARTITIONS))
    throw std::invalid_argument(fmt::format("no flash partition \"{}\"", name));
  return *found;
}

uint16_t RecordCheckSum(std::span<const uint8_t> bytes) {
  uint16_t sum = 0xFFFF;
  for (uint8_t byte : bytes) {
    sum ^= byte;
    for (int bit = 0; bit < 8; ++bit) sum = static_cast<uint16_t>((sum >> 1) ^ ((sum & 1) != 0 ? 0xA001 : 0));
  }
  return sum;
}

bool RecordVerifies(std::span<const uint8_t> record) {
  if (record.size() < RECORD_SIZE) return false;
  const uint32_t stored =
      record[0] | record[1] << 8U | record[2] << 16U | static_cast<uint32_t>(record[3]) << 24U;
  return stored == RecordCheckSum(record.subspan(4, RECORD_SIZE - 4));
}

std::vector<std::string> FlashPartitions::Paths() const {
  std::vector<std::string> paths;
  for (const FlashPartition& partition : FLASH_PARTITIONS) {
    paths.push_back(CharacterDevice(partition));
    paths.push_back(BlockDevice(partition));
  }
  return paths;
}

void FlashPartitions::Furnish(RootDirectory& root) {
  root.PutFile("/home/utils/eraseall", ERASER, 0755);
  for (const FlashPartition& partition : FLASH_PARTITIONS) {
    root.PutFileIfAbsent(CharacterDevice(partition), FirstContent(partition));
    root.Remove(BlockDevice(partition));
    root.PutHardLink(BlockDevice(partition), CharacterDevice(partition));
  }
  WriteList(root);
}

// A device keeps its size, so nothing is cut off by an open.
OpenAnswer FlashPartitions::Open(const OpenCall& call) {
  // The eraser works on the character device. A write to cells that are not erased spoils them on a real
  // part.
  if (call.Writes() && call.path.starts_with("/dev/mtdblock_bbs/")) {
    const std::string content = phone_.root.ReadFile(call.path);
    if (content.find_first_not_of(static_cast<char>(ERASED)) != std::string::npos) ++state_.unerased_writes;
  }
  if ((call.flags & O_TRUNC) == 0) return OpenAnswer::OrdinaryFile();
  posix::FileDescriptor device = phone_.root.Open(call.path, call.ModeFlags());
  if (!device.IsOpen()) return OpenAnswer::Refusal(errno);
  return OpenAnswer::PlainDescriptor(std::move(device));
}

void FlashPartitions::SetListed(const std::string& name, bool listed) {
  FindFlashPartition(name);
  std::erase(state_.unlisted, name);
  if (!listed) state_.unlisted.push_back(name);
  WriteList(phone_.root);
}

void FlashPartitions::WriteList(RootDirectory& root) const {
  std::string list = "dev:    size   erasesize  name\n";
  for (const FlashPartition& partition : FLASH_PARTITIONS) {
    if (std::ranges::find(state_.unlisted, partition.name) != state_.unlisted.end()) continue;
    list += fmt::format("mtd{}: {:08x} {:08x} \"{}\"\n", partition.number, partition.size, ERASE_BLOCK_SIZE,
                        partition.name);
  }
  root.PutFile(PARTITION_LIST, list);
}

std::vector<ModelCommand> FlashPartitions::Commands() {
  const auto list = [this](bool listed) {
    return [this, listed](const std::vector<std::string>& words) {
      if (words.size() != 1) throw std::invalid_argument("name one partition, in quotation marks");
      SetListed(words[0], listed);
      return std::string();
    };
  };
  // Of what a phone keeps for its whole life.
  return {{"partition-hide",
           "NAME",
           "takes a flash partition out of /proc/mtd",
           list(false),
           {},
           {{"Partition Info"},
            {"Partition Info Bak"},
            {"Factory Info"},
            {"OTP"},
            {"Bluetooth Info"},
            {"GSM FFS"}}},
          {"partition-show", "NAME", "puts it back", list(true)},
          {"flash",
           "NAME erase | flip BYTE",
           "erases a flash partition, or flips the lowest bit of one of its bytes",
           [this](const std::vector<std::string>& words) { return SpoilCommand(words); },
           {},
           {{"Partition Info", "erase"},
            {"Partition Info", "flip", "100"},
            {"Partition Info Bak", "erase"},
            {"Partition Info Bak", "flip", "100"},
            {"Factory Info", "erase"},
            {"Factory Info", "flip", "5"},
            {"Bluetooth Info", "erase"},
            {"Bluetooth Info", "flip", "20"},
            {"GSM FFS", "erase"}}}};
}

void FlashPartitions::Erase(const std::string& name) {
  const FlashPartition& partition = FindFlashPartition(name);
  Overwrite(partition, std::string(partition.size, static_cast<char>(ERASED)));
}

void FlashPartitions::FlipBit(const std::string& name, uint32_t byte) {
  const FlashPartition& partition = FindFlashPartition(name);
  std::string content = phone_.root.ReadFile(CharacterDevice(partition), partition.size);
  if (byte >= content.size()) throw std::invalid_argument(fmt::format("{} has no byte {}.", name, byte));
  content[byte] = static_cast<char>(content[byte] ^ 1);
  Overwrite(partition, content);
}

// In place: the file has two names.
void FlashPartitions::Overwrite(const FlashPartition& partition, const std::string& content) const {
  const posix::FileDescriptor file = phone_.root.Open(CharacterDevice(partition), O_WRONLY);
  if (pwrite(file.Get(), content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) {
    throw std::invalid_argument(fmt::format("The partition {} cannot be written.", partition.name));
  }
}

std::string FlashPartitions::SpoilCommand(const std::vector<std::string>& words) {
  if (words.size() == 2 && words[1] == "erase") {
    Erase(words[0]);
  } else if (words.size() == 3 && words[1] == "flip") {
    FlipBit(words[0], static_cast<uint32_t>(CountWord(words[2])));
  } else {
    throw std::invalid_argument("flash takes the name of a partition, and erase or flip BYTE.");
  }
  return {};
}

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
  state_.cells = root.ReadFile(CharacterDevice(Partition()), Partition().size);
  state_.cells.resize(Partition().size, static_cast<char>(ERASED));
  writes_.Reset(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  const posix::FileDescriptor file = OpenFile(O_PATH);
  inotify_add_watch(writes_.Get(), fmt::format("/proc/self/fd/{}", file.Get()).c_str(), IN_MODIFY);
  phone_.loop.Watch(writes_.Get(), POLLIN, [this](short) { Settled(); });
}

OpenAnswer OneTimeArea::Open(const OpenCall&) {
  Settled();
  return OpenAnswer::OrdinaryFile();
}

const OneTimeArea::State& OneTimeArea::Settled() {
  if (!TakeWrites()) return state_;
  ++state_.programmings;
  const posix::FileDescriptor file = OpenFile(O_RDONLY);
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

void OneTimeArea::ClearByte(uint32_t byte) {
  Settled();
  if (byte >= state_.cells.size()) throw std::invalid_argument(fmt::format("The area has no byte {}.", byte));
  state_.cells[byte] = 0;
  WriteCells();
}

posix::FileDescriptor OneTimeArea::OpenFile(int flags) const {
  return phone_.root.Open(CharacterDevice(Partition()), flags);
}

// Returns true if there were writes to the file since the last time.
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
  const posix::FileDescriptor file = OpenFile(O_WRONLY);
  [[maybe_unused]] const ssize_t written = pwrite(file.Get(), state_.cells.data(), state_.cells.size(), 0);
  TakeWrites();  // this write is not a programming
}

std::vector<ModelCommand> OneTimeArea::Commands() {
  return {{"otp",
           "[blank | clear BYTE]",
           "tells how often the one-time area was programmed, puts in a blank one, or clears a byte",
           [this](const std::vector<std::string>& words) {
             if (words == std::vector<std::string>{"blank"})
               MakeBlank();
             else if (words.size() == 2 && words[0] == "clear")
               ClearByte(static_cast<uint32_t>(CountWord(words[1])));
             else if (!words.empty())
               throw std::invalid_argument("otp takes blank, clear BYTE or nothing.");
             const State& state = Settled();
             return fmt::format("{}, programmed {} times, {} bits lost\n",
                                state.cells == BlankCells() ? "blank" : "not blank", state.programmings,
                                state.lost_bits);
           },
           {},
           {{"blank"}, {"clear", "2"}}}};
}

}  // namespace simulator
