#include "station/results/database_file.h"

#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>

#include "station/commands/errors.h"

namespace station {

std::string QuotedFile(const std::string& path) {
  if (path.find('"') != std::string::npos) throw UsageError("--results: a file's name must not hold a '\"'");
  return "db=\"" + path + "\" timeout=20";
}

void MakeFolderOf(const std::string& file) {
  std::error_code error;
  const auto folder = std::filesystem::path(file).parent_path();
  if (!folder.empty()) std::filesystem::create_directories(folder, error);
}

bool CanOnlyBeRead(const std::string& file) {
  const std::string folder = std::filesystem::absolute(file).parent_path();
  return access(file.c_str(), R_OK) == 0 &&
         (access(file.c_str(), W_OK) != 0 || access(folder.c_str(), W_OK) != 0);
}

std::string ReadOnlyName(const std::string& file) {
  std::string name = "file://";
  for (const char byte : std::filesystem::absolute(file).string()) {
    const bool plain = std::string_view("?#%").find(byte) == std::string_view::npos;
    name += plain ? std::string(1, byte) : fmt::format("%{:02x}", static_cast<unsigned char>(byte));
  }
  return name + "?immutable=1&mode=ro";
}

}  // namespace station
