// What all commands share: a row of the command tables, and the handlers' one shape. A handler is made from
// its request record, the data record that follows the status in its answer, and the routine that does the
// work; it receives the whole request or gives up silently, zeroes the answer, runs the work and sends status
// and data.
#pragma once

#include <cstdint>
#include <type_traits>

#include "server/channel/channel.h"

struct CommandEntry {
  uint32_t code;
  int32_t (*handler)();  // null ends a table; the result is not looked at
};

extern const CommandEntry BasicCommandTable[];
extern const CommandEntry ExtendedCommandTable[];

// Records on the wire, little-endian and without padding.
template <unsigned count>
struct Words {
  int32_t word[count];
};
template <unsigned count>
struct Bytes {
  uint8_t byte[count];
};
struct NoData {};
using Ignored = Words<1>;  // the host always sends a request, even where the command needs none

template <typename Record>
constexpr uint32_t WIRE_SIZE = std::is_empty_v<Record> ? 0 : sizeof(Record);

template <typename Data>
struct Answer {
  int32_t status;
  Data data;
};

constexpr int32_t REQUEST_TIMEOUT_MS = 1000;

// Sends a whole answer. Gives 0, or the negative result of a send that failed.
int32_t SendAnswer(const void* answer, uint32_t size);

// Request, work, answer.
template <typename Request, typename Data, int32_t (*Work)(const Request&, Data&),
          int32_t timeout_ms = REQUEST_TIMEOUT_MS>
int32_t Command() {
  Request request;
  const int32_t received = ChannelReceive(&request, sizeof request, timeout_ms);
  if (received < 0) return received;
  Answer<Data> answer = {};
  answer.status = Work(request, answer.data);
  return SendAnswer(&answer, sizeof answer.status + WIRE_SIZE<Data>);
}

// Request and work, never an answer.
template <typename Request, void (*Work)(const Request&)>
int32_t SilentCommand() {
  Request request;
  const int32_t received = ChannelReceive(&request, sizeof request, REQUEST_TIMEOUT_MS);
  if (received < 0) return received;
  Work(request);
  return 0;
}

// Request, the word 0 as answer, and only then the work; none if the answer could not be sent.
template <typename Request, void (*Work)(const Request&)>
int32_t AnswerFirstCommand() {
  Request request;
  const int32_t received = ChannelReceive(&request, sizeof request, REQUEST_TIMEOUT_MS);
  if (received < 0) return received;
  const int32_t status = 0;
  const int32_t sent = SendAnswer(&status, sizeof status);
  if (sent < 0) return sent;
  Work(request);
  return 0;
}

// For the tables' own checks: every code stands once, and the row that ends the table is the last.
template <unsigned rows>
constexpr bool IsCommandTable(const CommandEntry (&table)[rows]) {
  for (unsigned row = 0; row + 1 < rows; ++row) {
    for (unsigned other = 0; other < row; ++other) {
      if (table[other].code == table[row].code) return false;
    }
  }
  return table[rows - 1].handler == nullptr;
}
