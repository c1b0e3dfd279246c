// SPDX-License-Identifier: Apache-2.0

// The machine's USB tree, as the kernel tells it, and the switches by which it is changed.
//
// The source of truth is sysfs: "/sys/bus/usb/devices" for buses, devices and interfaces, the
// controllers' "mode" files for the host ports, the power supplies for the dock. Nothing read there
// is trusted longer than one decision: create_usb_device_map() walks the whole directory anew, and
// what it found stays in `deviceid_map` until the next walk.
//
// One walk is a cycle: inspect_bus_entry() for every directory entry makes the nodes,
// connect_devices() links them into a tree and fills the map, delete_all_nodes() and empty_list()
// release them. The lists own the nodes; the links of the tree (first_child, next, first_interface,
// parent) only point into them. The daemon's own cycles (usbdevice_cycle.h) go the same way; those
// of a decision take over what has not changed.
//
// Threads:
// - The lists of a cycle are thread_local, so a cycle belongs wholly to the thread that runs it and
//   cycles run side by side: a decision never waits behind another one.
// - Nor does a cycle wait for a device that keeps the kernel from answering: what the kernel reads
//   under that device's lock is given up after a moment (sysfs.h). The primitives and the steps of
//   discovery, called by themselves, wait for as long as the kernel makes them.
// - `deviceid_map` is process-wide and guarded by `map_mutex`, which is held only to copy, insert,
//   erase or swap records, never over a read or write of sysfs, a log line or a print. How rebuilds
//   that overlap settle which of them is shown stands in device_map.h.
// - `usb_host_mutex` is held for the whole of usb_host_reset(), sleeps included, so that two resets
//   never interleave. It is the outermost lock: `map_mutex` and `power_val_mutex` are taken inside
//   it, each alone and briefly.
// - The primitives keep no state and may run on any thread.

#pragma once

#include <pthread.h>
#include <stdint.h>

#include <atomic>
#include <map>
#include <string>
#include <vector>

#include "android/vus/mutex.h"

namespace android::vus {

// The sizes of every fixed text. A text is always terminated within its size.
inline constexpr int32_t kSysfsNameSize = 255;  // entry names and driver names
inline constexpr int32_t kDeviceTextSize = 64;  // texts of a device, category paths
inline constexpr int32_t kBusSpeedSize = 8;
inline constexpr int32_t kSysfsValueSize = 4096;  // values and paths

// What an interface became, beyond its class. The codes are single bits because the service sums
// those of a device; an interface carries one of them.
inline constexpr int32_t kCategoryNone = 0;
inline constexpr int32_t kCategoryNetwork = 1;
inline constexpr int32_t kCategoryTty = 2;
inline constexpr int32_t kCategoryStorage = 4;
inline constexpr int32_t kCategoryVendorHid = 8;

struct usbdevice;
struct usbinterface;

// The links of a circular list. A list is a head of this type; an empty one links to itself.
struct listlinks {
    listlinks* next;
    listlinks* prev;
};

// A bus, that is its root hub: an entry such as usb1.
struct usbbusnode {
    usbbusnode* next;
    usbinterface* first_interface;
    usbdevice* first_child;
    uint32_t busnum;
    uint32_t bDeviceClass;
    uint32_t devnum;
    uint32_t idProduct;
    uint32_t idVendor;
    uint32_t maxchild;
    char speed[kBusSpeedSize];
    uint32_t rx_lanes;
    uint32_t tx_lanes;
    char name[kSysfsNameSize];
    char driver[kSysfsNameSize];  // of the host controller above the root hub
};

// A device: an entry such as 1-2 or 1-2.4.1.
struct usbdevice {
    listlinks list;  // in UsbDevice::device_list
    usbdevice* next;
    usbinterface* first_interface;
    usbdevice* first_child;
    usbdevice* parent;  // the hub it hangs on; null on a root hub and for an orphan
    uint32_t busnum;
    uint32_t parent_portnum;  // 0 on a root hub
    uint32_t portnum;
    uint32_t bConfigurationValue;
    uint32_t bDeviceClass;
    uint32_t bDeviceProtocol;
    uint32_t bDeviceSubClass;
    uint32_t bMaxPacketSize0;
    char bMaxPower[kDeviceTextSize];
    uint32_t bNumConfigurations;
    uint32_t bNumInterfaces;
    uint32_t bcdDevice;
    uint32_t bmAttributes;
    uint32_t configuration;
    uint32_t devnum;
    uint32_t idProduct;
    uint32_t idVendor;
    uint32_t maxchild;
    char manufacturer[kDeviceTextSize];
    char product[kDeviceTextSize];
    char serial[kDeviceTextSize];
    char version[kDeviceTextSize];
    char speed[kDeviceTextSize];
    uint32_t rx_lanes;
    uint32_t tx_lanes;
    char name[kSysfsNameSize];
    char driver[kSysfsNameSize];
};

// An interface: an entry such as 1-2:1.0.
struct usbinterface {
    listlinks list;  // in UsbDevice::interface_list
    usbinterface* next;
    usbdevice* parent;  // null when attached to a bus or to nothing
    uint32_t configuration;
    uint32_t ifnum;
    uint32_t bAlternateSetting;
    uint32_t bInterfaceClass;
    uint32_t bInterfaceNumber;
    uint32_t bInterfaceProtocol;
    uint32_t bInterfaceSubClass;
    uint32_t bNumEndpoints;
    char name[kSysfsNameSize];
    int32_t category;
    char category_path[kDeviceTextSize];
    char driver[kSysfsNameSize];
};

// What the device-id map keeps of an interface and its device after the tree is gone.
struct usbinterface_custom {
    uint32_t bInterfaceClass;
    uint32_t bInterfaceNumber;
    uint32_t bInterfaceProtocol;
    uint32_t bInterfaceSubClass;
    char name[kSysfsNameSize];  // of the interface's entry
    int32_t busnum;
    int32_t devnum;
    uint32_t idVendor;
    uint32_t idProduct;
    char manufacturer[kDeviceTextSize];
    char product[kDeviceTextSize];
    int32_t category;
    char category_path[kDeviceTextSize];  // such as "ttyACM0", "sdcard" or "empty"
};

// Device id (bus number * 1000 + device number) to the device's interfaces. Records of one device
// keep the order in which the directory listed them, because update_status() stops at the first one
// that cannot be written.
using DeviceIdMap = std::multimap<int32_t, usbinterface_custom>;

class UsbDevice {
  public:
    // Sysfs primitives. A failure is an empty text or 0, which callers take for "not there"; none
    // of them throws, and only split() allocates.

    // Reads at most `len` - 1 bytes of `path` and terminates them. Returns their count, newline
    // included; on failure logs, returns 0 and leaves `buf` alone.
    static int32_t read_sysfs_val(const char* path, char* buf, uint64_t len);
    // Writes `len` bytes to `path` in one call. Returns how many were taken; on failure logs and
    // returns 0. A short write counts as a success.
    static int32_t write_sysfs_val(const char* path, const char* value, uint64_t len);
    // Reads a number from an attribute of an entry of the USB devices directory. On failure prints
    // the system's error for the path on standard error and returns 0.
    static int32_t read_sysfs_file_int(const char* entry, const char* attribute, int32_t base);
    // Reads a text as one line. A missing file, or a text that leaves no room for its terminator,
    // gives an empty text, silently.
    static void read_sysfs_file_string(const char* entry, const char* attribute, char* buf,
                                       int32_t len);
    // Cuts `text` at each `delimiter` and drops the newlines of each piece. Empty pieces count,
    // except one after a last delimiter.
    static std::vector<std::string> split(std::string text, char delimiter);

    // Discovery: one node an entry, appended to the calling thread's lists.
    static void inspect_bus_entry(const char* entry);
    static void add_usb_bus(const char* entry);
    static void get_roothub_driver(usbbusnode* bus, const char* entry);
    static void add_usb_device(const char* entry);
    static void add_usb_interface(const char* entry);

    // Links the nodes into the tree, classifies their interfaces, and adds the records of those
    // that belong to a device to `deviceid_map`, which it does not clear.
    static void connect_devices();
    static void assign_dev_to_parent(usbdevice* device);
    static void assign_interface_to_parent(usbdevice* device, usbinterface* interface);

    // Release the nodes: devices and interfaces, then buses. Always called together, in this order,
    // because neither clears the links into the other's nodes.
    static void delete_all_nodes();
    static void empty_list();

    // Printing of a linked tree to a descriptor. Failed writes are ignored.
    static void print_tree(int32_t fd);
    static void print_tree_dev_children(usbdevice* first, int32_t fd);
    // `device` must have a first interface.
    static void print_usbdevice(usbdevice* device, usbinterface* interface, int32_t fd);
    static void print_interfacelist(int32_t fd);

    // Rebuilds `deviceid_map` from sysfs.
    static void create_usb_device_map();
    // Rebuilds it, and writes the tree, the interfaces and the map to `fd`. Waits up to a second
    // for attributes of devices that do not answer.
    static void dump_print_test(int fd);
    // Finds out what an interface became, from its class and its sysfs directory.
    static void populate_category_device(usbinterface* interface);
    // Copies of the device's records, in map order.
    static std::vector<usbinterface_custom> get_deviceid_data(int deviceId);
    static bool check_vendor_hid(int deviceId);
    // Forgets the device if `flag` is false. With `flag` true it changes nothing.
    static void update_deviceid_map(int deviceId, bool flag);
    // Logs every record, and writes it to `fd` unless that is -1.
    static void print_deviceid_map(int fd);
    // Writes "0" (for `status` 0) or "1" to the "authorized" file of each of the device's
    // interfaces, in map order, up to the first one that fails.
    static void update_status(int deviceId, int status);

    // With `value` 0 or less, takes the host controllers out of host mode and back, so that every
    // device is enumerated again; else undocks virtually for `value` milliseconds. A power supply
    // whose value is not a number ends it with the conversion's exception (std::invalid_argument or
    // std::out_of_range), the mutex released: callers handle it.
    static void usb_host_reset(int value);
    static void virtual_undock_dock_event(int delayMs);
    // The "mode" file of the controller that carries a DisplayLink adapter: "empty" if the map
    // holds none, an empty text if the controller cannot be found out.
    static std::string get_displaylink_soc_path();

    // The watcher of the dock's power during a virtual undock.
    static void registersysfsObserverViaThread();
    [[noreturn]] static void* registersysfsObserver(void*);
    [[noreturn]] static void readSysfsChangeEvent();

    // The calling thread's cycle.
    static thread_local usbbusnode* bus_list;      // first bus; the others through next
    static thread_local listlinks device_list;     // head of all usbdevice
    static thread_local listlinks interface_list;  // head of all usbinterface
    static thread_local int32_t tree_indent;       // kept in step with the tree; no output uses it

    static Mutex map_mutex;
    static DeviceIdMap deviceid_map GUARDED_BY(map_mutex);

    static bool verbose_log;         // gates the trace lines; nothing sets it
    static int32_t print_verbosity;  // 2: identity and paths; nothing changes it

    static Mutex usb_host_mutex;
    static const std::vector<std::string> host_mode_paths;  // below kSocDir, in reset order
    static const char* const usb_online_path;
    static const char* const dc_online_path;

    static Mutex power_val_mutex;
    // The last value of the dock's supply.
    static char power_val[kSysfsValueSize] GUARDED_BY(power_val_mutex);
    static std::atomic<bool> exit_poll;  // tells the watcher that the undock is over
    // The last watcher: whoever joins it clears this. The next one's start detaches it.
    static pthread_t sysfs_observer_thread;
};

}  // namespace android::vus
