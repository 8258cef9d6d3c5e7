// The power goes at every single system call that touches flash, from a command's first to its last, and in
// the middle of each write. Of the partition information, which is kept twice, one copy must verify
// afterwards wherever the order of erasing and writing allows it. Records that are kept once must be what
// they were up to the erase, and what they were to become from the end of the write on.
//
// A command is carried out once and all its calls are recorded, with flash as it was before each of them:
// that is what a cut there leaves. A cut in a write leaves the beginning of the write. Some of the cuts are
// then really made, and must leave just that. With $EVERY_POWER_CUT in the environment all of them are made,
// which takes ten minutes.
//
// The same is asked of a driver that loses what was not synced, or a part of it, at points of a random
// choice: 200 for each command, thousands with $EVERY_POWER_CUT. $SEED repeats a run.
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <random>
#include <set>

#include "simulator/models/unsynced_flash.h"
#include "tests/phone/call_tracer.h"
#include "tests/phone/flash_test.h"

namespace {

using Contents = std::map<std::string, std::string>;  // of partitions, by name

struct FlashCall {
  std::string device;
  std::string written;  // bytes of a write; empty for any other call
  uint64_t place = 0;   // where in the partition they go
  bool syncs = false;
  Contents before;  // flash before the call
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

// Around every power of two, where buffers and pages end.
std::vector<uint64_t> ManyTornSizes(uint64_t size) {
  std::set<uint64_t> sizes = {0, 1, 3, 4, 5, 16, size - 1};
  for (uint64_t power = 2; power < size; power *= 2) sizes.insert({power - 1, power, power + 1});
  return {sizes.begin(), sizes.lower_bound(size)};
}

// The flash device that a call is about, by its descriptor or by its path. Some calls only happen to have an
// argument that could be such a descriptor; the power goes there as well.
std::string FlashDevice(const TracedCall& call) {
  if (call.IsAccess()) return {};  // an emulator's own look at a path before it opens it; it changes nothing
  for (const std::string& path : {call.DescriptorPath(), call.PathArgument(0), call.PathArgument(1)}) {
    const size_t place = path.find("/dev/mtd");
    if (place != std::string::npos) return path.substr(place);
  }
  return {};
}

class PowerCutTest : public FlashTest {
 protected:
  // Looks at what a cut leaves of the partitions that `flash` names, for every cut in a command that starts
  // with these contents. Returns the number of cuts.
  size_t Sweep(const Bytes& command, const Contents& flash,
               const std::function<void(const CutPoint&, const Contents&)>& check) {
    BootWith(flash);
    calls = Run(command, flash, nullptr);
    flash_after = Now(flash);
    const std::vector<CutPoint> cuts = CutPoints();
    for (const CutPoint& cut : cuts) {
      SCOPED_TRACE(fmt::format("power cut at call {} to {} after {} bytes", cut.call, calls[cut.call].device,
                               cut.bytes));
      check(cut, LeftBy(cut));
      if (HasFailure()) return 0;
    }
    ExpectWholeWrites();
    constexpr size_t CUTS_MADE = 6;
    const size_t step =
        getenv("EVERY_POWER_CUT") != nullptr ? 1 : std::max<size_t>(cuts.size() / CUTS_MADE, 1);
    for (size_t index = step / 2; index < cuts.size() && !HasFailure(); index += step)
      MakeCut(command, flash, cuts[index]);
    return cuts.size();
  }

  // Cuts at any point of the command, with a driver that keeps writes back: what was not synced may be lost.
  // The record must be whole after each, but while the only good copy is rewritten: from the erase of that
  // partition, `rewritten`, to its sync. Without such a partition the number is 0.
  void SweepUnsynced(const Contents& flash, int rewritten,
                     const std::function<bool(const Contents&)>& is_whole) {
    const size_t points = getenv("EVERY_POWER_CUT") != nullptr ? 4000 : 200;
    const uint64_t seed = EnvironmentNumber("SEED", std::random_device()());
    SCOPED_TRACE(fmt::format("SEED={}", seed));
    std::mt19937_64 random(seed);
    size_t lost = 0;
    for (size_t point = 0; point < points && !HasFailure(); ++point) {
      CutPoint cut = {random() % (calls.size() + 1), 0};
      if (cut.call < calls.size()) cut.bytes = random() % (calls[cut.call].written.size() + 1);
      SCOPED_TRACE(fmt::format("power cut {}, at call {} after {} bytes", point, cut.call, cut.bytes));
      const bool whole = is_whole(UnsyncedLeftBy(cut, flash, random));
      EXPECT_TRUE(whole || (rewritten != 0 && IsBetweenEraseAndSync(cut, rewritten)));
      lost += whole ? 0 : 1;
    }
    std::cout << fmt::format("SEED={}: {} power cuts with unsynced writes, {} lose the record\n", seed,
                             points, lost);
  }

  void BootWith(const Contents& flash) {
    DiscardPhone();
    for (const auto& [name, content] : flash) SetFlash(name, content);
    Boot();
  }

  // From the first byte of the first write to a partition's character device, the eraser's, to the last byte
  // but one of the write to its block device.
  bool IsBetweenEraseAndWrite(const CutPoint& cut, int number) {
    return cut >= CutPoint{FirstWrite("/dev/mtd/", number), 1} &&
           cut.call <= FirstWrite("/dev/mtdblock_bbs/", number);
  }

  // Up to the sync after the write, at which a driver that keeps writes back has it.
  bool IsBetweenEraseAndSync(const CutPoint& cut, int number) {
    const auto sync = std::ranges::find_if(calls, [&](const FlashCall& call) {
      return call.syncs && call.device.ends_with("/" + std::to_string(number));
    });
    EXPECT_NE(sync, calls.end()) << "nothing is synced";
    return cut >= CutPoint{FirstWrite("/dev/mtd/", number), 1} &&
           cut.call <= static_cast<size_t>(sync - calls.begin());
  }

  std::vector<FlashCall> calls;  // of the whole command, in order
  Contents flash_after;          // it

 private:
  size_t FirstWrite(const std::string& directory, int number) {
    const auto found = std::ranges::find_if(calls, [&](const FlashCall& call) {
      return call.device == directory + std::to_string(number) && !call.written.empty();
    });
    EXPECT_NE(found, calls.end());
    return static_cast<size_t>(found - calls.begin());
  }

  Contents UnsyncedLeftBy(const CutPoint& cut, const Contents& flash, std::mt19937_64& random) const {
    Contents left;
    for (const auto& [name, content] : flash) {
      simulator::UnsyncedFlash partition(content);
      const std::string end = "/" + std::to_string(simulator::FindFlashPartition(name).number);
      for (size_t call = 0; call <= cut.call && call < calls.size(); ++call) {
        if (!calls[call].device.ends_with(end)) continue;
        const size_t size = call == cut.call ? cut.bytes : calls[call].written.size();
        partition.Write(calls[call].place, calls[call].written.substr(0, size));
        if (call < cut.call && calls[call].syncs) partition.Sync();
      }
      left[name] = partition.AfterPowerCut(random);
    }
    return left;
  }

  // Before every call, and within writes: at many places of the first to each device, the server's and the
  // eraser's; the eraser's others go on alike.
  std::vector<CutPoint> CutPoints() {
    std::vector<CutPoint> cuts;
    std::set<std::string> written;
    for (size_t call = 0; call < calls.size(); ++call) {
      const uint64_t size = calls[call].written.size();
      const bool first = size > 0 && written.insert(calls[call].device).second;
      for (const uint64_t bytes : first ? ManyTornSizes(size) : SomeTornSizes(size))
        cuts.push_back({call, bytes});
    }
    return cuts;
  }

  Contents Now(const Contents& names) {
    Contents now;
    for (const auto& [name, ignored] : names) now[name] = Flash(name);
    return now;
  }

  Contents LeftBy(const CutPoint& cut) const {
    const FlashCall& call = calls[cut.call];
    Contents left = call.before;
    for (auto& [name, content] : left) {
      if (!call.device.ends_with("/" + std::to_string(simulator::FindFlashPartition(name).number))) continue;
      content.replace(call.place, cut.bytes, call.written, 0, cut.bytes);
    }
    return left;
  }

  // What the recording says about each write must be what the phone then had.
  void ExpectWholeWrites() {
    for (size_t call = 0; call < calls.size(); ++call) {
      const Contents& next = call + 1 < calls.size() ? calls[call + 1].before : flash_after;
      EXPECT_TRUE(LeftBy({call, calls[call].written.size()}) == next) << "call " << call;
    }
  }

  void MakeCut(const Bytes& command, const Contents& flash, const CutPoint& cut) {
    SCOPED_TRACE(fmt::format("power really cut at call {} after {} bytes", cut.call, cut.bytes));
    BootWith(flash);
    const std::vector<FlashCall> reached = Run(command, flash, &cut);
    ASSERT_EQ(reached.size(), cut.call + 1);
    EXPECT_EQ(reached.back().device, calls[cut.call].device);
    EXPECT_TRUE(Now(flash) == LeftBy(cut));
  }

  // Carries a command out, up to the cut if there is one. Returns the calls that it came to.
  std::vector<FlashCall> Run(const Bytes& command, const Contents& names, const CutPoint* cut) {
    std::vector<FlashCall> reached;
    const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
      const std::string device = FlashDevice(call);
      if (device.empty()) return {};
      reached.push_back({device, {}, 0, call.IsSync(), Now(names)});
      if (call.IsWrite())
        reached.back().written = call.WrittenBytes(), reached.back().place = call.FilePosition();
      if (cut == nullptr || reached.size() <= cut->call) return {};
      return {CallFate::Kind::PowerCut, cut->bytes};
    });
    host.Send(command);
    if (cut != nullptr) {
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
  void SweepFrom(int bad, size_t cuts, size_t lost) {
    Contents start = {{"Partition Info", record_}, {"Partition Info Bak", record_}};
    if (bad == 1) start["Partition Info"][5000] ^= 1;
    if (bad == 2) start["Partition Info Bak"][5000] ^= 1;
    size_t without_copy = 0;
    const auto check = [&](const CutPoint& cut, const Contents& left) {
      const bool verifies = CheckCopies(left);
      // With one copy bad, the good one is erased first: what is left of the record is in the server's
      // memory.
      const bool may_be_lost = bad != 0 && IsBetweenEraseAndWrite(cut, bad == 1 ? 2 : 1);
      EXPECT_EQ(verifies, !may_be_lost);
      without_copy += verifies ? 0 : 1;
      if (cut.bytes == 0) states_.insert({left, verifies});
    };
    EXPECT_EQ(Sweep(Words({0x04, NEW_WORD}), start, check), cuts);
    EXPECT_EQ(without_copy, lost);
    SweepUnsynced(start, bad == 0 ? 0 : 3 - bad, [&](const Contents& left) {
      return std::ranges::any_of(left, [&](const auto& copy) {
        return copy.second == record_ || copy.second == flash_after.at(copy.first);
      });
    });
    for (const auto& [left, verifies] : states_) CheckNextBoot(left, verifies);
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

  // The phone with this flash works on, or says what it lost.
  void CheckNextBoot(const Contents& left, bool verifies) {
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
  std::map<Contents, bool> states_;  // that a cut between two calls leaves; true if a copy verifies
};

TEST_F(PartitionInfoPowerCutTest, LosesNothingWithBothCopiesGood) {
  SweepFrom(0, 226, 0);
}

TEST_F(PartitionInfoPowerCutTest, LosesTheOnlyGoodCopyWhileItIsRewrittenWithABadPrimary) {
  SweepFrom(1, 229, 97);
}

TEST_F(PartitionInfoPowerCutTest, LosesTheOnlyGoodCopyWhileItIsRewrittenWithABadBackup) {
  SweepFrom(2, 226, 97);
}

// Records that are kept once.

class SingleRecordPowerCutTest : public PowerCutTest {
 protected:
  // How many cuts there are, and what they leave.
  struct Cuts {
    size_t all, old_record, new_record;
  };

  void SweepOne(const Bytes& command, const std::string& name, const std::string& after,
                const Cuts& expected) {
    const std::string before = std::string(16384, 'o');
    Cuts found = {};
    found.all = Sweep(command, {{name, before}}, [&](const CutPoint& cut, const Contents& contents) {
      const std::string& left = contents.at(name);
      if (IsBetweenEraseAndWrite(cut, simulator::FindFlashPartition(name).number)) {
        EXPECT_TRUE(left != before && left != after);
      } else {
        EXPECT_TRUE(left == before || left == after);
      }
      found.old_record += left == before ? 1 : 0;
      found.new_record += left == after ? 1 : 0;
    });
    EXPECT_EQ(found.all, expected.all);
    EXPECT_EQ(found.old_record, expected.old_record);
    EXPECT_EQ(found.new_record, expected.new_record);
    SweepUnsynced({{name, before}}, simulator::FindFlashPartition(name).number,
                  [&](const Contents& left) { return left.at(name) == before || left.at(name) == after; });
    // Doing it again makes it whole.
    BootWith({{name, calls[calls.size() / 2].before.at(name)}});
    host.Send(command);
    EXPECT_EQ(host.Receive(4), Words({0}));
    EXPECT_TRUE(Flash(name) == after);
  }
};

TEST_F(SingleRecordPowerCutTest, FactoryInformation) {
  const Bytes block(128, 'n');
  SweepOne(Words({0x32}) + block, "Factory Info", AsText(block) + Erased(16384 - 128), {76, 11, 2});
}

TEST_F(SingleRecordPowerCutTest, BluetoothInformation) {
  const std::string address = "\xA1\xB2\xC3\xD4\xE5\xF6";
  std::string script = Phone().Root().ReadFile("/usr/share/app_data/bluetooth/ti6150_template");
  script.replace(script.find("\x06\xFC\x06") + 3, 6, address);
  SweepOne(Words({0x0E}) + FromText(address + std::string(12, ' ')), "Bluetooth Info",
           script + Erased(16384 - script.size()), {76, 11, 2});
}

}  // namespace
