// SPDX-License-Identifier: GPL-2.0
/*
 * An image sensor's registers on an I2C adapter of their own, address 0x3c. A write begins with a
 * register's address in two bytes, high byte first; the bytes after it go into the registers from
 * there on, and a read takes from there on.
 *
 * Parameters: "bus" is the adapter's number, "empty_bus" that of another one on which nothing
 * answers; -1 for none.
 *
 * debugfs, "orla_sensor/": "log" tells the latest accesses, the oldest first ("W 3501 18",
 * "R 3501 18"), and forgets them when it is written to; "registers" is the content, a byte for
 * each of 65536 addresses; "silent" set to 1 leaves every transfer unanswered.
 */
#include <linux/debugfs.h>
#include <linux/i2c.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/seq_file.h>

#define SENSOR_ADDRESS 0x3c
#define LOG_SIZE 8192

struct access {
	char kind;
	u16 address;
	u8 value;
};

static int bus = 1;
module_param(bus, int, 0444);
static int empty_bus = -1;
module_param(empty_bus, int, 0444);

static u8 registers[0x10000];
static u16 pointer;
static bool silent;
static struct access accesses[LOG_SIZE];
static unsigned long access_count;
static DEFINE_MUTEX(log_mutex);
static struct dentry *folder;

static void note(char kind, u16 address, u8 value)
{
	mutex_lock(&log_mutex);
	accesses[access_count % LOG_SIZE] = (struct access){ kind, address, value };
	access_count++;
	mutex_unlock(&log_mutex);
}

static void take(const struct i2c_msg *message)
{
	u16 i;

	for (i = 0; i < message->len; i++) {
		if (i == 0) {
			pointer = (pointer & 0xff) | (message->buf[i] << 8);
		} else if (i == 1) {
			pointer = (pointer & 0xff00) | message->buf[i];
		} else {
			registers[pointer] = message->buf[i];
			note('W', pointer, message->buf[i]);
			pointer++;
		}
	}
}

static void give(struct i2c_msg *message)
{
	u16 i;

	for (i = 0; i < message->len; i++) {
		message->buf[i] = registers[pointer];
		note('R', pointer, registers[pointer]);
		pointer++;
	}
}

/* The core of the bus lets one transfer after the other in. */
static int transfer(struct i2c_adapter *adapter, struct i2c_msg *messages, int count)
{
	int i;

	for (i = 0; i < count; i++) {
		if (messages[i].addr != SENSOR_ADDRESS || silent)
			return -ENXIO;
		if (messages[i].flags & I2C_M_RD)
			give(&messages[i]);
		else
			take(&messages[i]);
	}
	return count;
}

static int transfer_nothing(struct i2c_adapter *adapter, struct i2c_msg *messages, int count)
{
	return -ENXIO;
}

static u32 functionality(struct i2c_adapter *adapter)
{
	return I2C_FUNC_I2C | I2C_FUNC_SMBUS_EMUL;
}

static const struct i2c_algorithm algorithm = {
	.master_xfer = transfer,
	.functionality = functionality,
};

static const struct i2c_algorithm empty_algorithm = {
	.master_xfer = transfer_nothing,
	.functionality = functionality,
};

static struct i2c_adapter adapter = {
	.owner = THIS_MODULE,
	.name = "orla sensor",
	.algo = &algorithm,
};

static struct i2c_adapter empty_adapter = {
	.owner = THIS_MODULE,
	.name = "nothing",
	.algo = &empty_algorithm,
};

static int log_show(struct seq_file *file, void *unused)
{
	unsigned long i;

	mutex_lock(&log_mutex);
	i = access_count > LOG_SIZE ? access_count - LOG_SIZE : 0;
	for (; i < access_count; i++) {
		const struct access *a = &accesses[i % LOG_SIZE];

		seq_printf(file, "%c %04x %02x\n", a->kind, a->address, a->value);
	}
	mutex_unlock(&log_mutex);
	return 0;
}

static int log_open(struct inode *inode, struct file *file)
{
	return single_open(file, log_show, NULL);
}

static ssize_t log_write(struct file *file, const char __user *data, size_t size, loff_t *offset)
{
	mutex_lock(&log_mutex);
	access_count = 0;
	mutex_unlock(&log_mutex);
	return size;
}

static const struct file_operations log_operations = {
	.owner = THIS_MODULE,
	.open = log_open,
	.read = seq_read,
	.write = log_write,
	.llseek = seq_lseek,
	.release = single_release,
};

static struct debugfs_blob_wrapper content = { .data = registers, .size = sizeof(registers) };

static int __init sensor_init(void)
{
	int result;

	adapter.nr = bus;
	result = i2c_add_numbered_adapter(&adapter);
	if (result)
		return result;
	if (empty_bus >= 0) {
		empty_adapter.nr = empty_bus;
		result = i2c_add_numbered_adapter(&empty_adapter);
		if (result) {
			i2c_del_adapter(&adapter);
			return result;
		}
	}
	folder = debugfs_create_dir("orla_sensor", NULL);
	debugfs_create_file("log", 0600, folder, NULL, &log_operations);
	debugfs_create_blob("registers", 0400, folder, &content);
	debugfs_create_bool("silent", 0600, folder, &silent);
	return 0;
}

static void __exit sensor_exit(void)
{
	debugfs_remove_recursive(folder);
	if (empty_bus >= 0)
		i2c_del_adapter(&empty_adapter);
	i2c_del_adapter(&adapter);
}

module_init(sensor_init);
module_exit(sensor_exit);
MODULE_DESCRIPTION("Registers of an image sensor behind an adapter of their own");
MODULE_LICENSE("GPL");
