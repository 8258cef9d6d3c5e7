#include "station/line/demonstration.h"

#include <fmt/format.h>

#include <condition_variable>

namespace station {

namespace {

constexpr const char* PLAYED = "demonstration";
constexpr std::chrono::milliseconds TURN{200};
// How long a person takes to read a question, to read a verdict, and to put in the next phone.
constexpr std::chrono::milliseconds READING{900};
constexpr std::chrono::milliseconds VERDICT_STANDS{5000};

// The digit that makes the sum of all digits, every second one doubled, a multiple of ten.
char CheckDigit(const std::string& digits) {
  int sum = 0;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    int digit = digits[digits.size() - 1 - i] - '0';
    if (i % 2 == 0) digit *= 2;
    sum += digit > 9 ? digit - 9 : digit;
  }
  return static_cast<char>('0' + (10 - sum % 10) % 10);
}

}  // namespace

Demonstration::Demonstration(Line& line)
    : line_(line), thread_([this](const std::stop_token& stop) { Play(stop); }) {}

void Demonstration::Play(const std::stop_token& stop) {
  std::mutex mutex;
  std::condition_variable_any never;
  while (!stop.stop_requested()) {
    for (LineSlot& slot : line_.Slots()) Serve(slot, Clock::now());
    std::unique_lock lock(mutex);
    never.wait_for(lock, stop, TURN, [] { return false; });
  }
}

void Demonstration::Serve(LineSlot& slot, Clock::time_point now) {
  const nlohmann::ordered_json view = slot.View();
  const std::string name = slot.Order().name;
  const bool asks = view["run"].is_object() && view["run"]["question"].is_object();
  std::string state = view["state"].get<std::string>() + view["wants"].dump();
  if (asks) state += view["run"]["question"]["number"].dump();
  if (states_[name] != state) {
    states_[name] = state;
    seen_[name] = now;
  }
  const auto stood = now - seen_[name];
  if (asks && stood >= READING) {
    // This operator sees a fault now and then.
    constexpr std::uint64_t SHARE = 60;
    const std::uint64_t number = view["run"]["question"]["number"];
    slot.AnswerQuestion(number, number % SHARE == 0 ? Answer::Reply::Fail : Answer::Reply::Pass, PLAYED);
  } else if (view["wants"].is_object() && stood >= READING) {
    Scan(slot, view);
  } else if (slot.GetState() == LineSlot::State::Finished && stood >= VERDICT_STANDS) {
    Scan(slot, view);
  }
}

void Demonstration::Scan(LineSlot& slot, const nlohmann::ordered_json& view) {
  const std::string wanted =
      view["wants"].is_object() ? view["wants"]["name"].get<std::string>() : "serial number";
  const std::string chosen = line_.Scan(slot.Order().barcode, "", PLAYED).slot;
  line_.Scan(NextValue(wanted), chosen, PLAYED);
}

std::string Demonstration::NextValue(const std::string& name) {
  if (name == "serial number") return fmt::format("SN{:07}", ++phones_);
  if (name == "address") return fmt::format("00:02:5B:0A:{:02X}:{:02X}", phones_ / 256 % 256, phones_ % 256);
  if (name != "identity") return "by demonstration";
  std::string digits = fmt::format("00499901{:06}", phones_ % 1'000'000);
  digits += CheckDigit(digits);
  return digits;
}

}  // namespace station
