// Commands of the command service itself.
#pragma once

#include "protocol/statement.h"

namespace protocol {

constexpr uint32_t PING = 0x00;
template <>
struct Statement<PING> : Answered<Ignored> {
  static constexpr char name[] = "ping";
  static constexpr char action[] = "Does nothing: answers 1, the sign that the test server is running.";
  static constexpr Field first_word = {Form::Alive, 4, "alive", "always 1"};
};

constexpr uint32_t NO_OPERATION = 0x01;
template <>
struct Statement<NO_OPERATION> : NeverAnswered<Ignored> {
  static constexpr char name[] = "no operation";
  static constexpr char action[] = "Does nothing, and answers nothing.";
};

struct PauseRequest {
  uint32_t seconds;
  static constexpr Field FIELDS[] = {
      Number("seconds", "how long the phone keeps the port closed", {0, 3600, "s"})};
};
static_assert(FieldsFill<PauseRequest>(4));

constexpr uint32_t PAUSE_LINK = 0x3C;
template <>
struct Statement<PAUSE_LINK> : AnsweredFirst<PauseRequest> {
  static constexpr char name[] = "pause link";
  static constexpr char action[] =
      "Answers, closes its end of the serial port, sleeps, opens and configures the port again. What arrives "
      "meanwhile is lost.";
};

}  // namespace protocol
