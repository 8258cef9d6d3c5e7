#include "simulator/models/modem_memory.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <stdexcept>

#include "simulator/phone/root_directory.h"

namespace simulator {
namespace {

constexpr uint64_t MEMORY_END = 0x14000000;  // 64 MiB from 0x10000000
constexpr uint32_t PIECE_SIZE = 1024;

}  // namespace

std::string ModemImage() {
  std::string image;
  uint32_t noise = 1;
  for (uint32_t piece = 0; piece < MODEM_IMAGE_SIZE / PIECE_SIZE; ++piece) {
    image += fmt::format("MODEM FFS {:02}", piece);
    while (image.size() % PIECE_SIZE != 0) {
      noise = noise * 1664525 + 1013904223;  // a linear congruential generator, its low bits left out
      image += static_cast<char>(noise >> 24);
    }
  }
  return image;
}

void ModemMemory::Furnish(RootDirectory& root) {
  root.PutSparseFileIfAbsent("/dev/mem", MEMORY_END);
  const std::string image = ModemImage();
  const posix::FileDescriptor memory(open(root.Outside("/dev/mem").c_str(), O_WRONLY | O_CLOEXEC));
  if (pwrite(memory.Get(), image.data(), image.size(), MODEM_IMAGE_ADDRESS) != MODEM_IMAGE_SIZE) {
    throw std::runtime_error("the modem's image cannot be written to /dev/mem");
  }
}

}  // namespace simulator
