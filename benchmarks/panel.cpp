// What the phone's page costs and how soon it shows a change: from the LCD to the browser's canvas, and the
// processor time of phone and page with viewers.
#include <fcntl.h>
#include <fmt/format.h>
#include <httplib.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/processor_time.h"
#include "posix/file_descriptor.h"
#include "tests/browser/browser.h"
#include "tests/browser/programs.h"

namespace {

using Clock = std::chrono::system_clock;
using browser::Finished;
using browser::Json;
using browser::RunningProgram;
using browser::RunProgram;

constexpr auto MEASURED = std::chrono::seconds(5);
constexpr int CHANGES = 100;

// The command "display" as a station sends it; returns when it is answered.
class Station {
 public:
  explicit Station(const std::string& port) : port_(open(port.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    termios settings = {};
    tcgetattr(port_.Get(), &settings);
    cfmakeraw(&settings);
    tcsetattr(port_.Get(), TCSANOW, &settings);
  }
  void Show(uint32_t colour) {
    const uint32_t words[] = {0x28, colour, colour, 100, 0};
    char answer[4];
    if (write(port_.Get(), words, sizeof words) != sizeof words) posix::ThrowErrno("port");
    for (size_t done = 0; done < sizeof answer;) {
      const ssize_t size = read(port_.Get(), answer + done, sizeof answer - done);
      if (size <= 0) posix::ThrowErrno("port");
      done += static_cast<size_t>(size);
    }
  }

 private:
  posix::FileDescriptor port_;
};

// A page without a browser: takes all topics of a phone until it is stopped.
class Viewers {
 public:
  Viewers(const std::string& origin, const httplib::Headers& cookie, int count) {
    for (int number = 0; number < count; ++number) {
      threads_.emplace_back([this, origin, cookie] {
        httplib::Client client(origin);
        client.Get(
            "/events?topic=shown/phone&topic=shown/lcd&topic=shown/state&topic=shown/exchanges&"
            "topic=shown/journal&topic=shown/sound",
            cookie, [this](const char*, size_t) { return !ending_.load(); });
      });
    }
  }
  ~Viewers() {
    ending_ = true;
  }

 private:
  std::atomic<bool> ending_ = false;
  std::vector<std::jthread> threads_;
};

void PrintDelays(Station& station, browser::Browser& page) {
  page.Run(
      "window.drawn = []; const lcd = document.querySelector('#lcd');"
      "lcd.addEventListener('drawn', () => drawn.push(performance.timeOrigin + performance.now()))");
  std::vector<double> delays;
  for (int number = 0; number < CHANGES; ++number) {
    page.Run("window.drawn = []");
    station.Show(number % 2 == 0 ? 0xF800 : 0x001F);
    const std::chrono::duration<double, std::milli> changed = Clock::now().time_since_epoch();
    const double drawn = page.Await("return window.drawn.at(-1) ?? 0", "a picture");
    delays.push_back(drawn - changed.count());
    std::this_thread::sleep_for(std::chrono::milliseconds(50 + number % 15));
  }
  std::ranges::sort(delays);
  fmt::print("LCD change to canvas: median {:.1f} ms, 99 % {:.1f} ms (from the answer to the command)\n",
             delays[delays.size() / 2], delays[delays.size() * 99 / 100]);
}

// Both processes' share of a core, in percent.
struct Load {
  double phone, page;
};
Load Measure(int phone, int page, const std::function<void()>& work) {
  const Load before = {ProcessorTime(phone), ProcessorTime(page)};
  const auto start = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - start < MEASURED) work();
  const std::chrono::duration<double> length = std::chrono::steady_clock::now() - start;
  return {(ProcessorTime(phone) - before.phone) / length.count() * 100,
          (ProcessorTime(page) - before.page) / length.count() * 100};
}

Finished Phonesim(std::vector<std::string> words) {
  words.insert(words.begin(), {PHONESIM_PROGRAM, "--name", "shown"});
  return RunProgram(words);
}

int Print() {
  RunningProgram panel({PHONESIM_PROGRAM, "--name", "shown", "panel"});
  const std::string address = panel.AwaitLine("panel: ");
  const std::string origin = address.substr(0, address.find("/phone/"));
  const Json status = Json::parse(Phonesim({"status", "--json"}).output).at(0);
  Station station(status.at("host_port"));
  const int phone = status.at("simulator_process");

  if (browser::MissingBrowser().empty()) {
    browser::Browser& page = browser::Browser::Shared();
    page.Open(address);
    page.Await("return document.querySelector('#clock').textContent !== ''", "the page");
    PrintDelays(station, page);
    page.Open("about:blank");
  } else {
    fmt::print("LCD change to canvas: {}\n", browser::MissingBrowser());
  }

  const auto visit = httplib::Client(origin).Get(address.substr(origin.size()));
  const std::string cookie = visit->get_header_value("Set-Cookie");
  const httplib::Headers headers = {{"Cookie", cookie.substr(0, cookie.find(';'))}};
  fmt::print("{:<44}{:>12}{:>12}\n", "share of a core, %", "phone", "page");
  const auto rest = [] { std::this_thread::sleep_for(MEASURED); };
  const auto show = [&station, colour = uint32_t{0}]() mutable {
    station.Show(colour ^= 0xF81F);
    std::this_thread::sleep_for(std::chrono::milliseconds(40));
  };
  const std::string port = status.at("host_port");
  for (const bool busy : {false, true}) {
    if (busy) RunProgram({PHONETEST_PROGRAM, "--port", port, "tone", "start", "1000"});
    for (const int count : {0, 1, 10}) {
      const Viewers viewers(origin, headers, count);
      std::this_thread::sleep_for(std::chrono::seconds(3));  // those of before have gone
      const Load load = busy ? Measure(phone, panel.Process(), show) : Measure(phone, panel.Process(), rest);
      fmt::print("{:<44}{:>12.2f}{:>12.2f}\n",
                 fmt::format("{}, {} viewers", busy ? "tone and 25 pictures a second" : "idle", count),
                 load.phone, load.page);
    }
  }
  return 0;
}

}  // namespace

int main() {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  Phonesim({"--no-waiting", "start"});
  const int failed = Print();
  Phonesim({"stop"});
  return failed;
}
