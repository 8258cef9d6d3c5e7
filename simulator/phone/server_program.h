// The server's executable: for which processor it is, and how the phone starts it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "simulator/phone/root_directory.h"

namespace simulator {

constexpr const char* SERVER_PATH = "/usr/sbin/phonetestd";

struct ExecutableIdentity {
  std::string path;       // on the PC, absolute
  std::string processor;  // "x86-64", "i386", "ARM"
  std::string sha256;     // in lower-case hexadecimal
};

// Throws std::runtime_error with a sentence if the file is not a program or cannot be read.
ExecutableIdentity IdentifyExecutable(const std::filesystem::path& executable);

// What starts the server in the phone.
struct ServerStart {
  std::string program;
  std::vector<std::string> arguments;  // its name first
};

// Puts the server at SERVER_PATH with all that it takes to run there. `sysroot`: see PutEmulatedServer.
// Throws std::runtime_error with a sentence.
ServerStart PutServer(RootDirectory& root, const std::filesystem::path& server,
                      const std::filesystem::path& sysroot);

}  // namespace simulator
