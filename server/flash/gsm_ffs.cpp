#include "server/flash/gsm_ffs.h"

#include <fcntl.h>
#include <unistd.h>

#include "protocol/result_codes.h"
#include "server/base/shell.h"
#include "server/flash/partition.h"

constexpr char GSM_FFS[] = "GSM FFS";

// The partition that is read in chunks. It stays open from the first chunk to the last.
static int32_t ChunkReader = -1;

static void CloseChunkReader() {
  close(ChunkReader);
  ChunkReader = -1;
}

int32_t ReadGsmFfsChunk(uint8_t* out) {
  if (ChunkReader < 0) {
    char path[PATH_SIZE];
    if (FindMtdIndex(path, sizeof path, GSM_FFS) < 0) return FLASH_ERR;
    ChunkReader = open(path, O_RDONLY | O_CLOEXEC);
    if (ChunkReader < 0) return OPEN_FAILED;
  }
  const auto received = static_cast<int32_t>(read(ChunkReader, out, GSM_FFS_CHUNK_SIZE));
  if (received < 0) {
    CloseChunkReader();
    return SHORT_READ;
  }
  if (received < static_cast<int32_t>(GSM_FFS_CHUNK_SIZE)) CloseChunkReader();
  return received;
}

int32_t SaveGsmFfsImage() {
  char path[PATH_SIZE];
  const int32_t number = FindMtdIndex(path, sizeof path, GSM_FFS);
  if (number < 0) return FLASH_ERR;
  EraseMtdPartition(number);
  // 80 KiB from the physical address 0x13F0E000 (81678 pages of 4096), where the phone's memory map has them.
  RunShell("dd if=/dev/mem of=%s bs=4096 skip=81678 count=20", path);
  RunShell("sync");
  return SUCCESS;
}
