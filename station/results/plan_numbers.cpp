#include "station/results/plan_numbers.h"

#include <fmt/format.h>

#include <algorithm>

#include "station/commands/errors.h"
#include "station/results/record.h"
#include "station/results/reserved_numbers.h"
#include "station/results/schema.h"

namespace station {

PlanNumbers::PlanNumbers(const std::optional<ResultsAddress>& address, const std::vector<PoolDraw>& draws,
                         const std::map<std::string, std::string>& given, const std::string& run,
                         const std::string& station, std::size_t reserve)
    : address_(address) {
  std::vector<PoolDraw> wanted;
  std::ranges::copy_if(draws, std::back_inserter(wanted),
                       [&](const PoolDraw& draw) { return !given.contains(draw.variable); });
  if (wanted.empty()) return;
  const std::string& variable = wanted.front().variable;
  if (!address)
    throw PlanError(
        fmt::format("variable \"{}\" is drawn from a pool, which needs the database of results", variable));
  const auto serial = given.find("serial");
  if (serial == given.end() || serial->second.empty()) {
    throw PlanError(
        fmt::format("variable \"{}\" is drawn from a pool for a phone that is known by its serial number: "
                    "give --set serial=NUMBER",
                    variable));
  }
  receiver_ = {serial->second, run, station};
  try {
    DrawAll(wanted, reserve);
  } catch (const UsageError& error) {
    throw PlanError(fmt::format("variable \"{}\" cannot be drawn: {}", variable, error.what()));
  }
}

PlanNumbers::~PlanNumbers() {
  if (!begun_) Return(fresh_, {});
}

void PlanNumbers::DrawAll(const std::vector<PoolDraw>& wanted, std::size_t reserve) {
  try {
    DrawFromDatabase(wanted, reserve);
    return;
  } catch (const ResultsError& error) {
    if (!connected_) return DrawReserved(wanted, error.what());
  }
  // A connection that ended in the middle may have given a number to the phone: a second one tells which.
  try {
    DrawFromDatabase(wanted, reserve);
  } catch (const ResultsError& error) {
    DrawReserved(wanted, error.what());
  }
}

void PlanNumbers::DrawFromDatabase(const std::vector<PoolDraw>& wanted, std::size_t reserve) {
  Connection connection = OpenResults(*address_);
  connected_ = true;
  for (const PoolDraw& draw : wanted) {
    if (values_.contains(draw.variable)) continue;
    // First what this station gave out by itself: the phone may have a number from there.
    if (reserve > 0 || ReservedNumbers::Exist(*address_, draw.pool))
      ReservedNumbers(*address_, draw.pool).Settle(connection, reserve, receiver_.station);
    const DrawnNumber number = DrawNumber(connection, draw.pool, receiver_);
    values_[draw.variable] = number.value;
    if (number.fresh) fresh_.push_back({draw.variable, draw.pool, number.value});
  }
}

// A number from a block is never given back: the phone keeps it.
void PlanNumbers::DrawReserved(const std::vector<PoolDraw>& wanted, const std::string& problem) {
  for (const PoolDraw& draw : wanted) {
    if (values_.contains(draw.variable)) continue;
    std::optional<DrawnNumber> number;
    if (ReservedNumbers::Exist(*address_, draw.pool))
      number = ReservedNumbers(*address_, draw.pool).Draw(receiver_);
    if (!number) {
      throw PlanError(
          fmt::format("variable \"{}\" cannot be drawn, and no number of its pool is reserved for this "
                      "station (--reserve): {}",
                      draw.variable, problem));
    }
    values_[draw.variable] = number->value;
  }
}

void PlanNumbers::Settle(const Plan& plan, const PlanResult& result) {
  std::vector<Held> unused;
  std::vector<Held> used;
  const RunEnd end = EndOf(result);
  for (const Held& held : fresh_) {
    // The phone may have had this number before, without a record of who wrote it.
    bool begun = end.identity == held.value || end.address == held.value;
    for (std::size_t i = 0; i < plan.steps.size() && i < result.steps.size(); ++i)
      begun = begun || (result.steps[i].attempts > 0 && plan.steps[i].variables.contains(held.variable));
    (begun ? used : unused).push_back(held);
  }
  Return(unused, used);
}

// If the database is away, the numbers stay with the phone, which is safe. This station keeps in mind what it
// wrote, so that the phone gets the same when it is tested again.
void PlanNumbers::Return(const std::vector<Held>& unused, const std::vector<Held>& used) {
  if (unused.empty() && used.empty()) return;
  try {
    Connection connection = OpenResults(*address_);
    for (const Held& held : unused) GiveBack(connection, held.value, receiver_.run);
    for (const Held& held : used) MarkWritten(connection, held.value);
  } catch (const std::exception&) {
    try {
      for (const Held& held : used) ReservedNumbers(*address_, held.pool).Note(held.value, receiver_);
    } catch (const std::exception&) {
      // A full disk. The database knows whose the number is.
    }
  }
}

}  // namespace station
