#include "simulator/phone/server_program.h"

#include <elf.h>
#include <fmt/format.h>
#include <nettle/sha2.h>

#include <fstream>
#include <stdexcept>

#include "simulator/phone/emulator.h"
#include "simulator/phone/shared_libraries.h"

namespace simulator {
namespace {

std::string Sha256(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(fmt::format("{} cannot be read.", path.string()));
  sha256_ctx state;
  sha256_init(&state);
  char bytes[1 << 16];
  while (file.read(bytes, sizeof bytes), file.gcount() > 0) {
    sha256_update(&state, static_cast<size_t>(file.gcount()), reinterpret_cast<const uint8_t*>(bytes));
  }
  uint8_t digest[SHA256_DIGEST_SIZE];
  sha256_digest(&state, sizeof digest, digest);
  std::string text;
  for (const uint8_t byte : digest) text += fmt::format("{:02x}", byte);
  return text;
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
  return {path, ProcessorName(MachineOf(path)), Sha256(path)};
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
