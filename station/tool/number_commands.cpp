// phonetest numbers: what a line manager does with pools of numbers.
#include <fmt/format.h>

#include "posix/whole_output.h"
#include "station/commands/clean_text.h"
#include "station/results/numbers.h"
#include "station/results/reserved_numbers.h"
#include "station/tool/results_commands.h"

namespace station {

namespace {

using Given = ToolCommand::Given;
using Kind = ToolCommand::Option::Kind;
using nlohmann::ordered_json;

ExitStatus Add(const Settings& settings, Given& given) {
  const NumberRange range = ParseNumberRange(given["range"].front());
  const std::string& pool = given["pool"].front();
  Connection connection = OpenedResults(settings, given, /*makes=*/true);
  const std::int64_t count = AddNumbers(connection, pool, range);
  if (settings.json) {
    posix::Print("{}\n", JsonText({{"pool", pool}, {"added", count}}));
  } else {
    posix::Print("{}: {} numbers from {} to {}\n", CleanText(pool), count,
                 NumberText(range.kind, range.first), NumberText(range.kind, range.last));
  }
  return ExitStatus::Passed;
}

ExitStatus ListPools(const Settings& settings, Given& given) {
  Connection connection = OpenedResults(settings, given);
  ordered_json list = ordered_json::array();
  std::string text;
  for (const PoolRow& pool : Pools(connection)) {
    list.push_back({{"pool", pool.name},
                    {"kind", pool.kind},
                    {"left", pool.left},
                    {"reserved", pool.reserved},
                    {"given-out", pool.given_out}});
    text += fmt::format("{:<20}  {:<10}  {:>9} left  {:>9} reserved  {:>9} given out\n", pool.name, pool.kind,
                        pool.left, pool.reserved, pool.given_out);
  }
  posix::Print("{}", settings.json ? JsonText(list) + "\n" : text.empty() ? "no pool\n" : CleanText(text));
  return ExitStatus::Passed;
}

ExitStatus ShowPool(const Settings& settings, Given& given) {
  Connection connection = OpenedResults(settings, given);
  ordered_json list = ordered_json::array();
  std::string text;
  for (const NumberRow& row : GivenNumbers(connection, given["pool"].front())) {
    list.push_back({{"number", row.value},
                    {"state", row.state},
                    {"serial", row.receiver.phone},
                    {"run", row.receiver.run},
                    {"station", row.receiver.station},
                    {"changed", MomentText(row.changed)}});
    text += fmt::format("{:<17}  {:<8}  {}  {}  {}\n", row.value, row.state, MomentText(row.changed),
                        row.receiver.phone, row.receiver.station);
  }
  posix::Print("{}", settings.json  ? JsonText(list) + "\n"
                     : text.empty() ? "no number is given out\n"
                                    : CleanText(text));
  return ExitStatus::Passed;
}

ExitStatus Draw(const Settings& settings, Given& given) {
  Connection connection = OpenedResults(settings, given);
  const DrawnNumber number = DrawNumber(connection, given["pool"].front(), {given["serial"].front(), "", ""});
  if (settings.json) {
    posix::Print("{}\n", JsonText({{"number", number.value}, {"fresh", number.fresh}}));
  } else {
    posix::Print("{}\n", number.value);
  }
  return ExitStatus::Passed;
}

ExitStatus GiveBackBlock(const Settings& settings, Given& given) {
  const std::string& pool = given["pool"].front();
  Connection connection = OpenedResults(settings, given);
  if (!ReservedNumbers::Exist(connection.Address(), pool)) {
    throw UsageError(fmt::format("no numbers of the pool \"{}\" were reserved here: there is no block in {}",
                                 pool, connection.Address().SpoolFolder().string()));
  }
  const std::int64_t count = ReservedNumbers(connection.Address(), pool).GiveBack(connection);
  if (settings.json) {
    posix::Print("{}\n", JsonText({{"pool", pool}, {"given-back", count}}));
  } else {
    posix::Print("{}: {} reserved numbers given back\n", CleanText(pool), count);
  }
  return ExitStatus::Passed;
}

}  // namespace

std::vector<ToolCommand> NumberCommands() {
  const ToolCommand::Option pool = {Kind::Positional, "pool", "name of the pool", "POOL"};
  return {
      {"numbers add",
       "add a range of numbers to a pool, which is made if there is none",
       {pool,
        {Kind::Positional, "range",
         "identities with 14 digits or with the check digit, or Bluetooth addresses; FIRST-LAST or one "
         "number",
         "RANGE"},
        ResultsOption()},
       Add},
      {"numbers list", "list the pools with what is left in them", {ResultsOption()}, ListPools},
      {"numbers show", "list the numbers of a pool that are given out", {pool, ResultsOption()}, ShowPool},
      {"numbers draw",
       "print the number of a phone; it gets one if it has none",
       {pool, {Kind::Positional, "serial", "the phone's serial number", "SERIAL"}, ResultsOption()},
       Draw},
      {"numbers give-back",
       "give back the numbers that are reserved for this station and that no phone has got",
       {pool, ResultsOption()},
       GiveBackBlock}};
}

}  // namespace station
