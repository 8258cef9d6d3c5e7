// A simulated phone, its panel in a program of its own, and the panel's page in the browser.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/browser/browser.h"
#include "tests/browser/programs.h"

using browser::Finished;

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
  std::unique_ptr<browser::RunningProgram> panel_;
};
