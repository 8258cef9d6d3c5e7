// Which files a dynamically linked program needs beside itself, read from the program and its libraries
// without running any of them.
#pragma once

#include <filesystem>
#include <vector>

namespace simulator {

struct NeededFile {
  std::filesystem::path source;      // on the PC
  std::filesystem::path phone_path;  // where the dynamic loader looks for it
};

// The dynamic loader and all shared libraries; none for a static program. Throws std::runtime_error with a
// sentence if the file is not a program or a library is missing.
std::vector<NeededFile> NeededFiles(const std::filesystem::path& program);

}  // namespace simulator
