// The memory card's test.
#include "simulator/models/memory_card.h"

#include <filesystem>
#include <fstream>

#include "tests/phone/call_tracer.h"
#include "tests/phone/phone_test.h"

namespace {

using simulator::MemoryCard;

constexpr char CARD_LIST[] = "/proc/bus/mmc/device";
constexpr char TEST_FILE[] = "/mnt/fat/cit_test";
const std::string PATTERN("ABCD1234\0", 9);

class MemoryCardTest : public PhoneTest {
 protected:
  MemoryCardTest() {
    options.instant_sleeps = true;
  }
  int32_t Test() {
    return AskStatus(0x26, Words({0}));
  }
  void Change(const std::function<void(MemoryCard::State&)>& change) {
    Phone().With<MemoryCard>([&](MemoryCard& card) { change(card.state); });
  }
  int32_t TestWithSerialNumber(const std::string& number) {
    Change([&](MemoryCard::State& state) { state.serial_number = number; });
    return Test();
  }
};

TEST_F(MemoryCardTest, WritesAndReadsBackAFile) {
  Boot();
  Phone().Root().PutFile(TEST_FILE, "an older and longer content");
  EXPECT_EQ(Test(), 0);
  EXPECT_EQ(
      LinesSince(AtPath(CARD_LIST) || Below("/mnt/fat") || OfKind({JournalKind::Shell})),
      (Lines{"open /proc/bus/mmc/device r", "open /mnt/fat/cit_test rw+create+truncate", "shell sync"}));
  EXPECT_EQ(Phone().Root().ReadFile(TEST_FILE), PATTERN);
}

TEST_F(MemoryCardTest, ReadsTheSerialNumber) {
  Boot();
  const std::pair<const char*, int32_t> CASES[] = {
      {"1", 0},
      {"0x1", 0},
      {"0X0000000a", 0},
      {"1000000000", 0},       // more than 32 bits, and none of the low ones
      {"0x100000000", 0},      // ten characters of each are read: 0x10000000
      {"0x000000001", -9995},  // 0x00000000
      {"00000000001", -9995},
      {"0000000001", 0},
      {"0x00000000", -9995},
      {"0", -9995},
      {"", -9995},
      {"none", -9995},
      {"1xyz", 0},
      {"\npsn=5", -9995},  // the first line counts
  };
  for (const auto& [number, status] : CASES) {
    Change([&](MemoryCard::State& state) { state.serial_number = number; });
    EXPECT_EQ(Test(), status) << number;
  }
  // Lines are taken in pieces of 255 characters.
  const std::pair<size_t, int32_t> PLACES[] = {{128, 0}, {250, 0}, {251, -9995}, {252, -9990}, {255, 0}};
  for (const auto& [place, status] : PLACES) {
    const size_t before = std::string("card 0: mid=0x1b oid=0x5343 pnm= ").size();
    Change([&](MemoryCard::State& state) {
      state.name = std::string(place - before, 'n');
      state.serial_number = "5";
    });
    EXPECT_EQ(Test(), status) << "at " << place;
  }
}

// Each byte counts, and so does a file that has become shorter.
TEST_F(MemoryCardTest, ComparesTheWholeFile) {
  Boot();
  std::function<void(const std::string&)> spoil;
  const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
    const std::string path = call.IsWrite() || call.IsClose() ? "" : call.DescriptorPath();
    if (path.ends_with(TEST_FILE)) spoil(path);
    return {};
  });
  for (size_t place = 0; place < PATTERN.size(); ++place) {
    spoil = [place](const std::string& path) {
      std::fstream(path, std::ios::in | std::ios::out | std::ios::binary)
          .seekp(static_cast<std::streamoff>(place))
          .put('x');
    };
    EXPECT_EQ(Test(), -9990) << place;
  }
  spoil = [](const std::string& path) {
    if (std::filesystem::file_size(path) > 8) std::filesystem::resize_file(path, 8);
  };
  EXPECT_EQ(Test(), -9990);
  spoil = [](const std::string&) {};
  EXPECT_EQ(Test(), 0);
}

TEST_F(MemoryCardTest, TellsEveryFailure) {
  Boot();
  Change([](MemoryCard::State& state) { state.driver = false; });
  EXPECT_EQ(Test(), -9989);
  Change([](MemoryCard::State& state) { state = {.inserted = false}; });
  EXPECT_EQ(Test(), -9990);
  Change([](MemoryCard::State& state) { state = {.serial_number = "0x00000000"}; });
  EXPECT_EQ(Test(), -9995);
  EXPECT_FALSE(Phone().Root().Exists(TEST_FILE)) << "no file without a card";
  EXPECT_EQ(LinesSince(OfKind({JournalKind::Shell})), Lines{});

  Change([](MemoryCard::State& state) { state = {.read_only = true}; });
  EXPECT_EQ(Test(), -9989);
  Change([](MemoryCard::State& state) { state = {}; });
  Phone().TakeAway("/mnt/fat");
  EXPECT_EQ(Test(), -9989);
  Phone().PutBack("/mnt/fat");

  // A card that takes less than is written to it.
  {
    const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
      const bool on_card = call.IsWrite() && call.DescriptorPath().ends_with(TEST_FILE);
      return on_card ? CallFate{CallFate::Kind::Refused, 0, ENOSPC} : CallFate{};
    });
    EXPECT_EQ(Test(), -9990);
  }
  EXPECT_EQ(Test(), 0);
}

}  // namespace
