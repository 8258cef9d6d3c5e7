// The server as the PC's kernel lists it: its threads and open descriptors.
#pragma once

#include <sys/types.h>

#include <set>
#include <utility>

// What the descriptors above the standard three are open on, by device and inode: equal objects are one.
std::multiset<std::pair<dev_t, ino_t>> OpenObjects(pid_t process);
size_t OpenDescriptors(pid_t process);
size_t Threads(pid_t process);
// Waits until the process has so many threads; false when it still has not after seconds.
bool ComesToThreads(pid_t process, size_t count);
