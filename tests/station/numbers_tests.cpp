// Pools of numbers: what a range holds, in which order numbers are given out, and what is on the disk by
// then.
#include <gtest/gtest.h>

#include <filesystem>

#include "station/commands/errors.h"
#include "station/results/numbers.h"
#include "station/results/reserved_numbers.h"
#include "station/results/schema.h"
#include "tests/station/scripted_phone.h"
#include "tests/station/syncs.h"

namespace {

using namespace station;

const std::string PREFIX = "00:02:5B:0A:FF:";

ResultsAddress Address(const char* name) {
  return ParseResultsAddress(TemporaryFolder() + "/" + name);
}

TEST(Numbers, ARangesBoundsAreInIt) {
  // 004999010640000, ...018, ...026 and ...034 are identities.
  const struct {
    std::string range;
    int count;  // 0 if it is refused
  } cases[] = {{"00499901064000-00499901064003", 4},
               {"004999010640000-004999010640034", 4},
               {"004999010640000-004999010640033", 3},
               {"004999010640001-004999010640034", 3},
               {"004999010640018-004999010640018", 1},
               {"004999010640018", 1},
               {"004999010640019", 0},
               {"004999010640019-004999010640025", 0},
               {"00499901064003-00499901064000", 0},
               {"0049990106400-0049990106403", 0},
               {PREFIX + "10-" + PREFIX + "1f", 16},
               {PREFIX + "10-" + PREFIX + "0F", 0},
               {PREFIX + "10-00499901064000", 0},
               {"00:02:5B:0A:FF-00:02:5B:0A:FF", 0}};
  for (const auto& [text, count] : cases) {
    std::int64_t found = 0;
    try {
      const NumberRange range = ParseNumberRange(text);
      found = range.last - range.first + 1;
    } catch (const UsageError&) {
    }
    EXPECT_EQ(found, count) << text;
  }
}

TEST(Numbers, GoOutFromTheOldestRangeUpwardsAndReturnedOnesFirst) {
  Connection connection = OpenResults(Address("order.db"));
  const auto add = [&](const std::string& range) {
    return AddNumbers(connection, "pool", ParseNumberRange(range));
  };
  int phones = 0;
  const auto draw = [&] {
    const std::string phone = "SN" + std::to_string(++phones);
    return DrawNumber(connection, "pool", {phone, "run of " + phone, "LINE3"}).value.substr(PREFIX.size());
  };
  EXPECT_EQ(add(PREFIX + "10-" + PREFIX + "13"), 4);
  // Each has a number that is in the pool already.
  for (const char* range : {"0F-10", "13-14", "11-12", "0F-14", "10-13"}) {
    const std::string text = range;
    EXPECT_THROW(add(PREFIX + text.substr(0, 3) + PREFIX + text.substr(3)), UsageError) << text;
  }
  EXPECT_EQ(add(PREFIX + "0E-" + PREFIX + "0F"), 2);
  std::string order;
  for (int i = 0; i < 5; ++i) order += draw() + " ";
  EXPECT_EQ(order, "10 11 12 13 0E ");
  // A second run of SN1 has it too, so the first one does not give it back; nor does a run that never had it.
  EXPECT_FALSE(DrawNumber(connection, "pool", {"SN1", "second run", ""}).fresh);
  for (const auto& [value, run] : {std::pair("10", "run of SN1"),
                                   {"0E", "run of SN1"},
                                   {"13", "run of SN4"},
                                   {"11", "run of SN2"},
                                   {"12", "run of SN3"}})
    GiveBack(connection, PREFIX + value, run);
  order.clear();
  for (int i = 0; i < 4; ++i) order += draw() + " ";
  EXPECT_EQ(order, "11 12 13 0F ");
  EXPECT_THROW(draw(), UsageError) << "none is left";
}

// A station that loses power must not give a number out twice: the file is whole before its name changes.
TEST(Numbers, AReservedOneIsOnTheDiskBeforeAPhoneGetsIt) {
  const ResultsAddress address = Address("reserved.db");
  Connection connection = OpenResults(address);
  AddNumbers(connection, "pool", ParseNumberRange(PREFIX + "10-" + PREFIX + "13"));
  {
    ReservedNumbers reserved(address, "pool");
    reserved.Settle(connection, 2);
    TakeSyncs();
    EXPECT_EQ(reserved.Draw({"SN1", "", ""})->value, PREFIX + "10");
    EXPECT_EQ(TakeSyncs(), "numbers.json.new reserved.db.spool ");
    EXPECT_EQ(reserved.Draw({"SN1", "", ""})->value, PREFIX + "10") << "the phone has one";
    EXPECT_EQ(TakeSyncs(), "");
  }
  ReservedNumbers again(address, "pool");
  EXPECT_EQ(again.Draw({"SN2", "", ""})->value, PREFIX + "11");
  EXPECT_FALSE(again.Draw({"SN3", "", ""}));
  EXPECT_EQ(DrawNumber(connection, "pool", {"SN2", "", ""}).value, PREFIX + "12");
  again.Settle(connection, 0);
  EXPECT_EQ(Pools(connection).at(0).given_out, 3);
  EXPECT_EQ(DrawNumber(connection, "pool", {"SN2", "", ""}).value, PREFIX + "11")
      << "the one that is in the phone";
  EXPECT_EQ(DrawNumber(connection, "pool", {"SN1", "", ""}).value, PREFIX + "10");
}

}  // namespace
