// The phone's processes as the PC sees them: their memory, their descriptors, and which ones they are.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace simulator {

// Return true if all of it was read or written.
bool ReadMemory(pid_t thread, uint64_t address, void* bytes, size_t size);
bool WriteMemory(pid_t thread, uint64_t address, const void* bytes, size_t size);
// A text up to its zero byte. None if it is longer than `limit` or outside the process's memory.
std::optional<std::string> ReadText(pid_t thread, uint64_t address, size_t limit = 1 << 17);
// A list of texts that a null address ends, as a program's arguments are passed.
std::optional<std::vector<std::string>> ReadTextList(pid_t thread, uint64_t address, bool narrow);

// What a descriptor of the process is, and where it reads and writes next.
std::optional<struct stat> StatDescriptor(pid_t thread, int descriptor);
int64_t DescriptorPosition(pid_t thread, int descriptor);
// The process that a thread belongs to.
pid_t ProcessOf(pid_t thread);
pid_t ParentOf(pid_t thread);

// The thread is one that the emulator started for itself in a process that runs the program at `emulator`, a
// path on the PC: it sleeps in it now and then, unlike any program of the phone.
bool IsEmulatorsOwn(pid_t thread, const std::string& emulator);

// The process's root directory is this one.
bool IsProcessIn(const std::string& root, pid_t process);
// Signals it if it is there. Returns an errno value, or 0.
int SignalProcessIn(const std::string& root, pid_t process, int signal);
// Of the whole PC, so that none is missed.
std::vector<pid_t> ProcessesIn(const std::string& root);
// What starts copies of itself as fast as it can would replace each copy that is killed. A stopped one keeps
// its place among those that the kernel lets the phone have, and leaves us its share of the processor.
void StopProcessesIn(const std::string& root);
void ContinueProcessesIn(const std::string& root);
// Kills them all and waits until they are gone, for some seconds at most.
void EndProcessesIn(const std::string& root);
// Those whose program has this name, as `killall` sees it.
std::vector<pid_t> ProcessesNamed(const std::vector<pid_t>& processes, const std::string& name);

// The processes that descend from one, and how many processes and threads they are. Costs as much as these
// are, however many the PC has.
struct Descendants {
  std::vector<pid_t> processes;
  unsigned tasks = 0;
};
// `ancestor` is a subreaper: it gets those whose parents have ended. Ends when it has found more than `most`
// tasks.
Descendants DescendantsOf(pid_t ancestor, unsigned most);
// Those that have this root directory, in the order of their numbers.
std::vector<pid_t> DescendantsIn(const std::string& root, pid_t ancestor);

// One of the kernel's files about a process; empty when that is gone.
std::string ReadProcessFile(pid_t process, const std::string& name);

}  // namespace simulator
