#include "station/line/tokens.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include "posix/file_descriptor.h"
#include "station/commands/errors.h"
#include "station/line/line_page.h"
#include "station/tasks/operation.h"

namespace station {

namespace {

// A guess at a shorter one could succeed.
constexpr std::size_t SHORTEST = 20;

void MakeTokens(const std::string& path) {
  const posix::FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  std::string text;
  for (const char* role : {OPERATOR_ROLE, MANAGER_ROLE})
    text += fmt::format("{} {}\n", role, web::NewRole(role).token);
  if (file.Get() < 0 || write(file.Get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw UsageError(fmt::format("--token-file: cannot make {}: {}", path, std::strerror(errno)));
  }
}

void CheckRights(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || (status.st_mode & (S_IRWXG | S_IRWXO)) == 0) return;
  throw UsageError(fmt::format("--token-file: others can read {0}: use chmod 600 {0}", path));
}

}  // namespace

std::map<std::string, std::string> ReadTokens(const std::string& path) {
  constexpr std::size_t LARGEST = 4096;
  if (access(path.c_str(), F_OK) != 0) MakeTokens(path);
  CheckRights(path);
  std::istringstream words(ReadFile(path, LARGEST));
  std::map<std::string, std::string> tokens;
  for (std::string role, token; words >> role >> token;) {
    if (role != OPERATOR_ROLE && role != MANAGER_ROLE) continue;
    if (token.size() < SHORTEST)
      throw UsageError(fmt::format("--token-file: a token has at least {} characters", SHORTEST));
    tokens[role] = token;
  }
  if (tokens.size() != 2 || tokens[OPERATOR_ROLE] == tokens[MANAGER_ROLE]) {
    throw UsageError(
        fmt::format("--token-file: {} needs a line \"operator TOKEN\" and a line \"manager TOKEN\"", path));
  }
  return tokens;
}

}  // namespace station
