#include "simulator/phone/emulator.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "simulator/phone/shared_libraries.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;

constexpr const char* ARM_DIRECTORY = "/lib/arm/";
constexpr const char* EXECUTABLE = "/lib/arm/phonetestd";

// The static one first: it is one file, and starts sooner.
fs::path FindEmulator() {
  const char* search = getenv("PATH");
  for (const char* name : {"qemu-arm-static", "qemu-arm"}) {
    std::istringstream directories(search != nullptr ? search : "/usr/local/bin:/usr/bin:/bin");
    for (std::string directory; std::getline(directories, directory, ':');) {
      const fs::path path = fs::path(directory) / name;
      if (access(path.c_str(), X_OK) == 0) return path;
    }
  }
  throw std::runtime_error(
      "An ARM server needs the emulator qemu-arm (Debian: qemu-user or qemu-user-static).");
}

std::string AskCompilerForSysroot() {
  const std::unique_ptr<FILE, int (*)(FILE*)> answer(popen("arm-linux-gnueabi-gcc -print-sysroot 2>&1", "r"),
                                                     pclose);
  char line[4096];
  if (!answer || fgets(line, sizeof line, answer.get()) == nullptr) return {};
  const std::string text = line;
  return text.starts_with('/') ? text.substr(0, text.find('\n')) : std::string();
}

// Where the loader that the server names lies on this machine.
fs::path FindSysroot(const std::string& loader) {
  // Debian's cross compilers keep the libraries here, outside the directory that they call their sysroot.
  for (const char* directory : {"/usr/arm-linux-gnueabi", "/usr/arm-linux-gnueabihf"}) {
    if (fs::exists(directory + loader)) return directory;
  }
  const std::string asked = AskCompilerForSysroot();
  if (!asked.empty() && fs::exists(asked + loader)) return asked;
  throw std::runtime_error(
      fmt::format("The ARM loader {} is not on this machine (Debian: libc6-armel-cross); --sysroot names "
                  "another directory.",
                  loader));
}

std::string Quoted(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += word + " ";  // none of them needs quotation marks
  return text;
}

}  // namespace

std::vector<std::string> PutEmulatedServer(RootDirectory& root, const fs::path& server,
                                           const fs::path& sysroot, const std::string& server_path) {
  const std::string_view carrier = CarriedRequestObject();
  if (carrier.empty()) {
    throw std::runtime_error(
        "This phonesim was built without the ARM compiler and cannot run an ARM server (Debian: "
        "g++-arm-linux-gnueabi).");
  }
  const std::string loader = LoaderOf(server);
  if (loader.empty()) throw std::runtime_error("A static ARM server cannot be simulated: it has no loader.");

  const std::string directory = ARM_DIRECTORY;
  root.CopyProgramIn(FindEmulator(), EMULATOR_PATH);
  root.CopyIn(server, EXECUTABLE);
  for (const NeededFile& file : NeededFiles(server, sysroot.empty() ? FindSysroot(loader) : sysroot)) {
    root.CopyIn(file.source, directory + file.phone_path.filename().string());
  }
  root.PutFile(directory + "carried_request.so", carrier);

  // The object is named on the loader's command line: what the server starts inherits the environment.
  std::vector<std::string> start = {"phonetestd",     directory + fs::path(loader).filename().string(),
                                    "--library-path", "/lib/arm",
                                    "--argv0",        "phonetestd",
                                    "--preload",      directory + "carried_request.so",
                                    EXECUTABLE};
  root.Remove(server_path);
  root.PutFile(server_path,
               fmt::format("#!/bin/sh\n# Starts the ARM executable {}.\nexec {} {}\"$@\"\n", EXECUTABLE,
                           EMULATOR_PATH, Quoted({start.begin() + 1, start.end()})),
               0755);
  return start;
}

std::vector<std::string> EmulatedArguments(const std::vector<std::string>& command_line) {
  std::vector<std::string> arguments = {"phonetestd"};
  const auto executable = std::find(command_line.begin(), command_line.end(), EXECUTABLE);
  if (executable != command_line.end()) arguments.insert(arguments.end(), executable + 1, command_line.end());
  return arguments;
}

}  // namespace simulator
