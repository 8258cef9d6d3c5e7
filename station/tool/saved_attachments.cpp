#include "station/tool/saved_attachments.h"

#include <fmt/format.h>

#include <filesystem>
#include <set>

#include "station/commands/clean_text.h"
#include "station/commands/errors.h"

namespace station {

namespace {

// A name in the database may be anything: it must not lead out of the folder, nor hide in it.
std::string FileName(const AttachmentRow& file, std::set<std::string>& taken) {
  std::string name = CleanText(file.name);
  for (char& character : name) {
    if (character == '/') character = '_';
  }
  if (name.empty() || name.front() == '.') name.insert(0, "_");
  if (file.step > 0) name = fmt::format("{:02}-{}", file.step, name);
  std::string free = name;
  for (int number = 2; !taken.insert(free).second; ++number) free = fmt::format("{} ({})", name, number);
  return free;
}

}  // namespace

void SaveAttachments(Connection& connection, const RunRow& run, const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  std::set<std::string> taken;
  for (const AttachmentRow& file : AttachmentsOfRun(connection, run.key)) {
    const auto content = connection.Content(file.sha256);
    if (!content)
      throw ResultsError(fmt::format("the content of {} is no longer in the database", file.name));
    const std::string path = std::filesystem::path(folder) / FileName(file, taken);
    const std::string failure = posix::WriteWholeFile(path, *content);
    if (!failure.empty()) throw OutputLost(failure);
  }
}

}  // namespace station
