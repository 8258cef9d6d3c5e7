#include "tests/browser/line_under_test.h"

#include <stdexcept>

namespace browser {

Folder::Folder() {
  std::string made = (std::filesystem::temp_directory_path() / "line-XXXXXX").string();
  if (mkdtemp(made.data()) == nullptr) throw std::runtime_error("cannot make a folder");
  path_ = made;
}

Folder::~Folder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string RunToEnd(const std::vector<std::string>& words) {
  const Finished finished = RunProgram(words);
  if (finished.status != 0) throw std::runtime_error(words[0] + " failed: " + finished.output);
  return finished.output;
}

RunningPhone::RunningPhone(std::string name, const std::string& port) : name_(std::move(name)) {
  Do({"--no-waiting", "--link", port, "--ends-with", std::to_string(getpid()), "start"});
}

RunningPhone::~RunningPhone() {
  try {
    Do({"stop"});
  } catch (const std::exception&) {
    // A test has ended it.
  }
}

std::string RunningPhone::Do(std::vector<std::string> words) const {
  words.insert(words.begin(), {PHONESIM_PROGRAM, "--name", name_});
  return RunToEnd(words);
}

namespace {

std::vector<std::string> ServeWords(const std::vector<std::string>& ports,
                                    const std::vector<std::string>& options) {
  std::vector<std::string> words = {PHONETEST_PROGRAM};
  for (const std::string& port : ports) words.insert(words.end(), {"--port", port});
  words.push_back("serve");
  words.insert(words.end(), options.begin(), options.end());
  return words;
}

}  // namespace

ServedLine::ServedLine(const std::vector<std::string>& ports, const std::vector<std::string>& options)
    : program_(ServeWords(ports, options)),
      operator_address_(program_.AwaitLine("operator:     ")),
      manager_address_(program_.AwaitLine("line manager: ")) {}

}  // namespace browser
