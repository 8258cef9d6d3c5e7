// A PostgreSQL server of a test's own: in a scratch folder, reached by a socket there, run by an ordinary
// user also when the test is root's, and ended with the object.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "posix/file_descriptor.h"

class PostgresqlServer {
 public:
  // Why there can be none here; empty if there can.
  static std::string Missing();

  // `settings` are the server's, such as "fsync=off".
  explicit PostgresqlServer(std::vector<std::string> settings = {"fsync=off"});
  PostgresqlServer(const PostgresqlServer&) = delete;
  PostgresqlServer& operator=(const PostgresqlServer&) = delete;
  ~PostgresqlServer();

  std::string Address() const {
    return "postgresql://line@/postgres?host=" + folder_;
  }

  // Returns when it answers.
  void Start();
  // As when its machine fails: nothing is finished.
  void Kill();
  // Stopped, it keeps its connections and answers nothing.
  void Stop(bool stopped);

 private:
  std::vector<std::string> AsOrdinaryUser(std::vector<std::string> words) const;

  const std::vector<std::string> settings_;
  std::string folder_;
  pid_t process_ = -1;
  posix::FileDescriptor lifeline_;  // when it closes, the server ends: also if the test is killed
};
