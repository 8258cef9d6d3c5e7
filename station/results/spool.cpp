#include "station/results/spool.h"

#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>

#include "station/commands/errors.h"
#include "station/results/history.h"
#include "station/results/reserved_numbers.h"
#include "station/results/spool_format.h"

namespace station {

namespace {

namespace fs = std::filesystem;

constexpr const char* SUFFIX = ".jsonl";

[[noreturn]] void ThrowLost(const fs::path& path, int error) {
  throw OutputLost(fmt::format("the run cannot be spooled in {}: {}", path.string(),
                               std::generic_category().message(error)));
}

std::vector<fs::path> FilesIn(const fs::path& folder) {
  std::vector<fs::path> files;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    if (entry.path().extension() == SUFFIX) files.push_back(entry.path());
  }
  // The names are the runs' UUIDs, which begin with the time.
  std::ranges::sort(files);
  return files;
}

void SyncFolder(const fs::path& folder) {
  const posix::FileDescriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor.IsOpen() || fsync(descriptor.Get()) != 0) ThrowLost(folder, errno);
}

// In milliseconds since 1970.
std::int64_t LastChange(const fs::path& path) {
  struct stat found {};
  if (stat(path.c_str(), &found) != 0) return MillisecondsNow();
  return static_cast<std::int64_t>(found.st_mtim.tv_sec) * 1000 + found.st_mtim.tv_nsec / 1'000'000;
}

// All of a file's whole lines. The last one is cut if the program was killed while it wrote. Throws
// ResultsError also after it has stored the others, if one of them cannot be read.
void Store(RunStore& store, Connection& connection, const fs::path& path) {
  std::ifstream file(path);
  Transaction transaction(connection);
  std::optional<RunStore::Keys> keys;
  bool whole = true;
  bool late = false;
  for (std::string line; std::getline(file, line) && !file.eof();) {
    const SpooledLine spooled = ParseSpoolLine(line);
    if (spooled.start) {
      late = !FindRun(connection, spooled.start->uuid);
      keys = store.Start(*spooled.start);
      // Of a killed run, that was its last sign of life.
      connection.Run("UPDATE runs SET heard = ? WHERE id = ? AND verdict = 8", {LastChange(path), keys->run});
    }
    if (!keys) {
      throw ResultsError(fmt::format(
          "{} begins with no start of a run that this phonetest can read, and is kept", path.string()));
    }
    whole = whole && (spooled.start || spooled.step || spooled.end);
    if (spooled.step) store.Steps(*keys, {&*spooled.step, 1});
    if (spooled.end) store.End(*keys, *spooled.end);
  }
  if (late) PlaceLateRun(connection, keys->run);
  transaction.Commit();
  if (!whole) {
    throw ResultsError(
        fmt::format("{} is damaged: what can be read of it is stored, and the file is kept", path.string()));
  }
}

}  // namespace

SpoolFile::SpoolFile(const fs::path& folder, const RunStart& start) : path_(folder / (start.uuid + SUFFIX)) {
  std::error_code error;
  fs::create_directories(folder, error);
  Open();
  try {
    Write(SpoolLine(start));
    SyncFolder(folder);
  } catch (const OutputLost&) {
    fs::remove(path_, error);
    throw;
  }
}

// Another process that hands in may remove the file as long as it is empty and not locked.
void SpoolFile::Open() {
  struct stat found {};
  do {
    descriptor_.Reset(open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    if (!descriptor_.IsOpen()) ThrowLost(path_, errno);
    flock(descriptor_.Get(), LOCK_EX);
    if (fstat(descriptor_.Get(), &found) != 0) ThrowLost(path_, errno);
  } while (found.st_nlink == 0);
}

void SpoolFile::Add(const StoredStep& step) {
  Write(SpoolLine(step));
}

void SpoolFile::Add(const RunEnd& end) {
  Write(SpoolLine(end));
}

void SpoolFile::Write(const std::string& line) {
  const std::string text = line + "\n";
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = write(descriptor_.Get(), text.data() + written, text.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) break;
    written += static_cast<std::size_t>(count);
  }
  if (written == text.size() && fdatasync(descriptor_.Get()) == 0) {
    whole_ += static_cast<off_t>(text.size());
    return;
  }
  const int error = errno;
  // The next line must not be appended to a part of this one.
  if (ftruncate(descriptor_.Get(), whole_) != 0) descriptor_.Reset();
  ThrowLost(path_, error);
}

std::size_t SpooledRuns(const fs::path& folder) {
  return FilesIn(folder).size();
}

std::size_t HandIn(RunStore& store, Connection& connection, std::size_t most) {
  const fs::path folder = connection.Address().SpoolFolder();
  // One process at a time, so that the runs come in order.
  const posix::FileDescriptor turn(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!turn.IsOpen() || flock(turn.Get(), LOCK_EX | LOCK_NB) != 0) return 0;
  ReservedNumbers::SettleAll(connection);
  std::size_t count = 0;
  std::string failure;
  for (const fs::path& path : FilesIn(folder)) {
    if (count == most) break;
    const posix::FileDescriptor descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!descriptor.IsOpen() || flock(descriptor.Get(), LOCK_EX | LOCK_NB) != 0) continue;
    // Removed by another process between the listing and the lock.
    struct stat found {};
    if (fstat(descriptor.Get(), &found) != 0 || found.st_nlink == 0) continue;
    try {
      Store(store, connection, path);
    } catch (const ResultsError& error) {
      // One that the database refuses must not keep the others back.
      store.Forget();
      connection.Ask("SELECT 1", "i");
      failure = error.what();
      continue;
    }
    std::error_code error;
    fs::remove(path, error);
    ++count;
  }
  if (!failure.empty()) throw ResultsError(failure);
  return count;
}

}  // namespace station
