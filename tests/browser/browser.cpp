#include "tests/browser/browser.h"

#include <fcntl.h>
#include <httplib.h>
#include <re2/re2.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "posix/file_descriptor.h"

namespace browser {
namespace {

// The key under which the protocol returns an element.
constexpr char ELEMENT[] = "element-6066-11e4-a52e-4f735466cecf";
constexpr auto PAUSE = std::chrono::milliseconds(20);

std::string ProgramOnPath(const std::string& name) {
  const char* path = getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::string program = folder + "/" + name;
    if (access(program.c_str(), X_OK) == 0) return program;
  }
  return {};
}

// Starts chromedriver in a process group of its own and returns its output.
posix::FileDescriptor StartDriver(const std::string& program, int& process) {
  posix::Connection output = posix::MakePipe();
  process = fork();
  if (process == 0) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(output.writing.Get(), STDOUT_FILENO);
    dup2(open("/dev/null", O_RDWR), STDERR_FILENO);
    execl(program.c_str(), program.c_str(), "--port=0", nullptr);
    _exit(127);
  }
  return std::move(output.reading);
}

int PortOf(const posix::FileDescriptor& output) {
  std::string text;
  int port = 0;
  char bytes[512];
  while (!RE2::PartialMatch(text, "started successfully on port ([0-9]+)[^0-9]", &port)) {
    const ssize_t size = read(output.Get(), bytes, sizeof bytes);
    if (size <= 0) throw std::runtime_error("chromedriver does not start: " + text);
    text.append(bytes, static_cast<size_t>(size));
  }
  return port;
}

std::string FromBase64(const std::string& text) {
  static const std::string DIGITS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  uint32_t bits = 0;
  int count = 0;
  for (const char digit : text) {
    const size_t value = DIGITS.find(digit);
    if (value == std::string::npos) break;
    bits = bits << 6 | static_cast<uint32_t>(value);
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes += static_cast<char>(bits >> count & 0xFF);
  }
  return bytes;
}

Json Capabilities(const std::filesystem::path& profile) {
  Json arguments = {"--headless=new",
                    "--disable-gpu",
                    "--no-first-run",
                    "--disable-background-networking",
                    "--disable-dev-shm-usage",
                    "--hide-scrollbars",
                    "--autoplay-policy=user-gesture-required",
                    "--user-data-dir=" + profile.string()};
  // Chromium has no sandbox for root.
  if (geteuid() == 0) arguments.push_back("--no-sandbox");
  return {{"capabilities",
           {{"alwaysMatch",
             {{"browserName", "chrome"},
              {"goog:loggingPrefs", {{"browser", "ALL"}}},
              {"timeouts", {{"script", 60000}, {"pageLoad", 60000}}},
              {"goog:chromeOptions", {{"binary", ProgramOnPath("chromium")}, {"args", arguments}}}}}}}};
}

}  // namespace

std::string MissingBrowser() {
  for (const char* program : {"chromium", "chromedriver"}) {
    if (ProgramOnPath(program).empty()) {
      return std::string("skipped: the program ") + program +
             " is not installed (Debian's packages chromium and chromium-driver)";
    }
  }
  return {};
}

Browser& Browser::Shared() {
  static Browser shared;
  return shared;
}

Browser::Browser() {
  std::string folder = (std::filesystem::temp_directory_path() / "browser-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) posix::ThrowErrno("mkdtemp");
  profile_ = folder;
  const posix::FileDescriptor output = StartDriver(ProgramOnPath("chromedriver"), driver_);
  client_ = std::make_unique<httplib::Client>("127.0.0.1", PortOf(output));
  client_->set_read_timeout(120);
  client_->set_keep_alive(true);
  session_ = Command("POST", "/session", Capabilities(profile_)).at("sessionId");
  Resize(1280, 800);
}

Browser::~Browser() {
  client_->Delete("/session/" + session_);
  kill(-driver_, SIGKILL);
  waitpid(driver_, nullptr, 0);
  std::error_code ignored;
  std::filesystem::remove_all(profile_, ignored);
}

Json Browser::Command(const std::string& method, const std::string& path, const Json& data) {
  const std::string target = session_.empty() ? path : "/session/" + session_ + path;
  const auto response = method == "GET"      ? client_->Get(target)
                        : method == "DELETE" ? client_->Delete(target)
                                             : client_->Post(target, data.dump(), "application/json");
  if (!response) throw std::runtime_error("chromedriver does not answer " + target);
  const Json value = Json::parse(response->body).at("value");
  if (response->status != 200) {
    throw std::runtime_error(value.value("error", "") + ": " + value.value("message", ""));
  }
  return value;
}

void Browser::Open(const std::string& address) {
  Command("POST", "/url", {{"url", address}});
}

std::string Browser::Address() {
  return Command("GET", "/url");
}

std::string Browser::Find(const std::string& selector) {
  Await("return document.querySelector(arguments[0]) !== null", selector, {selector});
  return Command("POST", "/element", {{"using", "css selector"}, {"value", selector}}).at(ELEMENT);
}

std::string Browser::Text(const std::string& selector) {
  return Command("GET", "/element/" + Find(selector) + "/text");
}

void Browser::Click(const std::string& selector) {
  Command("POST", "/element/" + Find(selector) + "/click");
}

void Browser::Type(const std::string& selector, const std::string& text) {
  const std::string element = Find(selector);
  Command("POST", "/element/" + element + "/clear");
  Command("POST", "/element/" + element + "/value", {{"text", text}});
}

Json Browser::Run(const std::string& script, const Json& arguments) {
  return Command("POST", "/execute/sync", {{"script", script}, {"args", arguments}});
}

Json Browser::Await(const std::string& script, const std::string& what, const Json& arguments,
                    std::chrono::seconds time_out) {
  const auto deadline = std::chrono::steady_clock::now() + time_out;
  while (true) {
    Json value = Run(script, arguments);
    const bool holds = !value.is_null() && value != false && value != 0 && value != "";
    if (holds) return value;
    if (std::chrono::steady_clock::now() > deadline) {
      const Json text = Run("return document.body.innerText");
      throw std::runtime_error("not in time: " + what + "\n" + script + "\n" + text.get<std::string>());
    }
    std::this_thread::sleep_for(PAUSE);
  }
}

void Browser::Actions(Json device) {
  Command("POST", "/actions", {{"actions", Json::array({std::move(device)})}});
}

void Browser::KeyDown(const std::string& key) {
  Actions({{"type", "key"}, {"id", "keys"}, {"actions", {{{"type", "keyDown"}, {"value", key}}}}});
}

void Browser::KeyUp(const std::string& key) {
  Actions({{"type", "key"}, {"id", "keys"}, {"actions", {{{"type", "keyUp"}, {"value", key}}}}});
}

void Browser::MovePointer(const std::string& selector, double x, double y, const char* then) {
  // The place comes from the page: the protocol counts from an element's middle and takes no fractions.
  const Json place =
      Run("const element = document.querySelector(arguments[0]);"
          "element.scrollIntoView({block: 'nearest', behavior: 'instant'});"
          "const box = element.getBoundingClientRect(); return [box.left, box.top]",
          {selector});
  Json actions = {{{"type", "pointerMove"},
                   {"duration", 0},
                   {"x", std::lround(place[0].get<double>() + x)},
                   {"y", std::lround(place[1].get<double>() + y)}}};
  if (then != nullptr) actions.push_back({{"type", then}, {"button", 0}});
  Actions({{"type", "pointer"}, {"id", "pointer"}, {"actions", actions}});
}

void Browser::PointerDown(const std::string& selector, double x, double y) {
  MovePointer(selector, x, y, "pointerDown");
}

void Browser::PointerMove(const std::string& selector, double x, double y) {
  MovePointer(selector, x, y, nullptr);
}

void Browser::PointerUp() {
  Actions({{"type", "pointer"}, {"id", "pointer"}, {"actions", {{{"type", "pointerUp"}, {"button", 0}}}}});
}

std::string Browser::OpenTab() {
  const std::string handle = Command("POST", "/window/new", {{"type", "tab"}}).at("handle");
  SwitchTab(handle);
  return handle;
}

void Browser::SwitchTab(const std::string& handle) {
  Command("POST", "/window", {{"handle", handle}});
}

std::string Browser::CurrentTab() {
  return Command("GET", "/window");
}

void Browser::CloseTab() {
  Command("DELETE", "/window");
}

void Browser::Resize(unsigned width, unsigned height) {
  Command("POST", "/goog/cdp/execute",
          {{"cmd", "Emulation.setDeviceMetricsOverride"},
           {"params",
            {{"width", width}, {"height", height}, {"deviceScaleFactor", 1}, {"mobile", width < 600}}}});
}

void Browser::PreferColours(const std::string& scheme) {
  Command("POST", "/goog/cdp/execute",
          {{"cmd", "Emulation.setEmulatedMedia"},
           {"params", {{"features", {{{"name", "prefers-color-scheme"}, {"value", scheme}}}}}}});
}

void Browser::Screenshot(const std::filesystem::path& file) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << FromBase64(Command("GET", "/screenshot"));
}

double Browser::BusySeconds() {
  const auto execute = [this](const char* command) {
    return Command("POST", "/goog/cdp/execute", {{"cmd", command}, {"params", Json::object()}});
  };
  if (!counts_work_) execute("Performance.enable");
  counts_work_ = true;
  const Json metrics = execute("Performance.getMetrics").at("metrics");
  for (const Json& metric : metrics) {
    if (metric.at("name") == "TaskDuration") return metric.at("value");
  }
  return 0;
}

std::string Browser::Complaints() {
  std::string text;
  for (const Json& line : Command("POST", "/se/log", {{"type", "browser"}})) {
    if (line.at("level") == "SEVERE") text += line.at("message").get<std::string>() + "\n";
  }
  return text;
}

}  // namespace browser
