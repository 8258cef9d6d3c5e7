#include "tests/station/postgresql_server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "tests/station/scripted_phone.h"

namespace fs = std::filesystem;

namespace {

constexpr uid_t NOBODY = 65534;

// Debian keeps the servers of several versions beside each other, none of them on the path.
std::string Programs() {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator("/usr/lib/postgresql", error)) {
    if (fs::exists(entry.path() / "bin/initdb")) return (entry.path() / "bin").string();
  }
  return "";
}

}  // namespace

std::string PostgresqlServer::Missing() {
  return Programs().empty() ? "PostgreSQL's server is not installed" : "";
}

PostgresqlServer::PostgresqlServer(std::vector<std::string> settings) : settings_(std::move(settings)) {
  // A socket's path must be short.
  char name[] = "/tmp/phonetest-pg-XXXXXX";
  folder_ = mkdtemp(name);
  if (getuid() == 0 && chown(name, NOBODY, NOBODY) != 0) ADD_FAILURE() << "the folder cannot be given away";
  const ToolResult made =
      RunProgram(AsOrdinaryUser({Programs() + "/initdb", "-D", folder_ + "/data", "-A", "trust", "-U", "line",
                                 "-E", "UTF8", "--locale", "C", "--no-sync"}));
  EXPECT_EQ(made.status, 0) << made.errors;
  Start();
}

PostgresqlServer::~PostgresqlServer() {
  Kill();
  std::error_code error;
  fs::remove_all(folder_, error);
}

std::vector<std::string> PostgresqlServer::AsOrdinaryUser(std::vector<std::string> words) const {
  if (getuid() == 0) {
    const std::string user = std::to_string(NOBODY);
    words.insert(words.begin(), {"setpriv", "--reuid", user, "--regid", user, "--clear-groups"});
  }
  return words;
}

void PostgresqlServer::Start() {
  // SIGQUIT ends it at once, with all its processes.
  std::vector<std::string> words =
      AsOrdinaryUser({"sh", "-c", "\"$@\" & read closed; kill -QUIT $!; wait", "sh", Programs() + "/postgres",
                      "-D", folder_ + "/data", "-k", folder_, "-c", "listen_addresses="});
  for (const std::string& setting : settings_) words.insert(words.end(), {"-c", setting});
  posix::Connection lifeline = posix::MakePipe();
  process_ = fork();
  if (process_ == 0) {
    const int log = open((folder_ + "/log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(lifeline.reading.Get(), STDIN_FILENO);
    dup2(log, STDOUT_FILENO);
    dup2(log, STDERR_FILENO);
    std::vector<char*> pointers;
    for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
    pointers.push_back(nullptr);
    execvp(pointers.front(), pointers.data());
    _exit(127);
  }
  lifeline_ = std::move(lifeline.writing);
  for (int i = 0; i < 600; ++i) {
    if (RunProgram({Programs() + "/pg_isready", "-q", "-h", folder_}).status == 0) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ADD_FAILURE() << "the server does not start: " << ReadFile(folder_ + "/log");
}

void PostgresqlServer::Kill() {
  if (process_ < 0) return;
  lifeline_.Reset();
  waitpid(process_, nullptr, 0);
  process_ = -1;
}

void PostgresqlServer::Stop(bool stopped) {
  const std::string script = "read -r process <'" + folder_ + "/data/postmaster.pid'; kill -" +
                             (stopped ? "STOP" : "CONT") +
                             " $process $(cat /proc/$process/task/$process/children)";
  const ToolResult done = RunProgram({"sh", "-c", script});
  EXPECT_EQ(done.status, 0) << done.errors;
}
