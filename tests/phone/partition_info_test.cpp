// The partition information record, kept twice: exact bytes, the order of reads and writes, repair of a bad
// copy, and failures.
#include <filesystem>

#include "tests/phone/call_tracer.h"
#include "tests/phone/flash_test.h"

namespace {

using Kind = CallFate::Kind;

using PartitionInfoTest = FlashTest;

std::string WithWord(std::string record, uint32_t word) {
  for (size_t index = 0; index < 4; ++index) record[12 + index] = static_cast<char>(word >> 8 * index);
  const uint32_t sum = simulator::RecordCheckSum(AsBytes(record).subspan(4));
  for (size_t index = 0; index < 4; ++index) record[index] = static_cast<char>(sum >> 8 * index);
  return record;
}

TEST_F(PartitionInfoTest, SetsThePartitionWordInBothCopiesPrimaryFirst) {
  Boot();
  const std::string before = Flash("Partition Info");
  EXPECT_EQ(AskStatus(0x04, Words({0x89ABCDEF})), 0);
  const std::string after = WithWord(before, 0x89ABCDEF);
  EXPECT_EQ(after.substr(12, 4), "\xEF\xCD\xAB\x89");
  EXPECT_EQ(after.substr(2, 2), std::string(2, '\0'));
  EXPECT_TRUE(Flash("Partition Info") == after);
  EXPECT_TRUE(Flash("Partition Info Bak") == after);
  EXPECT_EQ(FlashLines(), ReadOf(1) + ReadOf(1) + RewriteOf(1) + RewriteOf(2)) << "and nothing more";
}

TEST_F(PartitionInfoTest, RepairsABadCopyFromTheGoodOne) {
  Boot();
  const std::string primary = WithWord(Flash("Partition Info"), 1111);
  const std::string backup = WithWord(Flash("Partition Info"), 2222);
  ASSERT_NE(primary, backup);
  const auto damage = [](std::string record, size_t offset) {
    record[offset] = static_cast<char>(record[offset] ^ 0x10);
    return record;
  };
  const Lines backup_first = ReadOf(1) + ReadOf(2) + ReadOf(1) + RewriteOf(2) + RewriteOf(1);
  const Lines primary_first = ReadOf(1) + ReadOf(1) + RewriteOf(1) + RewriteOf(2);
  const struct {
    const char* what;
    std::string primary, backup, kept;
    Lines lines;
  } CASES[] = {
      {"the body differs from the sum", damage(primary, 32767), backup, backup, backup_first},
      {"the sum is another", damage(primary, 0), backup, backup, backup_first},
      {"the sum's third byte is not 0", damage(primary, 2), backup, backup, backup_first},
      {"the sum's fourth byte is not 0", damage(primary, 3), backup, backup, backup_first},
      {"the primary is erased", std::string(32768, '\xFF'), backup, backup, backup_first},
      {"the backup is bad", primary, damage(backup, 100), primary, primary_first},
  };
  for (const auto& row : CASES) {
    SCOPED_TRACE(row.what);
    SetFlash("Partition Info", row.primary);
    SetFlash("Partition Info Bak", row.backup);
    MarkJournal();
    EXPECT_EQ(AskStatus(0x04, Words({77})), 0);
    EXPECT_TRUE(Flash("Partition Info") == WithWord(row.kept, 77));
    EXPECT_TRUE(Flash("Partition Info Bak") == WithWord(row.kept, 77));
    EXPECT_EQ(FlashLines(), row.lines);
  }
  // A primary that is too short is bad too, and the write makes it whole again.
  SetFlash("Partition Info Bak", backup);
  std::filesystem::resize_file(Phone().Root().Outside("/dev/mtd/1"), 32767);
  EXPECT_EQ(AskStatus(0x04, Words({78})), 0);
  EXPECT_TRUE(Flash("Partition Info") == WithWord(backup, 78));
}

TEST_F(PartitionInfoTest, TouchesNoPartitionInformationWhenBothCopiesAreBad) {
  Boot();
  SetFlash("Partition Info", "x");
  SetFlash("Partition Info Bak", std::string(32768, '\xFF'));
  const std::string primary = Flash("Partition Info");
  EXPECT_EQ(Ask(0x04, Words({1}), 4), Words({0xFFFFD8F9}));
  EXPECT_EQ(FlashLines(), ReadOf(1) + ReadOf(2));
  EXPECT_TRUE(Flash("Partition Info") == primary);

  SetListed("Partition Info", false);
  SetListed("Partition Info Bak", false);
  MarkJournal();
  EXPECT_EQ(AskStatus(0x04, Words({1})), -9991);
  EXPECT_EQ(FlashLines(), (Lines{LOOKUP, LOOKUP}));
  EXPECT_TRUE(StillAnswers());
}

// A missing device or a failed write is not reported, and the other copy is written nevertheless.
TEST_F(PartitionInfoTest, AnswersSuccessWhenACopyCannotBeWritten) {
  Boot();
  const std::string before = Flash("Partition Info");
  Phone().TakeAway("/dev/mtdblock_bbs/2");
  EXPECT_EQ(AskStatus(0x04, Words({5})), 0);
  EXPECT_TRUE(Flash("Partition Info") == WithWord(before, 5));
  EXPECT_TRUE(Flash("Partition Info Bak") == std::string(32768, '\xFF')) << "erased by its other name";
  Phone().PutBack("/dev/mtdblock_bbs/2");

  // Without a line of its own, the primary's name fits the backup's line: the backup is written twice.
  SetFlash("Partition Info Bak", WithWord(before, 6));
  SetListed("Partition Info", false);
  MarkJournal();
  EXPECT_EQ(AskStatus(0x04, Words({7})), 0);
  EXPECT_EQ(FlashLines(), ReadOf(2) + ReadOf(2) + RewriteOf(2) + RewriteOf(2));
  EXPECT_TRUE(Flash("Partition Info Bak") == WithWord(before, 7));
  EXPECT_TRUE(Flash("Partition Info") == WithWord(before, 5));
  SetListed("Partition Info", true);

  {
    // The first write of a record comes short, the second does not.
    int writes = 0;
    const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
      if (call.thread != Phone().ServerProcess() || !call.IsWrite() || call.Size() != 32768) return {};
      return ++writes == 1 ? CallFate{Kind::Shortened, 1000} : CallFate{};
    });
    EXPECT_EQ(AskStatus(0x04, Words({8})), 0);
  }
  const std::string after = WithWord(before, 8);
  EXPECT_TRUE(Flash("Partition Info") == after.substr(0, 1000) + std::string(31768, '\xFF'));
  EXPECT_TRUE(Flash("Partition Info Bak") == after);
  EXPECT_TRUE(StillAnswers());
}

}  // namespace
