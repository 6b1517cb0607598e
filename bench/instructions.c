// A plugin for qemu-user that counts the guest's instructions and prints their number at the end:
//
//     qemu-mips -plugin libinstructions.so -d plugin PROGRAM
//
// The few declarations are those of QEMU's plugin interface, version 1; its header is in no package.
#include <stdint.h>
#include <stdio.h>
#include <stddef.h>

typedef uint64_t plugin_id;
struct qemu_plugin_tb;
enum { add_u64 = 0 };
void qemu_plugin_register_vcpu_tb_trans_cb(plugin_id, void (*)(plugin_id, struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb*, int operation, void*, uint64_t);
size_t qemu_plugin_tb_n_insns(struct qemu_plugin_tb const*);
void qemu_plugin_register_atexit_cb(plugin_id, void (*)(plugin_id, void*), void*);
void qemu_plugin_outs(char const*);

__attribute__((visibility("default"))) int qemu_plugin_version = 1;

static uint64_t executed;

static void translated(plugin_id id, struct qemu_plugin_tb* block) {
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, add_u64, &executed, qemu_plugin_tb_n_insns(block));
}

static void ended(plugin_id id, void* unused) {
    (void)id, (void)unused;
    char text[40];
    snprintf(text, sizeof text, "instructions %llu\n", (unsigned long long)executed);
    qemu_plugin_outs(text);
}

__attribute__((visibility("default"))) int qemu_plugin_install(plugin_id id, void const* info, int argc, char** argv) {
    (void)info, (void)argc, (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
    qemu_plugin_register_atexit_cb(id, ended, NULL);
    return 0;
}
