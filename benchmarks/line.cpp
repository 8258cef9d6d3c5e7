// How soon the operator's page shows what happens in a slot while 32 slots test phones, and what that costs:
// from the answer to a question on its way to the server to the card's next state in Chromium. The phones are
// simulated, and each slot ends and begins a step four times a second.
#include <fmt/format.h>
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/processor_time.h"
#include "tests/browser/browser.h"
#include "tests/browser/line_under_test.h"

namespace {

using Clock = std::chrono::system_clock;  // as the page's performance.timeOrigin
using Milliseconds = std::chrono::duration<double, std::milli>;
using browser::Json;

constexpr int SLOTS = 32;
constexpr int QUESTIONS = 8;           // of each phone
constexpr int STEPS_BEFORE_EACH = 10;  // of a quarter of a second
constexpr auto READING = std::chrono::milliseconds(600);

Json Plan() {
  Json steps = Json::array();
  for (int question = 0; question < QUESTIONS; ++question) {
    for (int step = 0; step < STEPS_BEFORE_EACH; ++step)
      steps.push_back({{"name", fmt::format("Wait {}.{}", question, step)}, {"program", {"sleep", "0.25"}}});
    steps.push_back(
        {{"name", fmt::format("Question {}", question)}, {"question", "Does it do what it should?"}});
  }
  return {{"name", "Line benchmark"}, {"line", Json::object()}, {"steps", steps}};
}

// Notes when each card no longer shows its question.
constexpr const char* WATCH = R"(
  window.closings = [];
  for (const card of document.querySelectorAll('.slot')) {
    let asked = false;
    new MutationObserver(() => {
      const asks = card.querySelector('.question') !== null;
      if (asked && !asks) closings.push([card.id.slice(5), performance.timeOrigin + performance.now()]);
      asked = asks;
    }).observe(card, {childList: true, subtree: true});
  })";

// An operator without a browser, who answers each question when a person would have read it.
class Answers {
 public:
  Answers(const std::string& origin, const httplib::Headers& headers) : client_(origin), headers_(headers) {
    client_.set_keep_alive(true);
    client_.set_tcp_nodelay(true);
  }

  // By a stream's thread.
  void See(const std::string& slot, const Json& view) {
    const Json question = view.at("run").is_object() ? view.at("run").at("question") : Json();
    const std::lock_guard lock(mutex_);
    if (view.at("verdict").is_object()) ended_.insert_or_assign(slot, view.at("verdict").at("word"));
    if (!question.is_object() || last_[slot] == question.at("number")) return;
    last_[slot] = question.at("number");
    due_.push_back({slot, question.at("number"), Clock::now() + READING});
  }

  // Until all slots have ended. Returns when each slot's answers were sent.
  std::map<std::string, std::deque<Milliseconds>> Give() {
    std::map<std::string, std::deque<Milliseconds>> sent;
    while (true) {
      std::unique_lock lock(mutex_);
      if (ended_.size() == SLOTS) return sent;
      if (due_.empty() || due_.front().when > Clock::now()) {
        lock.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        continue;
      }
      const Question question = due_.front();
      due_.pop_front();
      lock.unlock();
      sent[question.slot].push_back(Clock::now().time_since_epoch());
      const Json body = {{"question", question.number}, {"reply", "pass"}, {"who", "benchmark"}};
      client_.Post("/slots/" + question.slot + "/answer", headers_, body.dump(), "application/json");
    }
  }

  std::string NotPassed() const {
    std::string text;
    for (const auto& [slot, word] : ended_) {
      if (word != "PASS") text += fmt::format(" {}: {}", slot, word);
    }
    return text;
  }

 private:
  struct Question {
    std::string slot;
    uint64_t number;
    Clock::time_point when;
  };

  httplib::Client client_;
  httplib::Headers headers_;
  std::mutex mutex_;
  std::deque<Question> due_;
  std::map<std::string, uint64_t> last_;
  std::map<std::string, std::string> ended_;
};

// Tells `answers` of each slot's events until it is ended.
void Follow(const std::string& origin, const httplib::Headers& headers, Answers& answers,
            const std::stop_token& stop) {
  httplib::Client client(origin);
  std::string text;
  client.Get("/events", headers, [&](const char* bytes, size_t size) {
    text.append(bytes, size);
    for (size_t end; (end = text.find("\n\n")) != std::string::npos; text.erase(0, end + 2)) {
      constexpr std::string_view BEGINNING = "event: slot-";
      if (!text.starts_with(BEGINNING)) continue;
      const size_t line = text.find('\n');
      const size_t data = line + sizeof "data: ";
      answers.See(text.substr(BEGINNING.size(), line - BEGINNING.size()),
                  Json::parse(text.substr(data, end - data)));
    }
    return !stop.stop_requested();
  });
}

std::vector<double> Delays(const Json& closed, std::map<std::string, std::deque<Milliseconds>> sent) {
  std::vector<double> delays;
  for (const Json& one : closed) {
    std::deque<Milliseconds>& of_slot = sent[one[0]];
    if (of_slot.empty()) continue;
    delays.push_back(one[1].get<double>() - of_slot.front().count());
    of_slot.pop_front();
  }
  std::ranges::sort(delays);
  return delays;
}

int Print() {
  const browser::Folder folder;
  std::ofstream(folder / "plan.json") << Plan().dump();
  const browser::ServedLine line({}, {"--plan", folder / "plan.json", "--simulate", std::to_string(SLOTS),
                                      "--results", folder / "results.db"});
  const std::string origin = line.Address().substr(0, line.Address().find("/?"));
  const auto visit = httplib::Client(origin).Get(line.Address().substr(origin.size()));
  const std::string cookie = visit->get_header_value("Set-Cookie");
  const httplib::Headers headers = {{"Cookie", cookie.substr(0, cookie.find(';'))}, {"Origin", origin}};

  browser::Browser& page = browser::Browser::Shared();
  page.Resize(1920, 1080);
  page.Open(line.Address());
  page.Await(fmt::format("return document.querySelector('#slot-{}') !== null", SLOTS), "the cards");
  page.Run(WATCH);
  Answers answers(origin, headers);
  std::jthread stream([&](const std::stop_token& stop) { Follow(origin, headers, answers, stop); });
  httplib::Client scanner(origin);
  for (int slot = 1; slot <= SLOTS; ++slot) {
    const Json body = {{"text", fmt::format("SN{}", slot)}, {"slot", std::to_string(slot)}};
    scanner.Post("/scan", headers, body.dump(), "application/json");
  }
  page.Await(fmt::format("return document.querySelectorAll('[data-state=running]').length === {}", SLOTS),
             "all slots", Json::array(), std::chrono::seconds(120));
  const double server = ProcessorTime(line.Process());
  const double browser = page.BusySeconds();
  const auto start = Clock::now();
  const auto sent = answers.Give();
  const double length = std::chrono::duration<double>(Clock::now() - start).count();
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const std::vector<double> delays = Delays(page.Run("return window.closings"), sent);
  if (delays.empty()) return 1;
  fmt::print(
      "answer to the card's next state, {} slots: median {:.1f} ms, 99 % {:.1f} ms, worst {:.1f} ms ({} "
      "answers)\n",
      SLOTS, delays[delays.size() / 2], delays[delays.size() * 99 / 100], delays.back(), delays.size());
  fmt::print("share of a core: phonetest {:.1f} %, the page's main thread {:.1f} %\n",
             100 * (ProcessorTime(line.Process()) - server) / length,
             100 * (page.BusySeconds() - browser) / length);
  if (!answers.NotPassed().empty()) fmt::print("not passed:{}\n", answers.NotPassed());
  page.Screenshot(std::filesystem::path(SCREENSHOTS) / "line-benchmark.png");
  return 0;
}

}  // namespace

int main() {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  fmt::print("The line's page\n");
  if (!browser::MissingBrowser().empty()) {
    fmt::print("{}\n", browser::MissingBrowser());
    return 0;
  }
  return Print();
}
