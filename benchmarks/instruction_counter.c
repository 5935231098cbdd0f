// A plugin of the emulator that counts the instructions of one program and writes the number,
// when that ends, to the file that "out=FILE" names. instructions.py builds and loads it.

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

// What this uses of the emulator's plugin interface, version 1; the distribution has no header of it.
typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };
extern size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);
extern void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* block, enum qemu_plugin_op what,
                                                     void* counter, uint64_t amount);
extern void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                                  void (*translated)(qemu_plugin_id_t,
                                                                     struct qemu_plugin_tb*));
extern void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, void (*ended)(qemu_plugin_id_t, void*),
                                           void* data);

int qemu_plugin_version = 1;

static uint64_t g_executed;
static char g_path[4096];

// Each time that this block is run, all of its instructions are.
static void onTranslated(qemu_plugin_id_t id, struct qemu_plugin_tb* block)
{
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, QEMU_PLUGIN_INLINE_ADD_U64, &g_executed,
                                             qemu_plugin_tb_n_insns(block));
}

static void onEnd(qemu_plugin_id_t id, void* data)
{
    (void)id;
    (void)data;
    FILE* const file = fopen(g_path, "w");
    if (!file)
        return;
    fprintf(file, "%" PRIu64 "\n", g_executed);
    fclose(file);
}

int qemu_plugin_install(qemu_plugin_id_t id, const void* emulator, int count, char** arguments)
{
    static const char kOut[] = "out=";
    (void)emulator;
    if (count != 1 || strncmp(arguments[0], kOut, strlen(kOut)) != 0 ||
        strlen(arguments[0]) - strlen(kOut) >= sizeof g_path)
        return -1;
    strcpy(g_path, arguments[0] + strlen(kOut));
    qemu_plugin_register_vcpu_tb_trans_cb(id, onTranslated);
    qemu_plugin_register_atexit_cb(id, onEnd, NULL);
    return 0;
}
