#include "simulator/phone/userland.h"

#include <sys/stat.h>

#include <filesystem>
#include <stdexcept>

namespace simulator {
namespace {

// The tools that busybox plays, by the name of a link to it. Those that would reach for the machine's own
// kernel (modules, network, power) are models' and not here.
constexpr const char* BUSYBOX_TOOLS[] = {
    "[",      "awk",    "basename", "cat",      "chmod",    "chown",   "clear",  "cmp",     "cp",
    "cut",    "date",   "dd",       "df",       "diff",     "dirname", "du",     "env",     "expr",
    "false",  "find",   "free",     "grep",     "gunzip",   "gzip",    "head",   "hexdump", "id",
    "kill",   "less",   "ln",       "ls",       "md5sum",   "mkdir",   "mkfifo", "more",    "mv",
    "od",     "printf", "pwd",      "readlink", "rm",       "rmdir",   "sed",    "seq",     "sha256sum",
    "sleep",  "sort",   "stat",     "stty",     "sync",     "tail",    "tar",    "tee",     "test",
    "time",   "touch",  "tr",       "true",     "truncate", "tty",     "uname",  "uniq",    "unlink",
    "usleep", "vi",     "wc",       "which",    "xargs",    "yes",     "zcat"};

constexpr const char* DIRECTORIES[] = {"/bin",  "/sbin", "/usr/bin", "/usr/sbin", "/etc",      "/dev",
                                       "/home", "/mnt",  "/proc",    "/root",     "/usr/share"};

std::filesystem::path FindBusybox() {
  for (const char* path : {"/usr/bin/busybox", "/bin/busybox"}) {
    if (std::filesystem::exists(path)) return path;
  }
  throw std::runtime_error("A simulated phone needs the program busybox (Debian: busybox-static).");
}

}  // namespace

void PutUserland(RootDirectory& root) {
  for (const char* directory : DIRECTORIES) root.MakeDirectory(directory);
  root.Remove("/tmp");
  root.MakeDirectory("/tmp");
  chmod(root.Outside("/tmp").c_str(), 01777);
  root.PutFileIfAbsent("/etc/passwd", "root:x:0:0:root:/root:/bin/sh\n");
  root.PutFileIfAbsent("/etc/group", "root:x:0:\n");

  root.CopyProgramIn(FindBusybox(), "/bin/busybox");
  // Hard links, since a symbolic one takes an inode: making those was most of a phone's boot.
  for (const char* tool : BUSYBOX_TOOLS) root.PutHardLink(std::string("/bin/") + tool, "/bin/busybox");
  // busybox starts its own tools by this name.
  root.PutLink("/proc/self/exe", "/bin/busybox");
  // busybox's shell would play the tools itself, unseen; dash finds and starts each as the program that it
  // is.
  root.CopyProgramIn("/bin/dash", "/bin/sh");
}

}  // namespace simulator
