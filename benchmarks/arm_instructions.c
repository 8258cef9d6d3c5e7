/*
 * A plug-in for qemu-arm (its interface's version 1) that counts the instructions a program executes. The
 * count is exact and the same on every run; it is printed when the program ends.
 *
 * The interface's header is not packaged with the emulator, so the few entry points are declared here.
 */
#include <inttypes.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

typedef uint64_t PluginId;
struct qemu_plugin_tb; /* a block of code that the emulator has translated */
struct qemu_info_t;

enum { ADD = 0 }; /* the one operation that a block can do without a call */

void qemu_plugin_register_vcpu_tb_trans_cb(PluginId id, void (*translated)(PluginId, struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* block, int operation, void* counter,
                                              uint64_t operand);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);
void qemu_plugin_register_atexit_cb(PluginId id, void (*ended)(PluginId, void*), void* argument);

int qemu_plugin_version = 1;

static uint64_t executed;

static void CountBlock(PluginId id, struct qemu_plugin_tb* block) {
  (void)id;
  qemu_plugin_register_vcpu_tb_exec_inline(block, ADD, &executed, qemu_plugin_tb_n_insns(block));
}

static void Report(PluginId id, void* argument) {
  (void)id;
  (void)argument;
  fprintf(stderr, "%" PRIu64 "\n", executed);
}

int qemu_plugin_install(PluginId id, const struct qemu_info_t* info, int count, char** arguments) {
  (void)info;
  (void)count;
  (void)arguments;
  qemu_plugin_register_vcpu_tb_trans_cb(id, CountBlock);
  qemu_plugin_register_atexit_cb(id, Report, NULL);
  return 0;
}
