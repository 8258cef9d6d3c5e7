// A server for the phone's own processor on a PC: the emulator qemu-arm runs it inside the phone's root
// directory. All that it takes stands in one directory of the root. The emulator carries the server's name
// there, which is the name that `killall` and `ps` see.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/phone/root_directory.h"

namespace simulator {

constexpr const char* EMULATOR_PATH = "/lib/arm/emulator/phonetestd";

// Puts emulator, ARM loader, ARM libraries and the executable into the root, and at `server_path` a script
// that starts them as the server. Returns the command line that starts it directly, the emulator's name
// first. The loader and the libraries come from the directory `sysroot`, or, if that is empty, from the ARM
// compiler's. Throws std::runtime_error with a sentence if something is missing on this machine.
std::vector<std::string> PutEmulatedServer(RootDirectory& root, const std::filesystem::path& server,
                                           const std::filesystem::path& sysroot,
                                           const std::string& server_path);

// The server's name and arguments in a command line that starts the emulator so.
std::vector<std::string> EmulatedArguments(const std::vector<std::string>& command_line);

// The ARM shared object that takes the place of `ioctl` (carried_request.c); empty if this build has none.
std::string_view CarriedRequestObject();

}  // namespace simulator
