// The phone's flash memory: its small partitions, and the one-time-programmable one among them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/phone/device_model.h"

namespace simulator {

struct FlashPartition {
  int number;
  std::string_view name;
  uint32_t size;
};

constexpr uint32_t ERASE_BLOCK_SIZE = 0x4000;
constexpr uint8_t ERASED = 0xFF;

// In the kernel's order. Partition 0 holds nothing that anyone needs: programs that fail to make out a number
// end up there.
constexpr FlashPartition FLASH_PARTITIONS[] = {
    {0, "Scratch", 2 * ERASE_BLOCK_SIZE},
    {1, "Partition Info", 2 * ERASE_BLOCK_SIZE},
    {2, "Partition Info Bak", 2 * ERASE_BLOCK_SIZE},
    {3, "Factory Info", ERASE_BLOCK_SIZE},
    {4, "OTP", ERASE_BLOCK_SIZE},
    {5, "Bluetooth Info", ERASE_BLOCK_SIZE},
    {6, "GSM FFS", 5 * ERASE_BLOCK_SIZE},
};

std::string CharacterDevice(const FlashPartition& partition);
std::string BlockDevice(const FlashPartition& partition);
const FlashPartition& FindFlashPartition(std::string_view name);

// The check sum in front of a partition information record, computed bit by bit: CRC-16 with the reflected
// polynomial 0xA001, started from 0xFFFF.
uint16_t RecordCheckSum(std::span<const uint8_t> bytes);
// True when a partition information record's check sum, a little-endian word, fits the rest of its bytes.
bool RecordVerifies(std::span<const uint8_t> record);

// The phone's small flash partitions as its kernel shows them: /proc/mtd, and for each partition one file
// with two names, the character device /dev/mtd/N and the block device /dev/mtdblock_bbs/N. Their contents
// live on in a state directory. The eraser is a script that fills a partition with 0xFF. The
// one-time-programmable partition is the model OneTimeArea's.
class FlashPartitions : public DeviceModel {
 public:
  struct State {
    std::vector<std::string> unlisted;  // names that are missing from /proc/mtd
    int unerased_writes = 0;            // block devices opened to be written that had not been erased
  };

  using DeviceModel::DeviceModel;
  std::vector<std::string> Paths() const override;
  void Furnish(RootDirectory& root) override;
  OpenAnswer Open(const OpenCall& call) override;
  std::vector<ModelCommand> Commands() override;

  // Spoils what a partition holds: all of it, or one bit.
  void Erase(const std::string& name);
  void FlipBit(const std::string& name, uint32_t byte);
  // Takes a partition out of /proc/mtd, or puts it back.
  void SetListed(const std::string& name, bool listed);
  const State& GetState() const {
    return state_;
  }

 private:
  void WriteList(RootDirectory& root) const;
  std::string SpoilCommand(const std::vector<std::string>& words);
  void Overwrite(const FlashPartition& partition, const std::string& content) const;

  State state_;
};

// The one-time-programmable flash partition: NOR cells, of which programming can only clear bits and that no
// eraser sets again. The partition's file takes what is written; the model then takes back the bits that the
// write could not have set. It counts the programmings, so that a second one is seen.
class OneTimeArea : public DeviceModel {
 public:
  struct State {
    std::string cells;     // what the partition holds
    int programmings = 0;  // writes, those that changed nothing too
    int lost_bits = 0;     // that writes wanted set where they were cleared
  };

  using DeviceModel::DeviceModel;
  ~OneTimeArea() override;
  std::vector<std::string> Paths() const override;
  void Furnish(RootDirectory& root) override;
  OpenAnswer Open(const OpenCall& call) override;
  std::vector<ModelCommand> Commands() override;

  // As it is now, with all that has been written.
  const State& Settled();
  // A new part in the phone.
  void MakeBlank();
  // All bits of a byte lost their charge.
  void ClearByte(uint32_t byte);

 private:
  posix::FileDescriptor OpenFile(int flags) const;
  bool TakeWrites();
  void WriteCells();

  State state_;
  posix::FileDescriptor writes_;  // tells of each
};

}  // namespace simulator
