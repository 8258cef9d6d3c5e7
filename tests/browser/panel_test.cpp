#include "tests/browser/panel_test.h"

#include <unistd.h>

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::vector<std::string> WordsOf(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

Finished RunWith(std::vector<std::string> words, const std::string& more) {
  const std::vector<std::string> rest = WordsOf(more);
  words.insert(words.end(), rest.begin(), rest.end());
  return browser::RunProgram(words);
}

}  // namespace

void PanelTest::SetUp() {
  if (!browser::MissingBrowser().empty()) GTEST_SKIP() << browser::MissingBrowser();
  name_ = "shown";
  const Finished start = Phonesim("--no-waiting --ends-with " + std::to_string(getpid()) + " start");
  ASSERT_EQ(0, start.status) << start.output;
  panel_ = std::make_unique<browser::RunningProgram>(
      std::vector<std::string>{PHONESIM_PROGRAM, "--name", name_, "panel"});
  address_ = panel_->AwaitLine("panel: ");
  ASSERT_TRUE(address_.starts_with("http://127.0.0.1:")) << address_;
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
  Phonesim("stop");
}

Finished PanelTest::Phonesim(const std::string& words) {
  return RunWith({PHONESIM_PROGRAM, "--name", name_}, words);
}

std::string PanelTest::Port() {
  const std::string status = browser::RunProgram({PHONESIM_PROGRAM, "status", "--json"}).output;
  return browser::Json::parse(status).at(0).at("host_port");
}

Finished PanelTest::Phonetest(const std::string& words) {
  return RunWith({PHONETEST_PROGRAM, "--port", Port()}, words);
}

void PanelTest::Shoot(const std::string& name) {
  Page().Screenshot(std::filesystem::path(SCREENSHOTS) / (name + ".png"));
}
