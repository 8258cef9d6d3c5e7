#include "station/campaign/simulated_phone.h"

#include <fmt/format.h>
#include <unistd.h>

#include "station/commands/errors.h"
#include "station/link/interruption.h"
#include "station/plan/host_program.h"

namespace station {

std::string OutputOf(const std::vector<std::string>& words) {
  HostProgram program(words);
  const std::string failure = program.Wait(std::chrono::seconds(30));
  if (!failure.empty()) throw UsageError(fmt::format("{}: {}", fmt::join(words, " "), failure));
  return program.Output();
}

SimulatedPhone::SimulatedPhone(const std::string& phonesim, const std::string& name,
                               const std::string& journal)
    : phonesim_(phonesim), name_(name) {
  std::vector<std::string> words = {phonesim,       "--name",      name,
                                    "--no-waiting", "--ends-with", std::to_string(getpid())};
  if (!journal.empty()) words.insert(words.end(), {"--journal", journal});
  words.push_back("start");
  const std::string greeting = OutputOf(words);
  const std::string label = "host port: ";
  const std::size_t at = greeting.find(label);
  if (at == std::string::npos) throw UsageError(fmt::format("{} tells no host port", phonesim));
  const std::size_t start = at + label.size();
  port_ = greeting.substr(start, greeting.find('\n', start) - start);
}

SimulatedPhone::~SimulatedPhone() {
  CleanUpFromHere();
  try {
    Command({"stop"});
  } catch (const std::exception&) {
    // It has ended by itself.
  }
}

std::string SimulatedPhone::Command(const std::vector<std::string>& words) const {
  std::vector<std::string> whole = {phonesim_, "--name", name_};
  whole.insert(whole.end(), words.begin(), words.end());
  return OutputOf(whole);
}

}  // namespace station
