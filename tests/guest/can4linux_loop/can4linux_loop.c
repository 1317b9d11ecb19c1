// SPDX-License-Identifier: GPL-2.0-only
/*
 * Two character devices, /dev/can0 and /dev/can1, for tests of programs that expect the can4linux driver: what is
 * written to one is read from the other. It keeps to what such programs see of that driver: whole frames are
 * counted, settings go through ioctl, and a controller hears only a started one of the same nominal rate.
 */
#include <linux/fs.h>
#include <linux/kfifo.h>
#include <linux/ktime.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/poll.h>
#include <linux/spinlock.h>
#include <linux/uaccess.h>
#include <linux/wait.h>

struct loop_frame {
	u32 flags;
	u32 fill0;
	u32 id;
	u32 fill1;
	s64 seconds;
	s64 microseconds;
	u32 length;
	u32 fill2;
	u8 data[64];
};
static_assert(sizeof(struct loop_frame) == 104);

struct loop_parameters {
	s32 cmd;
	s32 target;
	u64 val1;
	u64 rest[3];
};
static_assert(sizeof(struct loop_parameters) == 40);

enum { COMMAND = 0, CONFIGURE = 1 };
enum { START = 1, STOP = 2, RESET = 3, HAND_FLAG = 6 };
enum { NOMINAL_RATE = 3, SELF_RECEPTION = 9, DATA_FACTOR = 13 };
#define FLAG_SELF 0x008

struct loop_device {
	struct miscdevice misc;
	wait_queue_head_t readable;
	/* At the pace of a full bus, nearly two seconds for a program that a busy emulator holds up. */
	DECLARE_KFIFO(queue, struct loop_frame, 16384);
	bool running;
	bool echo;
	u64 nominal;
	u64 factor;
	u64 flag;
	unsigned int resets;
};

static struct loop_device devices[2];
static DEFINE_SPINLOCK(devices_lock);

/* Set by a test: the hardware was pulled out. */
static bool gone;
module_param(gone, bool, 0644);

/* Bytes without a meaning that were not zero. */
static unsigned int dirty;
module_param(dirty, uint, 0644);

/* One line a device: running, echo, nominal rate, data factor, flag, resets. */
static int get_state(char *buffer, const struct kernel_param *param)
{
	int length = 0, i;

	spin_lock(&devices_lock);
	for (i = 0; i < 2; i++) {
		struct loop_device *device = &devices[i];

		length += scnprintf(buffer + length, PAGE_SIZE - length, "%d %d %llu %llu %llu %u\n",
				    device->running, device->echo, device->nominal, device->factor,
				    device->flag, device->resets);
	}
	spin_unlock(&devices_lock);
	return length;
}

static const struct kernel_param_ops state_ops = { .get = get_state };
module_param_cb(state, &state_ops, NULL, 0444);

static struct loop_device *device_of(struct file *file)
{
	return container_of(file->private_data, struct loop_device, misc);
}

static void count_dirty(const void *bytes, size_t size)
{
	if (memchr_inv(bytes, 0, size))
		dirty++;
}

static int loop_open(struct inode *inode, struct file *file)
{
	struct loop_device *device = device_of(file);

	if (gone)
		return -ENODEV;
	spin_lock(&devices_lock);
	kfifo_reset(&device->queue);
	spin_unlock(&devices_lock);
	return 0;
}

static int loop_release(struct inode *inode, struct file *file)
{
	struct loop_device *device = device_of(file);

	spin_lock(&devices_lock);
	device->running = false;
	spin_unlock(&devices_lock);
	return 0;
}

static bool take(struct loop_device *device, struct loop_frame *frame)
{
	bool taken;

	spin_lock(&devices_lock);
	taken = kfifo_get(&device->queue, frame);
	spin_unlock(&devices_lock);
	return taken;
}

static ssize_t loop_read(struct file *file, char __user *to, size_t count, loff_t *position)
{
	struct loop_device *device = device_of(file);
	struct loop_frame frame;
	size_t done = 0;

	while (!gone && done < count) {
		if (take(device, &frame)) {
			if (copy_to_user(to + done * sizeof(frame), &frame, sizeof(frame)))
				return -EFAULT;
			done++;
		} else if (done) {
			break;
		} else if (file->f_flags & O_NONBLOCK) {
			return -EAGAIN;
		} else if (wait_event_interruptible(device->readable, gone || !kfifo_is_empty(&device->queue))) {
			return -ERESTARTSYS;
		}
	}
	return done;
}

static int send_frame(struct loop_device *device, struct loop_frame *frame)
{
	struct loop_device *peer = &devices[device == &devices[0]];
	int error = 0;

	count_dirty(&frame->fill0, sizeof(frame->fill0));
	count_dirty(&frame->fill1, sizeof(frame->fill1) + sizeof(frame->seconds) + sizeof(frame->microseconds));
	count_dirty(&frame->fill2, sizeof(frame->fill2));
	frame->seconds = ktime_get_real_ns() / NSEC_PER_SEC;
	frame->microseconds = ktime_get_real_ns() % NSEC_PER_SEC / NSEC_PER_USEC;
	frame->flags &= ~FLAG_SELF;
	spin_lock(&devices_lock);
	if (!device->running || frame->length > 64) {
		error = device->running ? -EINVAL : -ENETDOWN;
	} else {
		if (peer->running && peer->nominal == device->nominal)
			kfifo_put(&peer->queue, *frame);
		if (device->echo) {
			frame->flags |= FLAG_SELF;
			kfifo_put(&device->queue, *frame);
		}
	}
	spin_unlock(&devices_lock);
	wake_up_interruptible(&peer->readable);
	wake_up_interruptible(&device->readable);
	return error;
}

static ssize_t loop_write(struct file *file, const char __user *from, size_t count, loff_t *position)
{
	struct loop_device *device = device_of(file);
	struct loop_frame frame;
	size_t done;
	int error;

	if (gone)
		return -ENODEV;
	for (done = 0; done < count; done++) {
		if (copy_from_user(&frame, from + done * sizeof(frame), sizeof(frame)))
			return -EFAULT;
		error = send_frame(device, &frame);
		if (error)
			return done ? done : error;
	}
	return done;
}

static __poll_t loop_poll(struct file *file, poll_table *table)
{
	struct loop_device *device = device_of(file);

	poll_wait(file, &device->readable, table);
	return EPOLLOUT | (gone || !kfifo_is_empty(&device->queue) ? EPOLLIN | EPOLLRDNORM : 0);
}

static long command_locked(struct loop_device *device, const struct loop_parameters *parameters)
{
	switch (parameters->cmd) {
	case START:
		device->running = true;
		return 0;
	case STOP:
		device->running = false;
		return 0;
	case RESET:
		device->resets++;
		return 0;
	case HAND_FLAG:
		device->flag = parameters->val1;
		return 0;
	}
	return -EINVAL;
}

static long configure_locked(struct loop_device *device, const struct loop_parameters *parameters)
{
	switch (parameters->target) {
	case NOMINAL_RATE:
		if (device->running)
			return -EBUSY;
		if (parameters->val1 == 0)
			return -EINVAL;
		device->nominal = parameters->val1;
		return 0;
	case DATA_FACTOR:
		if (device->running)
			return -EBUSY;
		device->factor = parameters->val1;
		return 0;
	case SELF_RECEPTION:
		if (parameters->cmd != 1)
			return -EINVAL;
		device->echo = parameters->val1;
		return 0;
	}
	return -EINVAL;
}

static long loop_ioctl(struct file *file, unsigned int request, unsigned long argument)
{
	struct loop_device *device = device_of(file);
	struct loop_parameters parameters;
	long result = -ENOTTY;

	if (gone)
		return -ENODEV;
	if (copy_from_user(&parameters, (const void __user *)argument, sizeof(parameters)))
		return -EFAULT;
	count_dirty(parameters.rest, sizeof(parameters.rest));
	spin_lock(&devices_lock);
	if (request == COMMAND)
		result = command_locked(device, &parameters);
	else if (request == CONFIGURE)
		result = configure_locked(device, &parameters);
	spin_unlock(&devices_lock);
	return result;
}

static const struct file_operations loop_operations = {
	.owner = THIS_MODULE,
	.open = loop_open,
	.release = loop_release,
	.read = loop_read,
	.write = loop_write,
	.poll = loop_poll,
	.unlocked_ioctl = loop_ioctl,
};

static int __init loop_init(void)
{
	static const char *const names[] = { "can0", "can1" };
	int i, error;

	for (i = 0; i < 2; i++) {
		struct loop_device *device = &devices[i];

		INIT_KFIFO(device->queue);
		init_waitqueue_head(&device->readable);
		device->misc.minor = MISC_DYNAMIC_MINOR;
		device->misc.name = names[i];
		device->misc.fops = &loop_operations;
		device->misc.mode = 0666;
		error = misc_register(&device->misc);
		if (error) {
			if (i)
				misc_deregister(&devices[0].misc);
			return error;
		}
	}
	return 0;
}

static void __exit loop_exit(void)
{
	misc_deregister(&devices[1].misc);
	misc_deregister(&devices[0].misc);
}

module_init(loop_init);
module_exit(loop_exit);
MODULE_DESCRIPTION("Two character devices that loop CAN frames from one to the other, for tests");
MODULE_LICENSE("GPL");
