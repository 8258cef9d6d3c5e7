#include "tests/phone/flash_test.h"

#include <fcntl.h>
#include <sys/resource.h>

using simulator::FindFlashPartition;
using simulator::FlashPartitions;

Bytes Answer(int32_t status, const Bytes& data) {
  return Words({static_cast<uint32_t>(status)}) + data;
}

std::string AsText(const Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

std::span<const uint8_t> AsBytes(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

std::string Erased(size_t size) {
  return std::string(size, '\xFF');
}

std::string EraseOf(int number) {
  return "shell /home/utils/eraseall -q /dev/mtd/" + std::to_string(number);
}

std::string OpenOf(int number, const std::string& mode) {
  return "open /dev/mtdblock_bbs/" + std::to_string(number) + " " + mode;
}

Lines ReadOf(int number) {
  return {LOOKUP, OpenOf(number, "r")};
}

Lines RewriteOf(int number) {
  return {LOOKUP, EraseOf(number), OpenOf(number, "w")};
}

FlashTest::FlashTest() {
  options.instant_sleeps = true;
  // The C library's allocator asks for what it needs and no more, so that it can be made to fail.
  options.environment = {"MALLOC_TOP_PAD_=0", "MALLOC_MMAP_THRESHOLD_=4096"};
}

std::string FlashTest::Flash(const std::string& name) {
  return Phone().Root().ReadFile(CharacterDevice(FindFlashPartition(name)));
}

void FlashTest::SetFlash(const std::string& name, const std::string& start) {
  const std::string path = Phone().Root().Outside(CharacterDevice(FindFlashPartition(name)));
  const posix::FileDescriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_EQ(write(file.Get(), start.data(), start.size()), static_cast<ssize_t>(start.size()));
}

void FlashTest::SetListed(const std::string& name, bool listed) {
  Phone().With<FlashPartitions>([&](FlashPartitions& flash) { flash.SetListed(name, listed); });
}

Lines FlashTest::FlashLines() {
  return LinesSince(OfKind({JournalKind::Shell}) ||
                    (OfKind({JournalKind::Open}) && Below("/dev/mtdblock_bbs/")));
}

int32_t FlashTest::AskWithoutMemory(const std::string& path, uint32_t code, const Bytes& request) {
  rlimit enough{};
  prlimit(Phone().ServerProcess(), RLIMIT_AS, nullptr, &enough);
  Phone().GetJournal().SetListener(
      [&, server = Phone().ServerProcess()](const simulator::JournalEntry& entry) {
        const rlimit none = {1, enough.rlim_max};
        if (entry.kind == JournalKind::Open && entry.path == path) prlimit(server, RLIMIT_AS, &none, nullptr);
      });
  const int32_t status = AskStatus(code, request);
  Phone().GetJournal().SetListener({});
  prlimit(Phone().ServerProcess(), RLIMIT_AS, &enough, nullptr);
  return status;
}
