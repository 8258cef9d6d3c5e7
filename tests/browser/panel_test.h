// A simulated phone, its panel in a program of its own, and the panel's page in the browser.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/browser/browser.h"

// What a command line printed, and how it ended.
struct Finished {
  int status;
  std::string output;
};
Finished RunLine(const std::string& line);

// A program that goes on; it ends with the test.
class Background {
 public:
  // Starts it and waits for its first line of output, which is kept.
  explicit Background(const std::string& line);
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  const std::string& FirstLine() const {
    return first_line_;
  }
  // Waits for its end and returns the exit status.
  int Wait();
  int Process() const {
    return process_;
  }

 private:
  int process_ = 0;
  std::string first_line_;
};

class PanelTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  Finished Phonesim(const std::string& words);
  // Asks the phone as a station does.
  Finished Phonetest(const std::string& words);
  std::string Port();
  browser::Browser& Page() {
    return browser::Browser::Shared();
  }
  std::string Origin() const {
    return address_.substr(0, address_.find("/phone/"));
  }
  void Shoot(const std::string& name);

  std::string name_;
  std::string address_;
  std::unique_ptr<Background> panel_;
};
