#include "simulator/supervisor/do_nothing_program.h"

#include <elf.h>

#include <cstddef>
#include <cstdint>

namespace simulator {
namespace {

constexpr uint64_t LOAD_ADDRESS = 0x400000;

struct Program {
  Elf64_Ehdr header;
  Elf64_Phdr segment;
  uint8_t code[9];
} __attribute__((packed));

constexpr Program PROGRAM = {
    {{ELFMAG0, ELFMAG1, ELFMAG2, ELFMAG3, ELFCLASS64, ELFDATA2LSB, EV_CURRENT, ELFOSABI_SYSV, 0, 0, 0, 0, 0,
      0, 0, 0},
     ET_EXEC,
     EM_X86_64,
     EV_CURRENT,
     LOAD_ADDRESS + offsetof(Program, code),
     offsetof(Program, segment),
     0,
     0,
     sizeof(Elf64_Ehdr),
     sizeof(Elf64_Phdr),
     1,
     0,
     0,
     0},
    {PT_LOAD, PF_R | PF_X, 0, LOAD_ADDRESS, LOAD_ADDRESS, sizeof(Program), sizeof(Program), 0x1000},
    {0x31, 0xFF,           // xor edi, edi
     0xB8, 0x3C, 0, 0, 0,  // mov eax, 60 (exit)
     0x0F, 0x05},          // syscall
};

}  // namespace

const std::string_view DO_NOTHING_PROGRAM(reinterpret_cast<const char*>(&PROGRAM), sizeof PROGRAM);

}  // namespace simulator
