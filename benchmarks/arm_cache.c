/*
 * A plug-in for qemu-arm (its interface's version 1) that counts the instructions a program executes and the
 * accesses that miss caches like the OMAP730's (an ARM926EJ-S): 16 KiB for code and 8 KiB for data, each of 4
 * ways with lines of 32 bytes that are replaced in turn. A write that misses goes past the data cache and
 * allocates no line. The counts are printed when the program ends: instructions, read misses, write misses,
 * code misses.
 *
 * The interface's header is not packaged with the emulator, so the few entry points are declared here.
 */
#include <inttypes.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

typedef uint64_t PluginId;
typedef uint32_t AccessInfo;
struct qemu_plugin_tb; /* a block of code that the emulator has translated */
struct qemu_plugin_insn;
struct qemu_info_t;

enum { NO_REGISTERS = 0 };     /* what a callback reads of the processor */
enum { READS_AND_WRITES = 3 }; /* the accesses that it is called for */

void qemu_plugin_register_vcpu_tb_trans_cb(PluginId id, void (*translated)(PluginId, struct qemu_plugin_tb*));
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);
struct qemu_plugin_insn* qemu_plugin_tb_get_insn(const struct qemu_plugin_tb* block, size_t index);
uint64_t qemu_plugin_insn_vaddr(const struct qemu_plugin_insn* instruction);
void qemu_plugin_register_vcpu_insn_exec_cb(struct qemu_plugin_insn* instruction,
                                            void (*executed)(unsigned, void*), int registers, void* argument);
void qemu_plugin_register_vcpu_mem_cb(struct qemu_plugin_insn* instruction,
                                      void (*accessed)(unsigned, AccessInfo, uint64_t, void*), int registers,
                                      int accesses, void* argument);
bool qemu_plugin_mem_is_store(AccessInfo info);
void qemu_plugin_register_atexit_cb(PluginId id, void (*ended)(PluginId, void*), void* argument);

int qemu_plugin_version = 1;

enum { WAYS = 4, LINE_SIZE = 32, MOST_SETS = 128 };

struct Cache {
  uint32_t sets;
  uint64_t lines[MOST_SETS][WAYS]; /* a line's number plus 1; 0 for none */
  uint32_t next_way[MOST_SETS];    /* to be replaced next */
};
static struct Cache code = {.sets = 16384 / LINE_SIZE / WAYS};
static struct Cache data = {.sets = 8192 / LINE_SIZE / WAYS};

static uint64_t executed, read_misses, write_misses, code_misses;

static bool Misses(struct Cache* cache, uint64_t address, bool allocates) {
  const uint64_t line = address / LINE_SIZE;
  const uint64_t set = line % cache->sets;
  for (int way = 0; way < WAYS; ++way) {
    if (cache->lines[set][way] == line + 1) return false;
  }
  if (allocates) {
    cache->lines[set][cache->next_way[set]] = line + 1;
    cache->next_way[set] = (cache->next_way[set] + 1) % WAYS;
  }
  return true;
}

static void CountAccess(unsigned processor, AccessInfo info, uint64_t address, void* argument) {
  (void)processor;
  (void)argument;
  if (qemu_plugin_mem_is_store(info)) {
    write_misses += Misses(&data, address, false);
  } else {
    read_misses += Misses(&data, address, true);
  }
}

static void CountInstruction(unsigned processor, void* address) {
  (void)processor;
  ++executed;
  code_misses += Misses(&code, (uintptr_t)address, true);
}

static void WatchBlock(PluginId id, struct qemu_plugin_tb* block) {
  (void)id;
  for (size_t index = 0; index < qemu_plugin_tb_n_insns(block); ++index) {
    struct qemu_plugin_insn* instruction = qemu_plugin_tb_get_insn(block, index);
    void* address = (void*)(uintptr_t)qemu_plugin_insn_vaddr(instruction);
    qemu_plugin_register_vcpu_insn_exec_cb(instruction, CountInstruction, NO_REGISTERS, address);
    qemu_plugin_register_vcpu_mem_cb(instruction, CountAccess, NO_REGISTERS, READS_AND_WRITES, NULL);
  }
}

static void Report(PluginId id, void* argument) {
  (void)id;
  (void)argument;
  fprintf(stderr, "%" PRIu64 " %" PRIu64 " %" PRIu64 " %" PRIu64 "\n", executed, read_misses, write_misses,
          code_misses);
}

int qemu_plugin_install(PluginId id, const struct qemu_info_t* info, int count, char** arguments) {
  (void)info;
  (void)count;
  (void)arguments;
  qemu_plugin_register_vcpu_tb_trans_cb(id, WatchBlock);
  qemu_plugin_register_atexit_cb(id, Report, NULL);
  return 0;
}
