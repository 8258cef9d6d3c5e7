#include "simulator/phone/shared_libraries.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gelf.h>
#include <libelf.h>

#include <deque>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

#include "posix/file_descriptor.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;

struct ProgramNeeds {
  unsigned machine = 0;  // EM_NONE: the file is not a program
  std::string loader;
  std::vector<std::string> libraries;
  std::vector<std::string> search_paths;  // of its own, before the system's
};

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

// What the dynamic section says.
void ReadDynamic(Elf* elf, Elf_Scn* section, const GElf_Shdr& header, const fs::path& origin,
                 ProgramNeeds& needs) {
  Elf_Data* data = elf_getdata(section, nullptr);
  GElf_Dyn entry;
  for (int index = 0; data != nullptr && gelf_getdyn(data, index, &entry) != nullptr; ++index) {
    if (entry.d_tag == DT_NULL) return;
    if (entry.d_tag != DT_NEEDED && entry.d_tag != DT_RUNPATH && entry.d_tag != DT_RPATH) continue;
    const char* text = elf_strptr(elf, header.sh_link, entry.d_un.d_val);
    if (text == nullptr) throw std::runtime_error(elf_errmsg(-1));
    if (entry.d_tag == DT_NEEDED) {
      needs.libraries.emplace_back(text);
    } else {
      needs.search_paths = SplitPaths(text, origin);
    }
  }
}

ProgramNeeds ReadNeeds(const fs::path& program) {
  elf_version(EV_CURRENT);
  const posix::FileDescriptor file(open(program.c_str(), O_RDONLY | O_CLOEXEC));
  const std::unique_ptr<Elf, int (*)(Elf*)> elf(elf_begin(file.Get(), ELF_C_READ, nullptr), elf_end);
  ProgramNeeds needs;
  GElf_Ehdr header;
  if (gelf_getehdr(elf.get(), &header) == nullptr) return needs;
  needs.machine = header.e_machine;
  GElf_Phdr segment;
  for (int index = 0; gelf_getphdr(elf.get(), index, &segment) != nullptr; ++index) {
    size_t size = 0;
    const char* bytes = elf_rawfile(elf.get(), &size);
    if (segment.p_type == PT_INTERP && segment.p_offset < size &&
        segment.p_filesz <= size - segment.p_offset) {
      needs.loader.assign(bytes + segment.p_offset, strnlen(bytes + segment.p_offset, segment.p_filesz));
    }
  }
  for (Elf_Scn* section = nullptr; (section = elf_nextscn(elf.get(), section)) != nullptr;) {
    GElf_Shdr description;
    if (gelf_getshdr(section, &description) != nullptr && description.sh_type == SHT_DYNAMIC) {
      ReadDynamic(elf.get(), section, description, fs::absolute(program).parent_path(), needs);
    }
  }
  return needs;
}

// The directories that Debian's loader searches for a machine's libraries; the last ones are where the
// distribution keeps those of the other word size and the compiler's own.
std::vector<std::string> SystemDirectories(unsigned machine, const std::string& sysroot) {
  if (!sysroot.empty()) {
    std::vector<std::string> directories;
    for (const char* directory :
         {"/lib", "/usr/lib", "/lib/arm-linux-gnueabi", "/usr/lib/arm-linux-gnueabi"}) {
      directories.push_back(sysroot + directory);
    }
    return directories;
  }
  if (machine == EM_386) {
    return {"/lib/i386-linux-gnu",    "/usr/lib/i386-linux-gnu", "/lib", "/usr/lib", "/lib32",
            "/usr/i686-linux-gnu/lib"};
  }
  return {"/lib/x86_64-linux-gnu", "/usr/lib/x86_64-linux-gnu", "/lib64", "/usr/lib64", "/lib", "/usr/lib"};
}

NeededFile FindLibrary(const std::string& name, const ProgramNeeds& user, const std::string& sysroot) {
  std::vector<std::string> directories = user.search_paths;
  for (std::string& directory : SystemDirectories(user.machine, sysroot)) {
    directories.push_back(std::move(directory));
  }
  for (const std::string& directory : directories) {
    const fs::path path = fs::path(directory) / name;
    std::error_code ignored;
    if (fs::exists(path, ignored) && ReadNeeds(path).machine == user.machine) {
      return {fs::canonical(path), path};
    }
  }
  throw std::runtime_error(
      fmt::format("The shared library {} that the server needs is not on this machine.", name));
}

fs::path FindLoader(const std::string& loader, const std::string& sysroot) {
  std::error_code missing;
  const fs::path found = fs::canonical(sysroot + loader, missing);
  if (missing)
    throw std::runtime_error(fmt::format("The loader {} is not on this machine.", sysroot + loader));
  return found;
}

}  // namespace

unsigned MachineOf(const fs::path& program) {
  const unsigned machine = ReadNeeds(program).machine;
  if (machine == EM_NONE) {
    throw std::runtime_error(fmt::format("{} is not a program for this machine.", program.string()));
  }
  return machine;
}

std::string LoaderOf(const fs::path& program) {
  return ReadNeeds(program).loader;
}

std::vector<NeededFile> NeededFiles(const fs::path& program, const fs::path& sysroot) {
  std::vector<NeededFile> files;
  std::set<std::string> seen;
  std::deque<fs::path> waiting = {program};
  while (!waiting.empty()) {
    const ProgramNeeds needs = ReadNeeds(waiting.front());
    if (needs.machine == EM_NONE) {
      throw std::runtime_error(
          fmt::format("{} is not a program for this machine.", waiting.front().string()));
    }
    waiting.pop_front();
    if (!needs.loader.empty() && seen.insert(fs::path(needs.loader).filename()).second) {
      files.push_back({FindLoader(needs.loader, sysroot), needs.loader});
    }
    for (const std::string& library : needs.libraries) {
      if (!seen.insert(library).second) continue;
      files.push_back(FindLibrary(library, needs, sysroot));
      waiting.push_back(files.back().source);
    }
  }
  return files;
}

}  // namespace simulator
