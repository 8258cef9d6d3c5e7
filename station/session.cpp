#include "station/session.h"

#include <fmt/format.h>

#include "station/errors.h"

namespace station {

namespace {

std::chrono::microseconds Between(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration_cast<std::chrono::microseconds>(to - from);
}

std::chrono::milliseconds AnswerTime(const Command& command, const ArgumentTexts& arguments) {
  if (command.waits_for.empty()) return command.answer_time;
  for (const Argument& argument : command.request) {
    if (argument.name != command.waits_for) continue;
    const std::int64_t more = NumberOf(argument, ArgumentText(command.request, argument, arguments));
    return command.answer_time + std::chrono::milliseconds(std::max<std::int64_t>(more, 0));
  }
  return command.answer_time;
}

}  // namespace

Session::Session(Link& link, SessionOptions options) : link_(link), options_(options) {}

Bytes Session::Run(const Command& command, const ArgumentTexts& arguments) {
  Bytes sent;
  AppendWord(sent, command.code);
  const Bytes request = EncodeRequest(command.request, arguments);
  sent.insert(sent.end(), request.begin(), request.end());
  return RunRaw(fmt::format("{} (code 0x{:02X})", command.name, command.code), sent,
                AnswerSize(command.answer), AnswerTime(command, arguments));
}

Bytes Session::RunRaw(const std::string& name, const Bytes& sent, std::size_t answer_size,
                      std::chrono::milliseconds answer_time) {
  const auto wait = options_.answer_time.value_or(answer_time);
  link_.Remark(name);
  link_.DiscardInput();
  const Clock::time_point start = Clock::now();
  exchanges_.push_back({name, sent, Bytes(answer_size), Between(start_, start), {}});
  Exchange& exchange = exchanges_.back();
  // Code and request go out together: the phone drops a code whose four bytes do not arrive at once.
  link_.Send(sent, start + wait);
  const std::size_t received = link_.Receive(exchange.received, start + wait);
  exchange.received.resize(received);
  exchange.took = Between(start, Clock::now());
  if (received == answer_size) return exchange.received;
  if (received == 0) throw LinkFailure(fmt::format("no answer to {} within {} ms", name, wait.count()));
  throw LinkFailure(fmt::format("only {} of {} bytes of the answer to {} came within {} ms", received,
                                answer_size, name, wait.count()));
}

}  // namespace station
