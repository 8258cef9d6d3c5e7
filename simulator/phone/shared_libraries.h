// Which files a dynamically linked program needs beside itself, read from the program and its libraries
// without running any of them.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace simulator {

struct NeededFile {
  std::filesystem::path source;      // on the PC
  std::filesystem::path phone_path;  // where the dynamic loader looks for it
};

// The ELF machine (EM_ARM, ...) that the program is for. Throws std::runtime_error with a sentence if the
// file is not a program.
unsigned MachineOf(const std::filesystem::path& program);
// The dynamic loader's path as the program names it; empty for a static program.
std::string LoaderOf(const std::filesystem::path& program);

// The dynamic loader and all shared libraries; none for a static program. A program for another processor
// finds them below the directory `sysroot`. Throws std::runtime_error with a sentence if the file is not a
// program or a library is missing.
std::vector<NeededFile> NeededFiles(const std::filesystem::path& program,
                                    const std::filesystem::path& sysroot = {});

}  // namespace simulator
