// Stations that write to one PostgreSQL server at the same time, while it is restarted and they are killed.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <list>
#include <map>
#include <sstream>
#include <thread>

#include "tests/station/postgresql_server.h"
#include "tests/station/scripted_phone.h"

namespace {

namespace fs = std::filesystem;

constexpr int STATIONS = 8;

std::string Name(int station) {
  return "station-" + std::to_string(station);
}

std::string Data(int station) {
  return TemporaryFolder() + "/" + Name(station);
}

std::size_t SpooledBy(int station) {
  std::error_code error;
  std::size_t count = 0;
  for (const auto& entry : fs::recursive_directory_iterator(Data(station), error))
    count += entry.path().extension() == ".jsonl" ? 1 : 0;
  return count;
}

std::vector<std::string> Query(const PostgresqlServer& server, const std::string& query) {
  std::istringstream output(
      RunProgram({"psql", "-AtX", "-F", " ", "-d", server.Address(), "-c", query}).output);
  std::vector<std::string> lines;
  for (std::string line; std::getline(output, line);) lines.push_back(line);
  return lines;
}

std::size_t StoredRuns(const PostgresqlServer& server) {
  const auto lines = Query(server, "SELECT count(*) FROM runs");
  return lines.empty() ? 0 : std::stoul(lines[0]);
}

void Await(const std::string& what, const std::function<bool()>& come) {
  for (int i = 0; i < 1200; ++i) {
    if (come()) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ADD_FAILURE() << "never came: " << what;
}

// One run after the other, until the file `stop` is there. Of each four, one is killed by its own step, and
// one at any point. Prints a line for each: serial number, how it dies, exit status, whether it was spooled.
std::string Script(int station, const std::string& port, const std::string& plan, const std::string& address,
                   const std::string& stop) {
  const std::string errors = Data(station) + "/errors";
  return "mkdir -p '" + Data(station) + "'; i=0; while [ ! -e '" + stop +
         "' ] || [ $i -lt 4 ]; do dies=no limit=; case $((i % 4)) in "
         "1) dies=itself;; 3) dies=anywhere; limit=\"timeout -s KILL 0.$((10 + (i * 37 + " +
         std::to_string(station * 11) + ") % 40))\";; esac; XDG_DATA_HOME='" + Data(station) +
         "' $limit '" PHONETEST_PROGRAM "' --port " + port + " run " + plan + " --station " + Name(station) +
         " --set serial=" + Name(station) + "-$i --set dies=$dies --results '" + address + "' >'" + errors +
         "' 2>&1; status=$?; if grep -q 'kept in the spool' '" + errors +
         "'; then spooled=yes; else spooled=no; fi; echo " + Name(station) +
         "-$i $dies $status $spooled; i=$((i + 1)); done";
}

struct StoredRun {
  int key = 0;
  int verdict = 0;
  int steps = 0;
};

// The runs of one station, as its script printed them, beside what is stored.
void Compare(const std::string& printed, std::multimap<std::string, StoredRun>& stored) {
  std::istringstream lines(printed);
  std::string serial, dies, spooled;
  int last = 0;
  for (int status = 0; lines >> serial >> dies >> status >> spooled;) {
    const auto found = stored.find(serial);
    ASSERT_LE(stored.count(serial), 1u) << serial << " is stored twice";
    if (found == stored.end()) {
      EXPECT_EQ(dies, "anywhere") << serial << " is lost";
      continue;
    }
    const StoredRun run = found->second;
    stored.erase(found);
    if (dies == "no") {
      EXPECT_EQ(status, 0) << serial;
    }
    if (dies == "itself") {
      EXPECT_EQ(run.verdict, 7) << serial << " was killed";
    } else if (status == 0) {
      EXPECT_EQ(run.verdict, 1) << serial;
      EXPECT_EQ(run.steps, 4) << serial;
    } else {
      EXPECT_TRUE(run.verdict == 7 || run.verdict == 1) << serial << ": " << run.verdict;
    }
    if (spooled == "no") continue;
    EXPECT_GT(run.key, last) << serial << " was handed in too early";
    last = run.key;
  }
}

TEST(ManyStations, LoseAndDoubleNothingWhenTheServerIsRestartedAndTheyAreKilled) {
  if (const std::string missing = PostgresqlServer::Missing(); !missing.empty()) GTEST_SKIP() << missing;
  PostgresqlServer server;
  const std::string plan =
      TemporaryFile("many.json", R"({"name": "Many", "variables": {"serial": {}, "dies": {}},
      "steps": [{"program": ["true"]}, {"program": ["true"]},
                {"program": ["sh", "-c", "[ ${dies} != itself ] || kill -9 $PPID"]}, {"program": ["true"]}]})");
  const std::string stop = TemporaryFolder() + "/stop";
  fs::remove(stop);
  EXPECT_EQ(RunTool({"history", "x", "--results", server.Address()}).status, 0);  // makes the tables
  std::list<ScriptedPhone> phones;
  std::vector<std::string> printed(STATIONS);
  {
    std::vector<std::jthread> stations;
    for (int i = 0; i < STATIONS; ++i) {
      const std::string script =
          Script(i, phones.emplace_back(std::vector<Turn>()).Port(), plan, server.Address(), stop);
      stations.emplace_back([&printed, script, i] {
        printed[static_cast<std::size_t>(i)] = RunProgram({"sh", "-c", script}).output;
      });
    }
    Await("runs", [&] { return StoredRuns(server) >= 2 * STATIONS; });
    server.Kill();
    Await("spooled runs", [] {
      std::size_t spooling = 0;
      for (int i = 0; i < STATIONS; ++i) spooling += SpooledBy(i) >= 2 ? 1 : 0;
      return spooling == STATIONS;
    });
    server.Start();
    const std::size_t before = StoredRuns(server);
    Await("more runs", [&] { return StoredRuns(server) >= before + 4 * STATIONS; });
    TemporaryFile("stop", "");
  }
  for (int i = 0; i < STATIONS; ++i) {
    RunProgram({"env", "XDG_DATA_HOME=" + Data(i), PHONETEST_PROGRAM, "history", "x", "--results",
                server.Address()});
    EXPECT_EQ(SpooledBy(i), 0u);
  }
  std::multimap<std::string, StoredRun> stored;
  for (const std::string& line : Query(
           server, "SELECT serial, id, verdict, (SELECT count(*) FROM steps WHERE run = r.id) FROM runs r")) {
    std::istringstream fields(line);
    std::string serial;
    StoredRun run;
    fields >> serial >> run.key >> run.verdict >> run.steps;
    stored.emplace(serial, run);
  }
  for (const std::string& lines : printed) {
    EXPECT_NE(lines.find(" yes\n"), std::string::npos) << "nothing was spooled: " << lines;
    Compare(lines, stored);
  }
  EXPECT_EQ(stored.size(), 0u) << stored.begin()->first << " was never run";
}

}  // namespace
