#include "simulator/phone/faults.h"

#include <fmt/format.h>

#include <cstring>
#include <stdexcept>
#include <utility>

#include "simulator/phone/device_model.h"

namespace simulator {
namespace {

// A path of a rule that ends with "*" fits all that begin so.
bool Fits(const std::string& pattern, const std::string& path) {
  if (!pattern.ends_with('*')) return pattern.empty() || pattern == path;
  return path.starts_with(std::string_view(pattern).substr(0, pattern.size() - 1));
}

bool Fits(const FaultRule& rule, FaultCall call, const std::string& path, uint32_t request, bool writes) {
  return rule.call == call && (writes || !rule.cuts_power) && Fits(rule.path, path) &&
         (!rule.request || *rule.request == request);
}

int ErrorNumber(const std::string& name) {
  for (int number = 1; number < 134; ++number) {
    const char* known = strerrorname_np(number);
    if (known != nullptr && name == known) return number;
  }
  throw std::invalid_argument("\"" + name + "\" is not the name of an error such as EIO.");
}

constexpr std::pair<const char*, FaultCall> CALL_NAMES[] = {{"open", FaultCall::Open},
                                                            {"request", FaultCall::Request},
                                                            {"exec", FaultCall::Exec},
                                                            {"sleep", FaultCall::Sleep},
                                                            {"thread", FaultCall::Thread}};

FaultCall CallNamed(const std::string& name) {
  for (const auto& [known, call] : CALL_NAMES) {
    if (name == known) return call;
  }
  throw std::invalid_argument("A fault is for open, request, exec, sleep or thread, not \"" + name + "\".");
}

std::string TextOf(const FaultRule& rule) {
  std::string text;
  for (const auto& [name, call] : CALL_NAMES) {
    if (call == rule.call) text = name;
  }
  if (!rule.path.empty()) text += " " + rule.path;
  if (rule.request) text += fmt::format(" number=0x{:X}", *rule.request);
  if (rule.error != 0) text += fmt::format(" error={}", strerrorname_np(rule.error));
  if (rule.size) text += fmt::format(" size={}", *rule.size);
  if (rule.delay.count() != 0) text += fmt::format(" delay={}", rule.delay.count());
  if (rule.cuts_power) text += " power=cut";
  if (rule.nth != 1) text += fmt::format(" nth={}", rule.nth);
  return text + (rule.times == ALWAYS ? " times=always" : fmt::format(" times={}", rule.times));
}

void ApplySetting(FaultRule& rule, const std::string& name, const std::string& value) {
  if (name == "error") {
    rule.error = ErrorNumber(value);
  } else if (name == "number") {
    rule.request = static_cast<uint32_t>(NumberWord(value));
  } else if (name == "nth") {
    rule.nth = CountWord(value);
  } else if (name == "times") {
    rule.times = value == "always" ? ALWAYS : CountWord(value);
  } else if (name == "size") {
    rule.size = NumberWord(value);
  } else if (name == "power" && value == "cut") {
    rule.cuts_power = true;
  } else if (name == "delay") {
    rule.delay = std::chrono::milliseconds(CountWord(value));
  } else {
    throw std::invalid_argument("A fault has no setting \"" + name + "\".");
  }
}

}  // namespace

void Faults::Add(FaultRule rule) {
  const std::lock_guard lock(mutex_);
  rules_.push_back({std::move(rule)});
}

void Faults::Clear() {
  const std::lock_guard lock(mutex_);
  rules_.clear();
}

std::vector<std::string> Faults::List() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> list;
  for (const Counted& counted : rules_) {
    list.push_back(fmt::format("{} (asked for {} times)", TextOf(counted.rule), counted.seen));
  }
  return list;
}

void Faults::Remove(size_t place) {
  const std::lock_guard lock(mutex_);
  if (place < 1 || place > rules_.size()) throw std::invalid_argument("There is no such fault.");
  rules_.erase(rules_.begin() + static_cast<ptrdiff_t>(place) - 1);
}

void Faults::FailOpen(const std::string& path, int error, int nth, int times) {
  Add({.call = FaultCall::Open, .path = path, .nth = nth, .times = times, .error = error});
}

void Faults::FailRequest(const std::string& path, std::optional<uint32_t> request, int error, int nth,
                         int times) {
  Add({.call = FaultCall::Request,
       .path = path,
       .request = request,
       .nth = nth,
       .times = times,
       .error = error});
}

void Faults::FailExec(const std::string& path, int error) {
  Add({.call = FaultCall::Exec, .path = path, .times = ALWAYS, .error = error});
}

void Faults::ShortenFile(const std::string& path, int64_t size) {
  Add({.call = FaultCall::Open, .path = path, .times = ALWAYS, .size = size});
}

void Faults::LengthenSleeps(std::chrono::milliseconds length) {
  Add({.call = FaultCall::Sleep, .times = ALWAYS, .delay = length});
}

std::optional<FaultRule> Faults::Strike(FaultCall call, const std::string& path, uint32_t request,
                                        bool writes) {
  const std::lock_guard lock(mutex_);
  std::optional<FaultRule> striking;
  for (Counted& counted : rules_) {
    const FaultRule& rule = counted.rule;
    if (!Fits(rule, call, path, request, writes)) continue;
    const int count = ++counted.seen;
    if (!striking && count >= rule.nth && count - rule.nth < rule.times) striking = rule;
  }
  return striking;
}

FaultRule ParseFaultRule(const std::vector<std::string>& words) {
  if (words.empty())
    throw std::invalid_argument("A fault needs a call to fail: open, request, exec, sleep or thread.");
  FaultRule rule;
  rule.call = CallNamed(words[0]);
  for (size_t index = 1; index < words.size(); ++index) {
    const size_t sign = words[index].find('=');
    if (sign != std::string::npos) {
      ApplySetting(rule, words[index].substr(0, sign), words[index].substr(sign + 1));
    } else {
      rule.path = words[index];
    }
  }
  const bool has_path = rule.call != FaultCall::Sleep && rule.call != FaultCall::Thread;
  if (rule.path.empty() && has_path) {
    throw std::invalid_argument("A fault needs the path of the device, file or program.");
  }
  if (rule.error == 0 && !rule.size && rule.delay.count() == 0 && !rule.cuts_power) {
    throw std::invalid_argument("A fault needs what it does: error=EIO, size=BYTES, delay=MS or power=cut.");
  }
  return rule;
}

}  // namespace simulator
