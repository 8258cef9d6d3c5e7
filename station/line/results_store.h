// The line's runs in the database of results, or in its spool while the database is away.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "station/line/line_store.h"
#include "station/results/connection.h"

namespace station {

// How the phone's newest run of the plan ended, of those that say whether it is good. Throws StoreAway.
std::optional<PastRun> NewestRunIn(const ResultsAddress& address, const std::string& serial,
                                   const std::string& plan);

class ResultsStore : public LineStore {
 public:
  // Looks at once, and then every few seconds, whether the database can be reached, and hands in what waits.
  explicit ResultsStore(ResultsAddress address);

  std::optional<PastRun> NewestRun(const std::string& serial, const std::string& plan) override;
  std::unique_ptr<PlanNumbers> Draw(const LineRunStart& start, const std::string& plan_file,
                                    const std::map<std::string, std::string>& variables,
                                    std::size_t reserve) override;
  std::unique_ptr<LineRunWriter> Begin(const LineRunStart& start) override;
  std::map<std::size_t, std::chrono::microseconds> StepTimes(const std::string& plan) override;
  Condition State() override;

  // For what is looked up, by one caller. Throws ResultsError.
  Connection Connect() const;

 private:
  void Watch(const std::stop_token& stop);
  void Look();

  const ResultsAddress address_;
  mutable std::mutex mutex_;
  std::condition_variable_any due_;
  Condition condition_;
  std::string newest_;  // of NewestChange
  std::jthread watcher_;
};

}  // namespace station
