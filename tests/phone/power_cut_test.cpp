// The power goes at every single system call that touches flash, from a command's first to its last, and in
// the middle of each write. Of the partition information, which is kept twice, one copy must verify
// afterwards wherever the order of erasing and writing allows it; records that are kept once must be what
// they were up to the erase and what they were to become from the end of the write on.
#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <span>

#include "tests/phone/call_tracer.h"
#include "tests/phone/flash_test.h"

namespace {

using Contents = std::map<std::string, std::string>;  // of partitions, by name

struct FlashCall {
  std::string device;
  uint64_t written = 0;  // size of a write, else 0

  bool operator==(const FlashCall&) const = default;
};

// The power goes before a call is carried out or, if it is a write, when so many bytes of it are.
struct CutPoint {
  size_t call;
  uint64_t bytes;

  auto operator<=>(const CutPoint&) const = default;
};

std::vector<uint64_t> SomeTornSizes(uint64_t size) {
  if (size == 0) return {0};
  return {0, 1, size / 2, size - 1};
}

// Around every power of two, where buffers and pages end. Under a sanitizer, which slows all down, a few will
// do: the bytes on flash are the same.
std::vector<uint64_t> ManyTornSizes(uint64_t size) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return SomeTornSizes(size);
#else
  std::set<uint64_t> sizes = {0, 1, 3, 4, 5, 16, size - 1};
  for (uint64_t power = 2; power < size; power *= 2) sizes.insert({power - 1, power, power + 1});
  return {sizes.begin(), sizes.lower_bound(size)};
#endif
}

// The flash device that a call is about, by its descriptor or by its path. Some calls only happen to have an
// argument that could be such a descriptor; the power goes there as well.
std::string FlashDevice(const TracedCall& call) {
  for (const std::string& path : {call.DescriptorPath(), call.PathArgument(0), call.PathArgument(1)}) {
    const size_t place = path.find("/dev/mtd");
    if (place != std::string::npos) return path.substr(place);
  }
  return {};
}

class PowerCutTest : public FlashTest {
 protected:
  // Cuts the power everywhere in a command, each time on a phone with the same flash; `check` looks at what
  // is left. Gives the number of cuts.
  size_t Sweep(const Bytes& command, const Contents& flash,
               const std::function<void(const CutPoint&)>& check) {
    BootWith(flash);
    calls = Run(command, std::nullopt);
    EXPECT_FALSE(calls.empty());
    size_t cuts = 0;
    for (size_t call = 0; call < calls.size(); ++call) {
      for (const uint64_t bytes : TornSizesOf(call)) {
        SCOPED_TRACE(
            fmt::format("power cut at call {} to {} after {} bytes", call, calls[call].device, bytes));
        BootWith(flash);
        const std::vector<FlashCall> reached = Run(command, CutPoint{call, bytes});
        EXPECT_TRUE(std::ranges::equal(reached, std::span(calls).first(call + 1)));
        check({call, bytes});
        ++cuts;
        if (HasFailure()) return cuts;
      }
    }
    return cuts;
  }

  // Many for the first write to each device, the server's and the eraser's; the eraser's others go on alike.
  std::vector<uint64_t> TornSizesOf(size_t call) {
    const bool first = std::ranges::none_of(std::span(calls).first(call), [&](const FlashCall& earlier) {
      return earlier.device == calls[call].device && earlier.written > 0;
    });
    return first && calls[call].written > 0 ? ManyTornSizes(calls[call].written)
                                            : SomeTornSizes(calls[call].written);
  }

  void BootWith(const Contents& flash) {
    DiscardPhone();
    for (const auto& [name, content] : flash) SetFlash(name, content);
    Boot();
  }

  // From the first byte of the first write to a partition's character device, the eraser's, to the last byte
  // but one of the write to its block device.
  bool IsBetweenEraseAndWrite(const CutPoint& cut, int number) {
    const auto first_write = [&](const std::string& directory) {
      const auto found = std::ranges::find_if(calls, [&](const FlashCall& call) {
        return call.device == directory + std::to_string(number) && call.written > 0;
      });
      EXPECT_NE(found, calls.end());
      return static_cast<size_t>(found - calls.begin());
    };
    return cut >= CutPoint{first_write("/dev/mtd/"), 1} && cut.call <= first_write("/dev/mtdblock_bbs/");
  }

  std::vector<FlashCall> calls;  // of the whole command, in order

 private:
  // Carries a command out up to the cut and gives the calls that it came to.
  std::vector<FlashCall> Run(const Bytes& command, std::optional<CutPoint> cut) {
    std::vector<FlashCall> reached;
    const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
      const std::string device = FlashDevice(call);
      if (device.empty()) return {};
      reached.push_back({device, call.IsWrite() ? call.Size() : 0});
      if (!cut || reached.size() <= cut->call) return {};
      return {CallFate::Kind::PowerCut, cut->bytes};
    });
    host.Send(command);
    if (cut) {
      EXPECT_TRUE(Phone().WaitForEnd(60s)) << "not reached";
    } else {
      EXPECT_EQ(host.Receive(4), Words({0}));
    }
    return reached;
  }
};

// Partition information.

class PartitionInfoPowerCutTest : public PowerCutTest {
 protected:
  static constexpr uint32_t NEW_WORD = 0x5A0FF0A5;

  void SetUp() override {
    record_ = Flash("Partition Info").substr(0, 32768);
  }

  // The record with its two words that a command changes, the sum and the word itself, left out.
  static std::string Unchanged(const std::string& record) {
    return record.substr(4, 8) + record.substr(16);
  }

  // Sweeps from one state of the copies. `bad` is the number of a copy that does not verify, or 0.
  void SweepFrom(int bad) {
    Contents start = {{"Partition Info", record_}, {"Partition Info Bak", record_}};
    if (bad == 1) start["Partition Info"][5000] ^= 1;
    if (bad == 2) start["Partition Info Bak"][5000] ^= 1;
    size_t survived = 0;
    const size_t cuts = Sweep(Words({0x04, NEW_WORD}), start, [&](const CutPoint& cut) {
      const Contents left = {{"Partition Info", Flash("Partition Info")},
                             {"Partition Info Bak", Flash("Partition Info Bak")}};
      const bool verifies = CheckCopies(left);
      // With one copy bad, the good one is erased first: what is left of the record is in the server's
      // memory.
      const bool may_be_lost = bad != 0 && IsBetweenEraseAndWrite(cut, bad == 1 ? 2 : 1);
      EXPECT_EQ(verifies, !may_be_lost);
      survived += verifies ? 1 : 0;
      if (cut.bytes == 0) CheckNextBoot(left, verifies);
    });
    std::cout << fmt::format("power cuts in code 0x04, {}: {} tried, {} left a copy that verifies\n",
                             bad == 0   ? "both copies good"
                             : bad == 1 ? "primary bad"
                                        : "backup bad",
                             cuts, survived);
  }

 private:
  // True when the phone's read order finds a copy that verifies; it must be the old or the new record then.
  bool CheckCopies(const Contents& left) {
    for (const char* name : {"Partition Info", "Partition Info Bak"}) {
      const std::string& copy = left.at(name);
      if (!simulator::RecordVerifies(AsBytes(copy))) continue;
      const std::string word = copy.substr(12, 4);
      EXPECT_TRUE(word == record_.substr(12, 4) || word == AsText(Words({NEW_WORD})));
      EXPECT_TRUE(Unchanged(copy) == Unchanged(record_));
      return true;
    }
    return false;
  }

  // The phone with this flash works on, or says what it lost. Contents that were seen before are left out.
  void CheckNextBoot(const Contents& left, bool verifies) {
    if (!seen_.insert(left).second) return;
    BootWith(left);
    EXPECT_EQ(AskStatus(0x04, Words({1234})), verifies ? 0 : -9991);
    if (!verifies) return;
    for (const char* name : {"Partition Info", "Partition Info Bak"}) {
      EXPECT_TRUE(simulator::RecordVerifies(AsBytes(Flash(name))));
      EXPECT_EQ(Flash(name).substr(12, 4), AsText(Words({1234})));
      EXPECT_TRUE(Unchanged(Flash(name)) == Unchanged(record_));
    }
  }

  std::string record_;
  std::set<Contents> seen_;
};

TEST_F(PartitionInfoPowerCutTest, LosesNothingWithBothCopiesGood) {
  SweepFrom(0);
}

TEST_F(PartitionInfoPowerCutTest, LosesTheOnlyGoodCopyWhileItIsRewrittenWithABadPrimary) {
  SweepFrom(1);
}

TEST_F(PartitionInfoPowerCutTest, LosesTheOnlyGoodCopyWhileItIsRewrittenWithABadBackup) {
  SweepFrom(2);
}

// Records that are kept once.

class SingleRecordPowerCutTest : public PowerCutTest {
 protected:
  void SweepOne(const Bytes& command, const std::string& name, const std::string& after) {
    const std::string before = std::string(16384, 'o');
    size_t kept = 0;
    size_t changed = 0;
    const size_t cuts = Sweep(command, {{name, before}}, [&](const CutPoint& cut) {
      const std::string left = Flash(name);
      if (IsBetweenEraseAndWrite(cut, simulator::FindFlashPartition(name).number)) {
        EXPECT_TRUE(left != before && left != after);
      } else {
        EXPECT_TRUE(left == before || left == after);
      }
      kept += left == before ? 1 : 0;
      changed += left == after ? 1 : 0;
    });
    std::cout << fmt::format(
        "power cuts in code 0x{:02X}: {} tried, {} left the old record, {} the new one, {} neither\n",
        command[0], cuts, kept, changed, cuts - kept - changed);
    // Doing it again makes it whole.
    EXPECT_EQ(Run(command), 0);
    EXPECT_TRUE(Flash(name) == after);
  }

 private:
  int32_t Run(const Bytes& command) {
    BootWith({});
    host.Send(command);
    return StatusOf(host.Receive(4));
  }
};

TEST_F(SingleRecordPowerCutTest, FactoryInformation) {
  const Bytes block(128, 'n');
  SweepOne(Words({0x32}) + block, "Factory Info", AsText(block) + Erased(16384 - 128));
}

TEST_F(SingleRecordPowerCutTest, BluetoothInformation) {
  const std::string address = "\xA1\xB2\xC3\xD4\xE5\xF6";
  std::string script = Phone().Root().ReadFile("/usr/share/app_data/bluetooth/ti6150_template");
  script.replace(script.find("\x06\xFC\x06") + 3, 6, address);
  SweepOne(Words({0x0E}) + FromText(address + std::string(12, ' ')), "Bluetooth Info",
           script + Erased(16384 - script.size()));
}

}  // namespace
