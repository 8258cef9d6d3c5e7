#include "station/campaign/faults.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include <set>
#include <sstream>

#include "station/commands/errors.h"

namespace station {

namespace {

using nlohmann::json;

// The bytes of a file that is cut short: fewer than any record or text has.
constexpr int SHORT_SIZE = 3;

// Collects faults, each once.
class FaultList {
 public:
  void Add(const std::string& name, std::vector<std::string> words) {
    if (names_.insert(name).second) faults_.push_back({name, std::move(words)});
  }
  void AddCall(const std::string& call, const std::string& path, const std::string& error) {
    Add(fmt::format("{} {} {}", call, path, error), {"fault", call, path, "error=" + error, "times=always"});
  }

  std::vector<Fault> Take() {
    return std::move(faults_);
  }

 private:
  std::set<std::string> names_;
  std::vector<Fault> faults_;
};

bool IsDevice(const std::string& path) {
  return path.starts_with("/dev/");
}

// Flash partitions are devices whose content a program reads like a file's.
bool HasContent(const std::string& path) {
  return !IsDevice(path) || path.starts_with("/dev/mtd");
}

// A file that the run itself makes is not there when the fault is made: it can be neither missing nor short.
void AddOpenFaults(FaultList& faults, const std::string& path, const std::string& flags, bool created) {
  faults.AddCall("open", path, IsDevice(path) ? "ENODEV" : "EACCES");
  if (!created) faults.Add("missing " + path, {"missing", path});
  if (!flags.starts_with('r') || created || !HasContent(path)) return;
  faults.Add("short " + path, {"fault", "open", path, fmt::format("size={}", SHORT_SIZE), "times=always"});
}

void AddEntry(FaultList& faults, const json& entry, const std::set<std::string>& created) {
  const std::string kind = entry.value("kind", "");
  const std::string path = entry.value("path", "");
  // A call that was refused in the good run cannot fail once more.
  const std::string line = entry.value("line", "");
  if (path.empty() || line.find(" -> E") != std::string::npos) return;
  if (kind == "open") AddOpenFaults(faults, path, entry.value("flags", ""), created.contains(path));
  if (kind == "tool") faults.AddCall("exec", path, "EACCES");
  if (kind != "request") return;
  const std::string number = fmt::format("0x{:08X}", entry.value("request", std::uint32_t{0}));
  faults.Add(fmt::format("request {} {} EIO", path, number),
             {"fault", "request", path, "number=" + number, "error=EIO", "times=always"});
}

}  // namespace

std::vector<Fault> FaultsOfJournal(const std::vector<std::string>& lines, std::size_t skipped) {
  std::vector<json> entries;
  std::set<std::string> created;
  for (std::size_t i = skipped; i < lines.size(); ++i) {
    json entry = json::parse(lines[i], nullptr, false);
    if (!entry.is_object()) continue;
    if (entry.value("flags", "").find("create") != std::string::npos) created.insert(entry.value("path", ""));
    entries.push_back(std::move(entry));
  }
  FaultList faults;
  for (const json& entry : entries) AddEntry(faults, entry, created);
  return faults.Take();
}

std::vector<Fault> FaultsOfModels(const std::string& defects) {
  FaultList faults;
  std::istringstream lines(defects);
  for (std::string line; std::getline(lines, line);) {
    const json words = json::parse(line, nullptr, false);
    if (!words.is_array() || words.empty())
      throw UsageError("phonesim lists no defects: is it an older one?");
    const auto texts = words.get<std::vector<std::string>>();
    faults.Add(fmt::format("{}", fmt::join(texts, " ")), texts);
  }
  return faults.Take();
}

bool FitsPattern(const std::string& pattern, const std::string& name) {
  return fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

}  // namespace station
