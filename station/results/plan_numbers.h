// The numbers that a plan draws for one phone.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "station/plan/plan.h"
#include "station/plan/runner.h"
#include "station/results/numbers.h"

namespace station {

class PlanNumbers {
 public:
  // Draws a number for each variable of `draws` that is not among `given`. The phone is known by its serial
  // number, the variable "serial". `reserve` is the size of the block for times without a database. Throws
  // PlanError if a number cannot be drawn.
  PlanNumbers(const std::optional<ResultsAddress>& address, const std::vector<PoolDraw>& draws,
              const std::map<std::string, std::string>& given, const std::string& run,
              const std::string& station, std::size_t reserve);
  PlanNumbers(const PlanNumbers&) = delete;
  PlanNumbers& operator=(const PlanNumbers&) = delete;
  // Numbers of a run that did not begin are given back.
  ~PlanNumbers();

  // By the variables' names.
  const std::map<std::string, std::string>& Values() const {
    return values_;
  }

  // From now on a number goes back only if Settle says so.
  void Begin() {
    begun_ = true;
  }

  // After the run: a number goes back if no step that uses it has begun. Otherwise the phone keeps it.
  void Settle(const Plan& plan, const PlanResult& result);

 private:
  struct Held {
    std::string variable;
    std::string pool;
    std::string value;
  };

  void DrawAll(const std::vector<PoolDraw>& wanted, std::size_t reserve);
  void DrawFromDatabase(const std::vector<PoolDraw>& wanted, std::size_t reserve);
  void DrawReserved(const std::vector<PoolDraw>& wanted, const std::string& problem);
  void Return(const std::vector<Held>& unused, const std::vector<Held>& used);

  std::optional<ResultsAddress> address_;
  Receiver receiver_;
  std::map<std::string, std::string> values_;
  std::vector<Held> fresh_;
  bool connected_ = false;
  bool begun_ = false;
};

}  // namespace station
