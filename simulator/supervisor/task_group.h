// The control group that holds the number of a phone's processes and threads, where the kernel lets us make
// one: for root, outside a container that closes them. The kernel counts before each start, so nothing is
// ahead of it.
#pragma once

#include <cstdint>
#include <string>

namespace simulator {

// Returns the new group's directory, or nothing if none can be made here.
std::string MakeTaskGroup(unsigned most_tasks);
// How many starts the kernel has refused because the group was full.
uint64_t RefusedStarts(const std::string& group);
// Removes the groups of simulators that are gone.
void RemoveDeadTaskGroups();

// These three allocate nothing. An empty path is no group.
// Moves the calling process there; what it starts is there too.
bool EnterTaskGroup(const char* group);
// From here on nothing starts there.
void CloseTaskGroup(const char* group);
// Once its last process is gone.
void RemoveTaskGroup(const char* group);

}  // namespace simulator
