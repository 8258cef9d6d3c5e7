// The messages between the simulator and a phone's guardian, over a socket pair that keeps message bounds.
// The guardian is forked from a program with threads, so its side allocates nothing.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace simulator {

constexpr size_t MAX_LINK_DESCRIPTORS = 3;
constexpr size_t MAX_LINK_MESSAGE = 65536;

enum class LinkKind : uint32_t {
  Start,    // to the guardian: a StartHeader, then the texts; descriptors: standard input, output, error
  Kill,     // to it: every process of the phone ends now
  Started,  // from it: number, process; descriptor: the listener for its system calls
  Refused,  // the phone's process could not be made: number, step, error
  Ended,    // number, status as waitpid gives it
  Killed,   // none is left
};

// How far the start of a phone's process came.
enum class StartStep : uint32_t { Fork, UserNamespace, ChangeRoot, Filter };

struct StartHeader {
  LinkKind kind;
  uint32_t number;     // names this start in all messages
  uint32_t arguments;  // so many texts: first the program's path, then its arguments, its name first
  uint32_t environment;
  uint32_t controls_terminal;  // its standard input becomes its controlling terminal
};

struct LinkReport {
  LinkKind kind;
  uint32_t number;
  int32_t process;
  int32_t status;
  StartStep step;
  int32_t error;
};

struct LinkMessage {
  ssize_t size;  // 0 at the link's end, -1 on failure
  int descriptors[MAX_LINK_DESCRIPTORS];
};

bool SendMessage(int link, const void* bytes, size_t size, const int* descriptors, size_t descriptor_count);
LinkMessage ReceiveMessage(int link, void* bytes, size_t capacity);

}  // namespace simulator
