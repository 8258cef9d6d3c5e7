// The line's pages in the browser, without a phone: for tests of the pages' modules with data of their own.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "tests/browser/browser.h"
#include "tests/browser/line_under_test.h"

class LinePageTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!browser::MissingBrowser().empty()) GTEST_SKIP() << browser::MissingBrowser();
    std::ofstream(folder_ / "plan.json") << R"({"name": "Plan", "steps": [{"command": "ping"}]})";
    page_.Open("about:blank");
    page_.Complaints();  // of the tests before
    line_.emplace(
        std::vector<std::string>{"A=" + (folder_ / "A")},
        std::vector<std::string>{"--plan", folder_ / "plan.json", "--results", folder_ / "results.db"});
    page_.Open(line_->ManagerAddress());
    page_.Await("return document.querySelector('#slot-A .wants') !== null", "the line");
  }

  // Opens one of the line's pages when its module has drawn it.
  void Go(const std::string& path, const std::string& drawn) {
    page_.Run("location.pathname = arguments[0]", {path});
    page_.Await("return location.pathname === arguments[0] && document.querySelector(arguments[1]) !== null",
                path, {path, drawn});
  }

  browser::Folder folder_;
  std::optional<browser::ServedLine> line_;
  browser::Browser& page_ = browser::Browser::Shared();
};
