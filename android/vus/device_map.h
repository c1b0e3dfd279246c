// SPDX-License-Identifier: Apache-2.0

// The device-id map, and what a decision needs of it.
//
// The map itself is UsbDevice::deviceid_map, which others fill and read directly under
// UsbDevice::map_mutex. A DeviceMap is all that the daemon does to it: cycles over the USB tree
// whose records become the map, and copies of these. A rebuild collects its records aside and swaps
// them in, so a reader sees the map before or after a rebuild. One that started earlier never
// replaces the result of one that started later, and one whose listing broke off takes no device
// away.
//
// A decision does not depend on the map: it keeps the records that its own cycle found. Whatever
// other threads make of the map meanwhile, it screens and switches off by these.
//
// Any thread may call anything here. No lock is held over a read or write of sysfs, a log line or a
// print.

#pragma once

#include <stdint.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "android/vus/mutex.h"
#include "android/vus/usbdevice.h"
#include "android/vus/usbdevice_cycle.h"

namespace android::vus {

// The records of one device, in map order.
using DeviceRecords = std::vector<usbinterface_custom>;

// Rebuilds the map for a decision, with the texts of create_usb_device_map(), and returns what it
// found of the device: its entries are read in full, those of others may be taken over from the
// cycle before. A cycle that could not see the device for want of descriptors or memory is
// repeated for a while; if the listing itself fails, the map's own records of the device are
// returned.
DeviceRecords refresh_device_map(int32_t id);
// check_vendor_hid(), get_deviceid_data() and update_status() for records at hand.
bool has_vendor_hid(int32_t id, const DeviceRecords& records);
void log_device_data(int32_t id, const DeviceRecords& records);
void authorize(int32_t id, const DeviceRecords& records, int status);

namespace usb {

// How long a cycle waits for attributes that the kernel keeps locked: a decision, and the dump,
// whose reader wants to see them.
inline constexpr std::chrono::milliseconds kDecisionPatience(50);
inline constexpr std::chrono::milliseconds kDumpPatience(1000);

class DeviceMap {
  public:
    explicit DeviceMap(Keeping keeping);
    DeviceMap(const DeviceMap&) = delete;
    DeviceMap& operator=(const DeviceMap&) = delete;

    // See refresh_device_map().
    DeviceRecords refresh(int32_t id) EXCLUDES(mutex_);
    // Reads everything. If the directory cannot be opened, says so on standard error, and the map
    // is then emptied.
    void rebuild() EXCLUDES(mutex_);
    // The same with the dump's patience, in silence, and with the tree written to `fd`.
    void rebuild_and_print(int fd) EXCLUDES(mutex_);

    static DeviceIdMap copy();
    static DeviceRecords records_of(int32_t id);
    static size_t size();
    static void forget(int32_t id);
    // The interface name of the first record of a vendor.
    static std::optional<std::string> interface_of_vendor(uint32_t vendor);

  private:
    struct Start {
        uint64_t ticket;
        std::shared_ptr<const Topology> before;
    };

    Start start() EXCLUDES(mutex_);
    void show(const Start& start, DeviceIdMap records, const Cycle& cycle) EXCLUDES(mutex_);
    bool read_once(int32_t id, DeviceRecords* own, bool* lacked_means) EXCLUDES(mutex_);

    const Keeping keeping_;
    Mutex mutex_;
    // The order in which rebuilds started, and which of them the map and the topology show.
    uint64_t last_ticket_ GUARDED_BY(mutex_) = 0;
    uint64_t shown_ticket_ GUARDED_BY(mutex_) = 0;
    std::shared_ptr<const Topology> topology_ GUARDED_BY(mutex_);
};

// The daemon's one.
DeviceMap& device_map();

}  // namespace usb
}  // namespace android::vus
