// The coding of a Telnet stream (RFC 854): the byte 0xFF begins a command, and stands twice where it is data.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "station/commands/bytes.h"

namespace station::telnet {

constexpr std::uint8_t SUBNEGOTIATION_END = 240;
constexpr std::uint8_t SUBNEGOTIATION = 250;
constexpr std::uint8_t WILL = 251;
constexpr std::uint8_t WONT = 252;
constexpr std::uint8_t DO = 253;
constexpr std::uint8_t DONT = 254;
constexpr std::uint8_t ESCAPE = 255;

// Appends data, or the content of a subnegotiation.
void AppendEscaped(Bytes& stream, std::span<const std::uint8_t> data);

// Takes a received stream apart, in pieces of any size.
class Decoder {
 public:
  // Gets {WILL, option} and its like, and {SUBNEGOTIATION, option, content...} as far as it is of use.
  using TakeCommand = std::function<void(const Bytes& command)>;

  // Leaves the data at the front of the room and returns its size.
  std::size_t Decode(std::span<std::uint8_t> room, const TakeCommand& take);

 private:
  enum class State { Data, Escape, Option, Content, ContentEscape };

  // Returns whether the byte is data.
  bool Step(std::uint8_t byte, const TakeCommand& take);
  bool StepInEscape(std::uint8_t byte);
  void StepInContent(std::uint8_t byte, const TakeCommand& take);

  State state_ = State::Data;
  Bytes command_;
};

}  // namespace station::telnet
