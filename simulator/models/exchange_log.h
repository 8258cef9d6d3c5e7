// The newest commands on the host port with their answers: it reads along what passes and takes it apart by
// the protocol's statement. In a pass-through, where anything may pass, what it makes out means nothing.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "protocol/commands.h"
#include "simulator/phone/journal.h"

namespace simulator {

class ExchangeLog {
 public:
  static constexpr size_t MOST_EXCHANGES = 200;

  explicit ExchangeLog(const Journal& journal) : journal_(journal) {}

  void Take(bool from_phone, std::string_view bytes);
  // The cable was drawn: the next byte begins an exchange.
  void Restart();
  // Those with a number above `since`, as a list of JSON objects: number, time (seconds of the journal),
  // code, name, action, request and answer with their fields, and whether the answer is whole.
  std::string AsJson(int since) const;

 private:
  struct Exchange {
    int number = 0;
    std::chrono::microseconds time{};
    std::chrono::microseconds answered{};
    const protocol::CommandDescription* command = nullptr;  // none: no command has this code
    uint32_t code = 0;
    std::string request;
    std::string answer;
  };

  void TakeRequest(std::string_view bytes);
  void Begin(uint32_t code);
  bool IsAsked() const;
  bool IsAnswered() const;

  const Journal& journal_;
  std::deque<Exchange> exchanges_;
  int last_number_ = 0;
  std::string code_;   // bytes of a code that is not whole yet
  bool open_ = false;  // the last exchange goes on
};

}  // namespace simulator
