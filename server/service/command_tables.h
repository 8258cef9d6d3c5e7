// What all commands share: a row of the command tables, and the one shape of the handlers. A handler is made
// from the command's statement and its work. It receives the whole request or returns silently, zeroes the
// answer, runs the work and sends status and data.
#pragma once

#include <cstdint>
#include <type_traits>

#include "protocol/commands.h"
#include "server/base/wait.h"
#include "server/channel/channel.h"

struct CommandEntry {
  uint32_t code;
  int32_t (*handler)();  // null ends a table; the result is ignored
};

extern const CommandEntry BasicCommandTable[];
extern const CommandEntry ExtendedCommandTable[];

// Sends a whole answer. Returns 0, or the negative result of a send that failed.
int32_t SendAnswer(const void* answer, uint32_t size);

// Receives the request of a command. Returns its size, or the negative result of the channel.
template <uint32_t code>
int32_t ReceiveRequest(typename protocol::Statement<code>::Request& request) {
  using Command = protocol::Statement<code>;
  if constexpr (Command::seconds_before_request > 0) SleepSeconds(Command::seconds_before_request);
  return ChannelReceive(&request, sizeof request, Command::request_timeout_ms);
}

// Runs a work with those of request and data that its command has. A work of another shape does not compile.
template <typename Work, typename Request, typename Data>
auto RunWork(const Request& request, Data& data) {
  constexpr bool has_request = !std::is_same_v<Request, protocol::Ignored>;
  constexpr bool has_data = !std::is_same_v<Data, protocol::NoData>;
  if constexpr (has_request && has_data) {
    return Work{}(request, data);
  } else if constexpr (has_request) {
    return Work{}(request);
  } else if constexpr (has_data) {
    return Work{}(data);
  } else {
    return Work{}();
  }
}

template <typename Data>
struct Answer {
  int32_t status;
  Data data;
};

template <uint32_t code, typename Work>
int32_t HandleCommand() {
  using Command = protocol::Statement<code>;
  typename Command::Request request;
  const int32_t received = ReceiveRequest<code>(request);
  if (received < 0) return received;
  Answer<typename Command::Data> answer = {};
  using Result = decltype(RunWork<Work>(request, answer.data));
  if constexpr (Command::answering == protocol::Answering::AfterWork) {
    static_assert(std::is_same_v<Result, int32_t>, "the work returns the status");
    constexpr uint32_t size = sizeof answer.status + protocol::SizeOf(Command::Data::FIELDS);
    answer.status = RunWork<Work>(request, answer.data);
    return SendAnswer(&answer, size);
  } else {
    static_assert(std::is_void_v<Result>, "there is no one to take a status");
    if constexpr (Command::answering == protocol::Answering::BeforeWork) {
      const int32_t sent = SendAnswer(&answer.status, sizeof answer.status);
      if (sent < 0) return sent;
    }
    RunWork<Work>(request, answer.data);
    return 0;
  }
}

// A row of a command table: a command's name and its work, a lambda without captures.
template <uint32_t code, typename Work>
constexpr CommandEntry Row(Work) {
  return {code, HandleCommand<code, Work>};
}

// Whether a table has each stated command from `first` up to `limit` exactly once, and ends with the empty
// row.
template <unsigned rows>
constexpr bool HasEachCommand(const CommandEntry (&table)[rows], uint32_t first, uint32_t limit) {
  unsigned expected = 0;
  for (const protocol::CommandDescription& command : protocol::COMMANDS) {
    if (command.code < first || command.code >= limit) continue;
    unsigned found = 0;
    for (unsigned row = 0; row + 1 < rows; ++row) found += table[row].code == command.code ? 1 : 0;
    if (found != 1) return false;
    ++expected;
  }
  return expected == rows - 1 && table[rows - 1].handler == nullptr;
}
