// `phonetest serve` with simulated phones in its slots, for tests in a browser.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/browser/programs.h"

namespace browser {

// A folder of this test's own, removed at its end.
class Folder {
 public:
  Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder();

  std::string operator/(const std::string& name) const {
    return (path_ / name).string();
  }

 private:
  std::filesystem::path path_;
};

// Runs a program to its end; throws with its output if it does not end with 0.
std::string RunToEnd(const std::vector<std::string>& words);

// A phone that runs as long as this object lives.
class RunningPhone {
 public:
  // Its serial port is linked at `port`.
  RunningPhone(std::string name, const std::string& port);
  RunningPhone(const RunningPhone&) = delete;
  RunningPhone& operator=(const RunningPhone&) = delete;
  ~RunningPhone();

  std::string Do(std::vector<std::string> words) const;

 private:
  std::string name_;
};

class ServedLine {
 public:
  // `options` come after "serve".
  ServedLine(const std::vector<std::string>& ports, const std::vector<std::string>& options);

  const std::string& Address() const {  // with the operator's token
    return operator_address_;
  }
  const std::string& ManagerAddress() const {
    return manager_address_;
  }
  pid_t Process() const {
    return program_.Process();
  }

 private:
  RunningProgram program_;
  std::string operator_address_;
  std::string manager_address_;
};

}  // namespace browser
