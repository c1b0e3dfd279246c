// SPDX-License-Identifier: GPL-2.0-only
/*
 * The board of the virtual device: what the product's SoC shows in sysfs and QEMU does not have.
 *
 *   /sys/devices/platform/soc/<controller>/mode      "host" while the controller has its driver,
 *                                                    else "none"; a write binds or unbinds it
 *   /sys/devices/platform/soc/<controller>/mode_log  the last writes: microseconds and value;
 *                                                    writing to it empties it
 *   /sys/class/power_supply/{usb,dc}/online          writable 0 or 1
 *
 * Parameters: controller=NAME=BUS:DEVICE[=NODE],... with BUS "pci" or "platform" and NODE a
 * device-tree node that the controller is given when it has none, so that its root hub has
 * a devspec.
 */
#include <linux/device.h>
#include <linux/ktime.h>
#include <linux/module.h>
#include <linux/of.h>
#include <linux/pci.h>
#include <linux/platform_device.h>
#include <linux/power_supply.h>
#include <linux/slab.h>

#define MAX_CONTROLLERS 4
#define LOG_STAMP 32 /* what a line of the log has besides the value */

static char *controller[MAX_CONTROLLERS];
static int controller_count;
module_param_array(controller, charp, &controller_count, 0444);
MODULE_PARM_DESC(controller, "NAME=BUS:DEVICE[=NODE]");

struct port {
	struct platform_device *pdev;
	struct bus_type *bus;
	char name[40];
	char target[40];
	char node[80];
	struct mutex lock; /* log, and the binding itself */
	char log[2048];
	size_t logged;
};

static struct platform_device *soc;
static struct port ports[MAX_CONTROLLERS];

/* The oldest line makes room for a new one. */
static void forget_oldest(struct port *port)
{
	char *rest = strchr(port->log, '\n');
	size_t dropped = rest ? rest + 1 - port->log : port->logged;

	port->logged -= dropped;
	memmove(port->log, port->log + dropped, port->logged + 1);
}

static void log_write(struct port *port, const char *value, size_t length)
{
	while (port->logged && port->logged + length + LOG_STAMP > sizeof(port->log))
		forget_oldest(port);
	port->logged += scnprintf(port->log + port->logged, sizeof(port->log) - port->logged,
				  "%lld %.*s\n", ktime_to_us(ktime_get()), (int)length, value);
}

static struct device *find_target(struct port *port)
{
	return bus_find_device_by_name(port->bus, NULL, port->target);
}

/* Binds or unbinds the controller that the port stands for. */
static int switch_controller(struct port *port, bool host)
{
	struct device *target = find_target(port);
	int rc = 0;

	if (!target)
		return -ENODEV;
	if (host && !target->driver)
		rc = device_attach(target);
	else if (!host && target->driver)
		device_release_driver(target);
	put_device(target);
	return rc < 0 ? rc : 0;
}

/* Two ports may stand for one controller: the mode is the controller's, not the port's. */
static ssize_t mode_show(struct device *dev, struct device_attribute *attr, char *buf)
{
	struct port *port = dev_get_drvdata(dev);
	struct device *target;
	ssize_t length;

	mutex_lock(&port->lock);
	target = find_target(port);
	length = sysfs_emit(buf, "%s\n", target && target->driver ? "host" : "none");
	put_device(target);
	mutex_unlock(&port->lock);
	return length;
}

static ssize_t mode_store(struct device *dev, struct device_attribute *attr, const char *buf,
			  size_t count)
{
	struct port *port = dev_get_drvdata(dev);
	bool host = sysfs_streq(buf, "host");
	int rc;

	if (!host && !sysfs_streq(buf, "none"))
		return -EINVAL;
	mutex_lock(&port->lock);
	log_write(port, buf, count);
	rc = switch_controller(port, host);
	mutex_unlock(&port->lock);
	return rc ? rc : count;
}
static DEVICE_ATTR_RW(mode);

static ssize_t mode_log_show(struct device *dev, struct device_attribute *attr, char *buf)
{
	struct port *port = dev_get_drvdata(dev);
	ssize_t length;

	mutex_lock(&port->lock);
	length = sysfs_emit(buf, "%s", port->log);
	mutex_unlock(&port->lock);
	return length;
}

static ssize_t mode_log_store(struct device *dev, struct device_attribute *attr, const char *buf,
			      size_t count)
{
	struct port *port = dev_get_drvdata(dev);

	mutex_lock(&port->lock);
	port->log[0] = '\0';
	port->logged = 0;
	mutex_unlock(&port->lock);
	return count;
}
static DEVICE_ATTR_RW(mode_log);

static struct attribute *port_attrs[] = { &dev_attr_mode.attr, &dev_attr_mode_log.attr, NULL };
ATTRIBUTE_GROUPS(port);

/* The driver reads the node when it binds: unbind, set, bind. */
static int give_node(struct port *port)
{
	struct device *target;
	struct device_node *node;
	int rc = -ENODEV;

	if (!port->node[0])
		return 0;
	node = of_find_node_by_path(port->node);
	target = find_target(port);
	if (node && target) {
		device_release_driver(target);
		target->of_node = node;
		rc = device_attach(target);
	}
	put_device(target);
	return rc < 0 ? rc : 0;
}

static int parse_controller(struct port *port, const char *text)
{
	char bus[12];

	if (sscanf(text, "%39[^=]=%11[^:]:%39[^=]=%79s", port->name, bus, port->target,
		   port->node) < 3)
		return -EINVAL;
	port->bus = strcmp(bus, "pci") ? &platform_bus_type : &pci_bus_type;
	return 0;
}

static int add_port(struct port *port, const char *text)
{
	struct platform_device_info info = { .parent = &soc->dev, .id = PLATFORM_DEVID_NONE };
	int rc = parse_controller(port, text);

	if (rc)
		return rc;
	mutex_init(&port->lock);
	rc = give_node(port);
	if (rc)
		return rc;
	info.name = port->name;
	port->pdev = platform_device_register_full(&info);
	if (IS_ERR(port->pdev))
		return PTR_ERR(port->pdev);
	platform_set_drvdata(port->pdev, port);
	return sysfs_create_groups(&port->pdev->dev.kobj, port_groups);
}

static int online[2] = { 1, 1 };
static struct power_supply *supplies[2];
static const enum power_supply_property supply_properties[] = { POWER_SUPPLY_PROP_ONLINE };

static int supply_get(struct power_supply *supply, enum power_supply_property property,
		      union power_supply_propval *value)
{
	value->intval = *(int *)power_supply_get_drvdata(supply);
	return 0;
}

static int supply_set(struct power_supply *supply, enum power_supply_property property,
		      const union power_supply_propval *value)
{
	*(int *)power_supply_get_drvdata(supply) = value->intval;
	power_supply_changed(supply);
	return 0;
}

static int supply_is_writeable(struct power_supply *supply, enum power_supply_property property)
{
	return 1;
}

#define SUPPLY(supply_name, supply_type)				\
	{								\
		.name = supply_name, .type = supply_type,		\
		.properties = supply_properties,			\
		.num_properties = ARRAY_SIZE(supply_properties),	\
		.get_property = supply_get, .set_property = supply_set,	\
		.property_is_writeable = supply_is_writeable,		\
	}
static const struct power_supply_desc supply_descs[] = {
	SUPPLY("usb", POWER_SUPPLY_TYPE_USB),
	SUPPLY("dc", POWER_SUPPLY_TYPE_MAINS),
};

static void board_remove(void)
{
	int i;

	for (i = 0; i < ARRAY_SIZE(supplies); i++)
		if (!IS_ERR_OR_NULL(supplies[i]))
			power_supply_unregister(supplies[i]);
	for (i = 0; i < controller_count; i++) {
		if (IS_ERR_OR_NULL(ports[i].pdev))
			continue;
		sysfs_remove_groups(&ports[i].pdev->dev.kobj, port_groups);
		platform_device_unregister(ports[i].pdev);
	}
	platform_device_unregister(soc);
}

static int board_add(void)
{
	int i, rc;

	for (i = 0; i < controller_count; i++) {
		rc = add_port(&ports[i], controller[i]);
		if (rc) {
			pr_err("vus_board: %s: %d\n", controller[i], rc);
			return rc;
		}
	}
	for (i = 0; i < ARRAY_SIZE(supplies); i++) {
		struct power_supply_config config = { .drv_data = &online[i] };

		supplies[i] = power_supply_register(&soc->dev, &supply_descs[i], &config);
		if (IS_ERR(supplies[i]))
			return PTR_ERR(supplies[i]);
	}
	return 0;
}

static int __init vus_board_init(void)
{
	int rc;

	soc = platform_device_register_simple("soc", PLATFORM_DEVID_NONE, NULL, 0);
	if (IS_ERR(soc))
		return PTR_ERR(soc);
	rc = board_add();
	if (rc)
		board_remove();
	return rc;
}

static void __exit vus_board_exit(void)
{
	board_remove();
}

module_init(vus_board_init);
module_exit(vus_board_exit);
MODULE_DESCRIPTION("Board of the vus virtual device");
MODULE_LICENSE("GPL");
