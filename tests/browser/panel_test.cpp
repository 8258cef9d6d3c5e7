#include "tests/browser/panel_test.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "posix/file_descriptor.h"

namespace {

std::string ReadAll(int descriptor, bool one_line) {
  std::string text;
  char byte;
  while (read(descriptor, &byte, 1) == 1) {
    text += byte;
    if (one_line && byte == '\n') break;
  }
  return text;
}

int Start(const std::string& line, posix::FileDescriptor& output) {
  posix::Connection pipe = posix::MakePipe();
  const int process = fork();
  if (process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(pipe.writing.Get(), STDOUT_FILENO);
    dup2(pipe.writing.Get(), STDERR_FILENO);
    execl("/bin/sh", "sh", "-c", ("exec " + line).c_str(), nullptr);
    _exit(127);
  }
  output = std::move(pipe.reading);
  return process;
}

int StatusOf(int process) {
  int status = 0;
  waitpid(process, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

Finished RunLine(const std::string& line) {
  posix::FileDescriptor output;
  const int process = Start(line, output);
  std::string text = ReadAll(output.Get(), false);
  return {StatusOf(process), std::move(text)};
}

Background::Background(const std::string& line) {
  posix::FileDescriptor output;
  process_ = Start(line, output);
  first_line_ = ReadAll(output.Get(), true);
}

Background::~Background() {
  if (process_ == 0) return;
  kill(process_, SIGTERM);
  Wait();
}

int Background::Wait() {
  return StatusOf(std::exchange(process_, 0));
}

void PanelTest::SetUp() {
  if (!browser::MissingBrowser().empty()) GTEST_SKIP() << browser::MissingBrowser();
  name_ = "shown";
  const Finished start = RunLine(fmt::format("{} --name {} --no-waiting start", PHONESIM_PROGRAM, name_));
  ASSERT_EQ(0, start.status) << start.output;
  panel_ = std::make_unique<Background>(fmt::format("{} --name {} panel", PHONESIM_PROGRAM, name_));
  address_ = panel_->FirstLine();
  ASSERT_TRUE(address_.starts_with("panel: http://127.0.0.1:")) << address_;
  address_ = address_.substr(sizeof "panel: " - 1, address_.size() - sizeof "panel: ");
  Page().Resize(1280, 800);
  Page().PreferColours("light");
  Page().Complaints();  // of before
  Page().Open(address_);
  Page().Await("return document.querySelector('#clock').textContent !== ''", "the phone's state");
}

void PanelTest::TearDown() {
  if (panel_ == nullptr) return;
  EXPECT_EQ("", Page().Complaints());
  Page().Open("about:blank");
  panel_.reset();
  RunLine(fmt::format("{} --name {} stop", PHONESIM_PROGRAM, name_));
}

Finished PanelTest::Phonesim(const std::string& words) {
  return RunLine(fmt::format("{} --name {} {}", PHONESIM_PROGRAM, name_, words));
}

std::string PanelTest::Port() {
  const std::string status = RunLine(fmt::format("{} status --json", PHONESIM_PROGRAM)).output;
  return browser::Json::parse(status).at(0).at("host_port");
}

Finished PanelTest::Phonetest(const std::string& words) {
  return RunLine(fmt::format("{} --port {} {}", PHONETEST_PROGRAM, Port(), words));
}

void PanelTest::Shoot(const std::string& name) {
  Page().Screenshot(std::filesystem::path(SCREENSHOTS) / (name + ".png"));
}
