// A plugin of the emulator that counts the instructions of a program, each thread's by itself, where
// the program can read them while it runs (Measure.cpp): in a file of the folder that "out=FOLDER"
// names, called by the number of the process. The file is an array of struct Counted.

#define _GNU_SOURCE
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

// What this uses of the emulator's plugin interface, version 1; the distribution has no header of it.
typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
enum qemu_plugin_cb_flags { QEMU_PLUGIN_CB_NO_REGS };
extern size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);
extern void qemu_plugin_register_vcpu_tb_exec_cb(struct qemu_plugin_tb* block,
                                                 void (*executed)(unsigned int, void*),
                                                 enum qemu_plugin_cb_flags flags, void* data);
extern void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                                  void (*translated)(qemu_plugin_id_t,
                                                                     struct qemu_plugin_tb*));

int qemu_plugin_version = 1;

// Of one thread; the first without a number ends the array.
struct Counted
{
    uint64_t thread;
    uint64_t executed;
};
enum { kMostThreads = 4096 };

static struct Counted* g_counted;
static int g_threads;
// Each thread of the program is one of the emulator, with the same number.
static __thread struct Counted* t_own;

static void onFirst(void)
{
    const int place = __atomic_fetch_add(&g_threads, 1, __ATOMIC_RELAXED);
    // Those that find no place share the last, and none of them finds its number there.
    t_own = &g_counted[place < kMostThreads ? place : kMostThreads - 1];
    t_own->thread = (uint64_t)gettid();
}

static void onExecuted(unsigned int processor, void* instructions)
{
    (void)processor;
    if (!t_own)
        onFirst();
    t_own->executed += (uintptr_t)instructions;
}

// Each time that this block is run, all of its instructions are.
static void onTranslated(qemu_plugin_id_t id, struct qemu_plugin_tb* block)
{
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_cb(block, onExecuted, QEMU_PLUGIN_CB_NO_REGS,
                                         (void*)qemu_plugin_tb_n_insns(block));
}

int qemu_plugin_install(qemu_plugin_id_t id, const void* emulator, int count, char** arguments)
{
    static const char kOut[] = "out=";
    char path[4096];
    (void)emulator;
    if (count != 1 || strncmp(arguments[0], kOut, strlen(kOut)) != 0)
        return -1;
    snprintf(path, sizeof path, "%s/%d", arguments[0] + strlen(kOut), (int)getpid());
    const int file = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const size_t size = kMostThreads * sizeof *g_counted;
    if (file < 0 || ftruncate(file, (off_t)size) != 0)
        return -1;
    g_counted = mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (g_counted == MAP_FAILED)
        return -1;
    qemu_plugin_register_vcpu_tb_trans_cb(id, onTranslated);
    return 0;
}
