#include "simulator/phone/server_program.h"

#include <elf.h>
#include <fmt/format.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "posix/sha256.h"
#include "simulator/phone/emulator.h"
#include "simulator/phone/shared_libraries.h"

namespace simulator {
namespace {

std::string ContentOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(fmt::format("{} cannot be read.", path.string()));
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string ProcessorName(unsigned machine) {
  switch (machine) {
    case EM_X86_64:
      return "x86-64";
    case EM_386:
      return "i386";
    case EM_ARM:
      return "ARM";
    default:
      return fmt::format("ELF machine {}", machine);
  }
}

}  // namespace

ExecutableIdentity IdentifyExecutable(const std::filesystem::path& executable) {
  const std::filesystem::path path = std::filesystem::canonical(executable);
  return {path, ProcessorName(MachineOf(path)), posix::Sha256(ContentOf(path))};
}

ServerStart PutServer(RootDirectory& root, const std::filesystem::path& server,
                      const std::filesystem::path& sysroot) {
  if (MachineOf(server) == EM_ARM) {
    return {EMULATOR_PATH, PutEmulatedServer(root, server, sysroot, SERVER_PATH)};
  }
  root.CopyProgramIn(server, SERVER_PATH);
  return {SERVER_PATH, {"phonetestd"}};
}

}  // namespace simulator
