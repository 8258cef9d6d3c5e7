#include "station/results/running.h"

#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace station {

namespace {

// The 22nd field of its stat file, in clock ticks since the boot. Empty if there is no such process, or only
// its remains.
std::string StartTime(const std::string& process) {
  std::ifstream file("/proc/" + process + "/stat");
  std::string text;
  std::getline(file, text);
  // The name in brackets may hold anything.
  const std::size_t end = text.rfind(')');
  if (end == std::string::npos) return "";
  std::istringstream fields(text.substr(end + 1));
  constexpr int AFTER_NAME = 20;
  std::string field;
  for (int i = 0; i < AFTER_NAME; ++i) {
    fields >> field;
    if (i == 0 && (field == "Z" || field == "X")) return "";
  }
  return field;
}

// Of this boot and this world of process numbers.
std::string Here() {
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  std::string boot;
  std::getline(file, boot);
  std::error_code error;
  return boot + "/" + std::filesystem::read_symlink("/proc/self/ns/pid", error).string() + "/";
}

bool HasEnded(const std::string& process, const std::string& here) {
  const std::size_t number_end = process.find('/', here.size());
  const std::string number = process.substr(here.size(), number_end - here.size());
  return number_end == std::string::npos || StartTime(number) != process.substr(number_end + 1);
}

}  // namespace

std::string ThisProcess() {
  return fmt::format("{}{}/{}", Here(), getpid(), StartTime("self"));
}

void MarkInterrupted(Connection& connection) {
  const std::string here = Here();
  const auto running = connection.Ask(
      fmt::format("SELECT id, process, {} - heard FROM runs WHERE verdict = 8", connection.Now()), "iti");
  for (const SqlRow& row : running) {
    const std::string& process = row[1].text;
    const bool silent = std::chrono::milliseconds(row[2].number) > LONGEST_SILENCE;
    if (process.starts_with(here) ? !HasEnded(process, here) : !silent) continue;
    connection.Run("UPDATE runs SET verdict = 7, ended = heard WHERE id = ? AND verdict = 8",
                   {row[0].number});
  }
}

}  // namespace station
