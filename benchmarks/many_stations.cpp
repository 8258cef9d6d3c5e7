#include "benchmarks/many_stations.h"

#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "benchmarks/figures.h"
#include "station/results/run_recorder.h"
#include "station/results/running.h"
#include "station/results/schema.h"
#include "station/results/spool.h"
#include "tests/station/scripted_phone.h"

using namespace station;
namespace fs = std::filesystem;

namespace {

constexpr int VICTIMS = 4;

std::string StationName(int number) {
  return fmt::format("station-{}", number);
}

// Where a station keeps its spool.
void UseFolder(const std::string& station) {
  setenv("XDG_DATA_HOME", (TemporaryFolder() + "/" + station).c_str(), 1);
}

// Returns whether the run had to be spooled.
bool StoreRun(const ResultsAddress& address, const FactoryRun& run) {
  RunRecorder recorder(address, run.start);
  for (const StoredStep& step : run.steps) recorder.Add(step);
  recorder.Finish(run.end);
  if (recorder.IsLost()) _exit(1);
  return !recorder.Problem().empty();
}

// The process of a station: notes each run before it begins, and after it whether it was spooled.
void WriteRuns(const ResultsAddress& address, const FactoryRun& run, int station, int runs) {
  UseFolder(StationName(station));
  std::ofstream begun(TemporaryFolder() + "/begun-" + StationName(station));
  std::ofstream spooled(TemporaryFolder() + "/spooled-" + StationName(station));
  for (int i = 0; i < runs; ++i) {
    FactoryRun own = Another(run, fmt::format("{}-{}", StationName(station), i));
    own.start.station = StationName(station);
    begun << own.start.uuid << std::endl;
    if (StoreRun(address, own)) spooled << own.start.uuid << std::endl;
  }
  _exit(0);
}

std::vector<std::string> LinesOf(const std::string& file) {
  std::ifstream input(TemporaryFolder() + "/" + file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(input, line);) lines.push_back(line);
  return lines;
}

pid_t Fork(const ResultsAddress& address, const FactoryRun& run, int station, int runs) {
  const pid_t process = fork();
  if (process != 0) return process;
  close_range(3, ~0U, 0);  // among them what holds the server alive
  WriteRuns(address, run, station, runs);
  return 0;
}

// A writer that is killed, and followed by another one, as long as the stations run.
void KillWriters(const ResultsAddress& address, const FactoryRun& run, int first,
                 const std::stop_token& stop) {
  std::mt19937 random(static_cast<unsigned>(first));
  for (int victim = 0; victim < VICTIMS && !stop.stop_requested(); ++victim) {
    const pid_t process = Fork(address, run, first + victim, 1000);
    std::this_thread::sleep_for(std::chrono::milliseconds(300 + random() % 1500));
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
  }
}

std::int64_t Count(Connection& connection, const std::string& query,
                   const std::vector<SqlValue>& values = {}) {
  return connection.Ask(query, "i", values).at(0).at(0).number;
}

// What became of the runs of one station: all of them, except that of a killed one the last is interrupted,
// or stored whole when it was killed just after that.
bool IsRight(Connection& connection, const FactoryRun& run, int station, bool killed) {
  const auto begun = LinesOf("begun-" + StationName(station));
  const auto rows =
      connection.Ask("SELECT uuid, verdict, id FROM runs WHERE station = ? ORDER BY started, uuid", "tii",
                     {StationName(station)});
  // Of the last run of a killed one, perhaps nothing had begun.
  if (rows.size() != begun.size() && !(killed && rows.size() + 1 == begun.size())) return false;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const bool may_be_cut = killed && i + 1 == begun.size();
    if (rows[i][0].text != begun[i]) return false;
    if (rows[i][1].number == 7 && may_be_cut) continue;
    if (rows[i][1].number != 1) return false;
    const auto steps = Count(connection, "SELECT count(*) FROM steps WHERE run = ?", {rows[i][2].number});
    if (steps != static_cast<std::int64_t>(run.steps.size())) return false;
  }
  // Those that were spooled came in their order.
  std::int64_t last = 0;
  for (const std::string& uuid : LinesOf("spooled-" + StationName(station))) {
    const auto key = Count(connection, "SELECT id FROM runs WHERE uuid = ?", {uuid});
    if (key < last) return false;
    last = key;
  }
  return true;
}

}  // namespace

bool MeasureManyStations(PostgresqlServer& server, const FactoryRun& run, int stations, int runs) {
  const ResultsAddress address = ParseResultsAddress(server.Address());
  OpenResults(address);
  bool right = true;
  const double seconds = Seconds([&] {
    std::vector<pid_t> processes;
    for (int i = 0; i < stations; ++i) processes.push_back(Fork(address, run, i, runs));
    const std::jthread killer(
        [&](const std::stop_token& stop) { KillWriters(address, run, stations, stop); });
    std::this_thread::sleep_for(std::chrono::seconds(2));
    server.Kill();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    server.Start();
    for (const pid_t process : processes) {
      int status = 0;
      waitpid(process, &status, 0);
      right = right && status == 0;
    }
  });
  Connection connection = OpenResults(address);
  RunStore store(connection);
  std::size_t spooled = 0;
  for (int i = 0; i < stations + VICTIMS; ++i) {
    UseFolder(StationName(i));
    spooled += LinesOf("spooled-" + StationName(i)).size();
    HandIn(store, connection);
    right = right && SpooledRuns(address.SpoolFolder()) == 0;
  }
  MarkInterrupted(connection);
  for (int i = 0; i < stations + VICTIMS; ++i) right = IsRight(connection, run, i, i >= stations) && right;
  fmt::print(
      "{} stations at once, server killed for 2 s   {:8.1f} runs/s; {} runs spooled, {} interrupted of {} "
      "killed writers: {}\n",
      stations, stations * runs / seconds, spooled,
      Count(connection, "SELECT count(*) FROM runs WHERE verdict = 7"), VICTIMS,
      right ? "none lost, none doubled, in order" : "WRONG");
  return right;
}
