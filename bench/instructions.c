// A plugin for qemu-user that counts the guest's instructions and system calls and prints the former at the end:
//
//     qemu-mips -plugin libinstructions.so -d plugin PROGRAM
//     qemu-mips -plugin libinstructions.so,counts=FILE PROGRAM
//
// With a file, both counts stand in it all the time, as two numbers of 64 bits of this machine (bench/calls.cpp): for
// programs that don't end by themselves.
//
// The few declarations are those of QEMU's plugin interface, version 1; its header is in no package.
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stddef.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

typedef uint64_t plugin_id;
struct qemu_plugin_tb;
enum { add_u64 = 0 };
void qemu_plugin_register_vcpu_tb_trans_cb(plugin_id, void (*)(plugin_id, struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb*, int operation, void*, uint64_t);
size_t qemu_plugin_tb_n_insns(struct qemu_plugin_tb const*);
void qemu_plugin_register_vcpu_syscall_cb(plugin_id, void (*)(plugin_id, unsigned, int64_t, uint64_t, uint64_t, uint64_t,
                                                              uint64_t, uint64_t, uint64_t, uint64_t, uint64_t));
void qemu_plugin_register_atexit_cb(plugin_id, void (*)(plugin_id, void*), void*);
void qemu_plugin_outs(char const*);

__attribute__((visibility("default"))) int qemu_plugin_version = 1;

static struct {
    uint64_t instructions, system_calls;
} own_counts, *counts = &own_counts;

static void translated(plugin_id id, struct qemu_plugin_tb* block) {
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, add_u64, &counts->instructions, qemu_plugin_tb_n_insns(block));
}

static void called(plugin_id id, unsigned vcpu, int64_t number, uint64_t a, uint64_t b, uint64_t c, uint64_t d, uint64_t e,
                   uint64_t f, uint64_t g, uint64_t h) {
    (void)id, (void)vcpu, (void)number, (void)a, (void)b, (void)c, (void)d, (void)e, (void)f, (void)g, (void)h;
    counts->system_calls++;
}

static void ended(plugin_id id, void* unused) {
    (void)id, (void)unused;
    char text[40];
    snprintf(text, sizeof text, "instructions %llu\n", (unsigned long long)counts->instructions);
    qemu_plugin_outs(text);
}

static int map_counts(char const* path) {
    int const fd = open(path, O_RDWR | O_CREAT, 0600);
    if (fd < 0 || ftruncate(fd, sizeof *counts) != 0)
        return -1;
    void* const mapped = mmap(NULL, sizeof *counts, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (mapped == MAP_FAILED)
        return -1;
    counts = mapped;
    return 0;
}

__attribute__((visibility("default"))) int qemu_plugin_install(plugin_id id, void const* info, int argc, char** argv) {
    (void)info;
    for (int i = 0; i < argc; i++)
        if (strncmp(argv[i], "counts=", 7) != 0 || map_counts(argv[i] + 7) != 0)
            return -1;
    qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
    qemu_plugin_register_vcpu_syscall_cb(id, called);
    qemu_plugin_register_atexit_cb(id, ended, NULL);
    return 0;
}
