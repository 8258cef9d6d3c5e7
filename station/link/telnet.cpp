#include "station/link/telnet.h"

namespace station::telnet {

void AppendEscaped(Bytes& stream, std::span<const std::uint8_t> data) {
  for (const std::uint8_t byte : data) {
    stream.push_back(byte);
    if (byte == ESCAPE) stream.push_back(byte);
  }
}

std::size_t Decoder::Decode(std::span<std::uint8_t> room, const TakeCommand& take) {
  std::size_t size = 0;
  for (const std::uint8_t byte : room) {
    if (Step(byte, take)) room[size++] = byte;
  }
  return size;
}

bool Decoder::Step(std::uint8_t byte, const TakeCommand& take) {
  switch (state_) {
    case State::Data:
      if (byte != ESCAPE) return true;
      state_ = State::Escape;
      return false;
    case State::Escape:
      return StepInEscape(byte);
    case State::Option:
      command_.push_back(byte);
      state_ = State::Data;
      take(command_);
      return false;
    case State::Content:
    case State::ContentEscape:
      StepInContent(byte, take);
      return false;
  }
  return false;
}

bool Decoder::StepInEscape(std::uint8_t byte) {
  command_ = {byte};
  // Every other command is a single byte, and none of them means anything to a serial port.
  state_ = byte == SUBNEGOTIATION         ? State::Content
           : byte >= WILL && byte <= DONT ? State::Option
                                          : State::Data;
  return byte == ESCAPE;
}

void Decoder::StepInContent(std::uint8_t byte, const TakeCommand& take) {
  constexpr std::size_t LONGEST = 64;  // the longest that is understood has 7 bytes
  if (state_ == State::Content && byte == ESCAPE) {
    state_ = State::ContentEscape;
    return;
  }
  const bool end = state_ == State::ContentEscape && byte == SUBNEGOTIATION_END;
  state_ = end ? State::Data : State::Content;
  if (end) {
    take(command_);
  } else if (command_.size() < LONGEST) {
    command_.push_back(byte);
  }
}

}  // namespace station::telnet
