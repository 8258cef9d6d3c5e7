#include "simulator/phone/shared_libraries.h"

#include <elf.h>
#include <fmt/format.h>

#include <array>
#include <cstring>
#include <deque>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

namespace simulator {
namespace {

namespace fs = std::filesystem;

std::string ReadWhole(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::string content(fs::file_size(path), '\0');
  file.read(content.data(), static_cast<std::streamsize>(content.size()));
  return content;
}

struct ProgramNeeds {
  unsigned machine = 0;
  std::string loader;
  std::vector<std::string> libraries;
  std::vector<std::string> search_paths;  // of its own, before the system's
};

template <typename Record>
Record RecordAt(const std::string& bytes, uint64_t offset) {
  if (offset > bytes.size() || bytes.size() - offset < sizeof(Record)) throw std::out_of_range("cut short");
  Record record;
  memcpy(&record, bytes.data() + offset, sizeof record);
  return record;
}

std::string TextAt(const std::string& bytes, uint64_t offset) {
  if (offset >= bytes.size()) throw std::out_of_range("cut short");
  return bytes.c_str() + offset;
}

std::vector<std::string> SplitPaths(const std::string& paths, const fs::path& origin) {
  std::vector<std::string> split;
  std::istringstream stream(paths);
  for (std::string path; std::getline(stream, path, ':');) {
    for (const std::string_view name : {"$ORIGIN", "${ORIGIN}"}) {
      if (const size_t at = path.find(name); at != std::string::npos) {
        path.replace(at, name.size(), origin.string());
      }
    }
    split.push_back(path);
  }
  return split;
}

// The records of both word sizes have the same fields under different names.
template <typename Header, typename Segment, typename Dynamic>
ProgramNeeds ReadNeeds(const std::string& bytes, const fs::path& origin) {
  ProgramNeeds needs;
  const auto header = RecordAt<Header>(bytes, 0);
  needs.machine = header.e_machine;
  std::vector<Segment> segments;
  for (unsigned index = 0; index < header.e_phnum; ++index) {
    segments.push_back(RecordAt<Segment>(bytes, header.e_phoff + uint64_t{index} * sizeof(Segment)));
  }
  const auto file_offset = [&segments](uint64_t address) -> uint64_t {
    for (const Segment& segment : segments) {
      if (segment.p_type == PT_LOAD && address >= segment.p_vaddr &&
          address < segment.p_vaddr + segment.p_filesz) {
        return address - segment.p_vaddr + segment.p_offset;
      }
    }
    throw std::out_of_range("an address that no segment holds");
  };

  std::vector<Dynamic> entries;
  for (const Segment& segment : segments) {
    if (segment.p_type == PT_INTERP) needs.loader = TextAt(bytes, segment.p_offset);
    if (segment.p_type != PT_DYNAMIC) continue;
    for (uint64_t offset = 0; offset < segment.p_filesz; offset += sizeof(Dynamic)) {
      entries.push_back(RecordAt<Dynamic>(bytes, segment.p_offset + offset));
      if (entries.back().d_tag == DT_NULL) break;
    }
  }
  uint64_t texts = 0;
  for (const Dynamic& entry : entries) {
    if (entry.d_tag == DT_STRTAB) texts = file_offset(entry.d_un.d_ptr);
  }
  for (const Dynamic& entry : entries) {
    if (entry.d_tag == DT_NEEDED) needs.libraries.push_back(TextAt(bytes, texts + entry.d_un.d_val));
    if (entry.d_tag == DT_RUNPATH || entry.d_tag == DT_RPATH) {
      needs.search_paths = SplitPaths(TextAt(bytes, texts + entry.d_un.d_val), origin);
    }
  }
  return needs;
}

ProgramNeeds ReadNeeds(const fs::path& program) {
  const std::string bytes = ReadWhole(program);
  try {
    const auto identity = RecordAt<std::array<unsigned char, EI_NIDENT>>(bytes, 0);
    if (memcmp(identity.data(), ELFMAG, SELFMAG) != 0) throw std::out_of_range("no ELF file");
    const fs::path origin = fs::absolute(program).parent_path();
    return identity[EI_CLASS] == ELFCLASS64 ? ReadNeeds<Elf64_Ehdr, Elf64_Phdr, Elf64_Dyn>(bytes, origin)
                                            : ReadNeeds<Elf32_Ehdr, Elf32_Phdr, Elf32_Dyn>(bytes, origin);
  } catch (const std::out_of_range& failure) {
    throw std::runtime_error(
        fmt::format("{} is no program for this machine ({}).", program.string(), failure.what()));
  }
}

// The directories that Debian's loader searches for a machine's libraries; the last ones are where the
// distribution keeps those of the other word size and the compiler's own.
std::vector<std::string> SystemDirectories(unsigned machine) {
  if (machine == EM_386) {
    return {"/lib/i386-linux-gnu",    "/usr/lib/i386-linux-gnu", "/lib", "/usr/lib", "/lib32",
            "/usr/i686-linux-gnu/lib"};
  }
  return {"/lib/x86_64-linux-gnu", "/usr/lib/x86_64-linux-gnu", "/lib64", "/usr/lib64", "/lib", "/usr/lib"};
}

bool IsLibraryFor(const fs::path& path, unsigned machine) {
  std::ifstream file(path, std::ios::binary);
  Elf64_Ehdr header = {};  // the machine stands at the same place in the 32-bit header
  file.read(reinterpret_cast<char*>(&header), sizeof(Elf32_Ehdr));
  return file.gcount() >= static_cast<std::streamsize>(sizeof(Elf32_Ehdr)) && header.e_machine == machine;
}

NeededFile FindLibrary(const std::string& name, const ProgramNeeds& user) {
  std::vector<std::string> directories = user.search_paths;
  for (std::string& directory : SystemDirectories(user.machine)) directories.push_back(std::move(directory));
  for (const std::string& directory : directories) {
    const fs::path path = fs::path(directory) / name;
    std::error_code ignored;
    if (fs::exists(path, ignored) && IsLibraryFor(path, user.machine)) return {fs::canonical(path), path};
  }
  throw std::runtime_error(
      fmt::format("The shared library {} that the server needs is not on this machine.", name));
}

}  // namespace

std::vector<NeededFile> NeededFiles(const fs::path& program) {
  std::vector<NeededFile> files;
  std::set<std::string> seen;
  std::deque<fs::path> waiting = {program};
  while (!waiting.empty()) {
    const ProgramNeeds needs = ReadNeeds(waiting.front());
    waiting.pop_front();
    if (!needs.loader.empty() && seen.insert(fs::path(needs.loader).filename()).second) {
      files.push_back({fs::canonical(needs.loader), needs.loader});
    }
    for (const std::string& library : needs.libraries) {
      if (!seen.insert(library).second) continue;
      files.push_back(FindLibrary(library, needs));
      waiting.push_back(files.back().source);
    }
  }
  return files;
}

}  // namespace simulator
