#include "station/link/session.h"

#include <fmt/format.h>

#include <utility>

#include "station/commands/errors.h"
#include "station/link/interruption.h"

namespace station {

namespace {

std::chrono::microseconds Between(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration_cast<std::chrono::microseconds>(to - from);
}

std::chrono::milliseconds AnswerTime(const Command& command, const ArgumentValues& arguments) {
  if (command.waits_for.empty()) return command.answer_time;
  for (const Argument& argument : command.request) {
    if (argument.name != command.waits_for) continue;
    const std::int64_t more = NumberOf(argument, ValueOf(command.request, argument, arguments));
    return command.answer_time + std::chrono::milliseconds(std::max<std::int64_t>(more, 0));
  }
  return command.answer_time;
}

std::string DisplayName(const Command& command) {
  return fmt::format("{} (code 0x{:02X})", command.name, command.code);
}

Bytes BytesToSend(const Command& command, const ArgumentValues& arguments) {
  Bytes sent;
  AppendWord(sent, command.code);
  const Bytes request = EncodeRequest(command.request, arguments);
  sent.insert(sent.end(), request.begin(), request.end());
  return sent;
}

}  // namespace

Session::Session(Link& link, SessionOptions options) : link_(link), options_(options) {}

Bytes Session::Run(const Command& command, const ArgumentValues& arguments) {
  return RunRaw(DisplayName(command), BytesToSend(command, arguments), AnswerSize(command.answer),
                AnswerTime(command, arguments));
}

std::optional<Bytes> Session::TryRun(const Command& command, const ArgumentValues& arguments,
                                     std::chrono::milliseconds time) {
  const std::size_t size = AnswerSize(command.answer);
  Bytes received = Converse(DisplayName(command), BytesToSend(command, arguments), size, time);
  if (received.size() != size) return std::nullopt;
  return received;
}

Bytes Session::RunRaw(const std::string& name, const Bytes& sent, std::size_t answer_size,
                      std::chrono::milliseconds answer_time) {
  const auto wait = options_.answer_time.value_or(answer_time);
  Bytes received = Converse(name, sent, answer_size, wait);
  if (received.size() == answer_size) return received;
  if (received.empty()) throw LinkFailure(fmt::format("no answer to {} within {} ms", name, wait.count()));
  throw LinkFailure(fmt::format("only {} of {} bytes of the answer to {} came within {} ms", received.size(),
                                answer_size, name, wait.count()));
}

Transcript Session::TakeTranscript() {
  kept_bytes_ = 0;
  return std::exchange(transcript_, {});
}

Bytes Session::Converse(const std::string& name, const Bytes& sent, std::size_t answer_size,
                        std::chrono::milliseconds time) {
  CheckInterruption();
  AwaitOwedAnswer();
  link_.Remark(name);
  const Clock::time_point start = Clock::now();
  link_.DiscardInput(start + time);
  // Code and request go out together: the phone drops a code whose four bytes do not arrive at once.
  link_.Send(sent, start + time);
  Bytes received(answer_size);
  received.resize(link_.Receive(received, start + time));
  Keep({name, sent, received, Between(start_, start), Between(start, Clock::now())});
  if (received.size() < answer_size && Interrupted()) {
    owed_ = answer_size - received.size();
    owed_until_ = start + time;
    throw Aborted();
  }
  return received;
}

void Session::AwaitOwedAnswer() {
  Bytes rest(std::exchange(owed_, 0));
  link_.Receive(rest, owed_until_);
}

void Session::Keep(Exchange exchange) {
  // A camera picture of the largest size fits.
  constexpr std::size_t MOST_BYTES = 16u << 20;
  const auto size = [](const Exchange& one) {
    return sizeof one + one.name.size() + one.sent.size() + one.received.size();
  };
  ++transcript_.count;
  transcript_.took += exchange.took;
  kept_bytes_ += size(exchange);
  transcript_.kept.push_back(std::move(exchange));
  while (kept_bytes_ > MOST_BYTES && transcript_.kept.size() > 1) {
    kept_bytes_ -= size(transcript_.kept.front());
    transcript_.kept.pop_front();
  }
}

}  // namespace station
