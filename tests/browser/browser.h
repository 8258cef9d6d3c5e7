// A headless Chromium driven by chromedriver over its standard protocol (W3C WebDriver): one browser for the
// whole test program, a tab for each test.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

namespace httplib {
class Client;
}

namespace browser {

using Json = nlohmann::json;

// Why no browser can be used here, or an empty string.
std::string MissingBrowser();

class Browser {
 public:
  // Starts it with the first call. Throws std::runtime_error with what failed.
  static Browser& Shared();
  ~Browser();
  Browser(const Browser&) = delete;
  Browser& operator=(const Browser&) = delete;

  void Open(const std::string& address);
  std::string Address();
  std::string Text(const std::string& selector);
  // The first element that fits the CSS selector; waits for it.
  std::string Find(const std::string& selector);
  void Click(const std::string& selector);
  void Type(const std::string& selector, const std::string& text);

  // The body of a function; `arguments` are its arguments. A promise that it returns is awaited.
  Json Run(const std::string& script, const Json& arguments = Json::array());
  // Runs the script again and again until it returns something that is true, and returns that. Throws with
  // the script and `what` if it does not in time.
  Json Await(const std::string& script, const std::string& what, const Json& arguments = Json::array(),
             std::chrono::seconds time_out = std::chrono::seconds(30));

  void KeyDown(const std::string& key);  // "a", or a code of WebDriver's keys
  void KeyUp(const std::string& key);
  // The pointer, at a place in the element from its top left corner, in CSS pixels.
  void PointerDown(const std::string& selector, double x, double y);
  void PointerMove(const std::string& selector, double x, double y);
  void PointerUp();

  std::string OpenTab();  // and goes to it; returns its handle
  void SwitchTab(const std::string& handle);
  std::string CurrentTab();
  void CloseTab();

  void Resize(unsigned width, unsigned height);
  // "dark" or "light".
  void PreferColours(const std::string& scheme);
  void Screenshot(const std::filesystem::path& file);
  // Seconds that the page's main thread has worked since the first call.
  double BusySeconds();
  // What the page wrote to the browser's console as errors since the last call, scripts' exceptions and
  // violations of the page's security policy too.
  std::string Complaints();

 private:
  Browser();
  Json Command(const std::string& method, const std::string& path, const Json& data = Json::object());
  void Actions(Json device);
  void MovePointer(const std::string& selector, double x, double y, const char* then);

  int driver_ = 0;  // the process, and its group
  std::filesystem::path profile_;
  std::unique_ptr<httplib::Client> client_;
  std::string session_;
  bool counts_work_ = false;
};

}  // namespace browser
