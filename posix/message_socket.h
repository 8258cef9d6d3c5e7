// One message with descriptors over a Unix socket. Nothing here allocates, so a process that was forked from
// a program with threads may use it.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace posix {

constexpr size_t MAX_MESSAGE_DESCRIPTORS = 3;

struct Message {
  ssize_t size;                              // 0 at the connection's end, -1 on failure
  int descriptors[MAX_MESSAGE_DESCRIPTORS];  // the receiver's own copies; -1 where there is none
};

bool SendMessage(int socket, const void* bytes, size_t size, const int* descriptors = nullptr,
                 size_t descriptor_count = 0);
Message ReceiveMessage(int socket, void* bytes, size_t capacity);

}  // namespace posix
