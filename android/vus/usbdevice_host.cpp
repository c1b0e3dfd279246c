// SPDX-License-Identifier: Apache-2.0

// The host ports and the dock: controllers taken out of host mode and back, the virtual undock, and
// the watcher of the dock's power.

#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <optional>
#include <string>
#include <thread>

#include <cutils/properties.h>

#include "android/vus/device_map.h"
#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"
#include "android/vus/usbdevice_internal.h"

namespace android::vus {

using std::chrono::milliseconds;

Mutex UsbDevice::usb_host_mutex;
const std::vector<std::string> UsbDevice::host_mode_paths = {kHighSpeedModeFile,
                                                             kSuperSpeedModeFile};
const char* const UsbDevice::usb_online_path = kUsbOnlineFile;
const char* const UsbDevice::dc_online_path = kDcOnlineFile;
Mutex UsbDevice::power_val_mutex;
char UsbDevice::power_val[kSysfsValueSize];
std::atomic<bool> UsbDevice::exit_poll = false;
pthread_t UsbDevice::sysfs_observer_thread;

namespace {

constexpr uint32_t kDisplayLinkVendor = 6121;  // 0x17e9
constexpr char kNoDisplayLink[] = "empty";
constexpr char kHostMode[] = "host";
constexpr char kNoMode[] = "none";
constexpr milliseconds kModeSettleTime(100);
constexpr milliseconds kPowerPollInterval(400);

void sleep_for(milliseconds time) {
    std::this_thread::sleep_for(time);
}

bool exists(const char* path) {
    struct stat status;
    return stat(path, &status) == 0;
}

// The value of a sysfs file, empty if it cannot be read.
std::string read_value(const char* path) {
    char value[kSysfsValueSize] = {};
    UsbDevice::read_sysfs_val(path, value, sizeof(value));
    return value;
}

bool is_in_host_mode(const std::string& path) {
    return exists(path.c_str()) && read_value(path.c_str()).compare(0, 4, kHostMode) == 0;
}

void write_mode(const std::string& path, const char* mode) {
    UsbDevice::write_sysfs_val(path.c_str(), mode, strlen(mode));
}

// A controller that is absent or in another mode is left alone.
void reset_controller(const std::string& path) {
    if (!is_in_host_mode(path)) return;
    write_mode(path, kNoMode);
    LOG(INFO) << "usb_host_reset mode set to none for syspath: " << path;
    sleep_for(kModeSettleTime);
    LOG(INFO) << "usb_host_reset mode set to host for syspath: " << path;
    write_mode(path, kHostMode);
    sleep_for(kModeSettleTime);
}

// The properties tell the rest of the system; nothing here ever clears them.
void announce(const char* property) {
    property_set(property, "1");
    property_set(kResetProperty, "1");
}

// Reads the dock's supply into power_val and returns what that then holds: the old value, if the
// supply cannot be read.
std::string refresh_power_val() {
    char value[kSysfsValueSize];
    const int32_t length =
            UsbDevice::read_sysfs_val(UsbDevice::dc_online_path, value, sizeof(value));
    const MutexLock lock(UsbDevice::power_val_mutex);
    if (length > 0) memcpy(UsbDevice::power_val, value, static_cast<size_t>(length) + 1);
    return UsbDevice::power_val;
}

bool is_unpowered(const std::string& value) {
    return value.c_str()[0] == '0';
}

// Whether the supply reads 1. A value that is not a number is the caller's exception.
bool is_online(const char* path, const char* value_text, const char* number_text) {
    const std::string value = read_value(path);
    LOG(INFO) << value_text << value;
    const int number = std::stoi(value);
    LOG(INFO) << number_text << number;
    return number == 1;
}

bool usb_power_is_online() {
    return is_online(UsbDevice::usb_online_path, "USB charging_state val ",
                     "power_supply_state val ");
}

bool dc_power_is_online() {
    LOG(INFO) << "virtual_undock_dock_event check for dc charge state";
    return is_online(UsbDevice::dc_online_path, "DC charging_state val ",
                     "DC power_supply_state val ");
}

// Undocks an adapter by its controller. Without power at the end the device has left its cradle,
// and the controller stays off.
void undock_controller(const std::string& path, milliseconds time) {
    if (!is_in_host_mode(path)) return;
    write_mode(path, kNoMode);
    LOG(INFO) << "virtual_undock_dock_event mode set to none for syspath: " << path;
    sleep_for(time);
    if (!exists(UsbDevice::usb_online_path)) return;
    if (!usb_power_is_online() && !dc_power_is_online()) {
        LOG(INFO) << "device is undocked, not charging state";
        return;
    }
    LOG(INFO) << "virtual_undock_dock_event mode set to host for syspath: " << path;
    write_mode(path, kHostMode);
    sleep_for(kModeSettleTime);
}

// Undocks by word alone, while the watcher looks whether the dock really goes.
void undock_by_properties(milliseconds time) {
    UsbDevice::exit_poll = false;
    if (is_unpowered(refresh_power_val())) return;
    announce(kUndockProperty);
    UsbDevice::registersysfsObserverViaThread();
    sleep_for(time);
    UsbDevice::exit_poll = true;
    announce(kDockProperty);
}

// Polls the dock's supply until the undock is over. Returns whether the supply was gone before.
bool dock_power_is_lost_meanwhile() {
    while (!UsbDevice::exit_poll) {
        const std::string value = refresh_power_val();
        LOG(INFO) << "readSysfsChangeEvent:polling for power_val " << UsbDevice::dc_online_path
                  << "power_val:" << value;
        if (is_unpowered(value)) {
            LOG(INFO) << "readSysfsChangeEvent: undocked power_val" << value;
            return true;
        }
        sleep_for(kPowerPollInterval);
    }
    return false;
}

// The "mode" file of the controller that a device-tree path such as /soc@0/ssusb@a600000/... names
// second; empty if it names none.
std::string mode_path_of(const std::string& devspec) {
    const std::vector<std::string> nodes = UsbDevice::split(devspec, '/');
    if (nodes.size() < 3) return "";
    const std::vector<std::string> controller = UsbDevice::split(nodes[2], '@');
    if (controller.size() < 2) return "";
    return kSocDir + controller[1] + "." + controller[0] + "/mode";
}

}  // namespace

void UsbDevice::usb_host_reset(int value) {
    LOG(INFO) << "usb_host_reset entered:";
    const MutexLock lock(usb_host_mutex);
    if (value > 0) return virtual_undock_dock_event(value);
    for (const std::string& path : host_mode_paths) reset_controller(kSocDir + path);
}

void UsbDevice::virtual_undock_dock_event(int delayMs) {
    const std::string path = get_displaylink_soc_path();
    LOG(INFO) << "virtual_undock_dock_event usbPath : " << path;
    if (path != kNoDisplayLink) {
        LOG(INFO) << "virtual_undock_dock_event usbPath for display link device";
        undock_controller(path, milliseconds(delayMs));
    } else {
        LOG(INFO) << "virtual_undock_dock_event usbPath empty for non-display link device";
        undock_by_properties(milliseconds(delayMs));
    }
}

std::string UsbDevice::get_displaylink_soc_path() {
    const std::optional<std::string> name = usb::DeviceMap::interface_of_vendor(kDisplayLinkVendor);
    if (!name) return kNoDisplayLink;
    // One character of the bus number is used (kept: oddity 29): bus 10 and above read the root hub
    // of their first digit.
    char path[kSysfsValueSize];
    snprintf(path, sizeof(path), "%s/%s%c/%s", kUsbDevicesDir, "usb", name->c_str()[0], "devspec");
    LOG(INFO) << "get_displaylink_soc_path " << path;
    const std::string devspec = read_value(path);
    if (devspec.empty()) return "";
    LOG(INFO) << "get_displaylink_soc_path devspec_val : " << devspec;
    return mode_path_of(devspec);
}

// The handle of the last watcher stays, for whoever likes to join it; that of the one before it is
// overwritten, and so its thread is left to end by itself and to leave nothing.
void UsbDevice::registersysfsObserverViaThread() {
    static Mutex mutex;
    static bool is_ours GUARDED_BY(mutex) = false;
    static pthread_t last GUARDED_BY(mutex);
    const MutexLock lock(mutex);
    if (is_ours && pthread_equal(last, sysfs_observer_thread) != 0) pthread_detach(last);
    const int result =
            pthread_create(&sysfs_observer_thread, nullptr, registersysfsObserver, nullptr);
    is_ours = result == 0;
    last = sysfs_observer_thread;
    // The line is the same for both watchers; kept: oddity 30.
    LOG(INFO) << "registerFileObserverViaThread result--" << result;
}

void* UsbDevice::registersysfsObserver(void*) {
    readSysfsChangeEvent();
}

void UsbDevice::readSysfsChangeEvent() {
    if (dock_power_is_lost_meanwhile()) {
        // The undock has ended at once. Its caller announces the dock a second time when its time
        // is up.
        announce(kDockProperty);
    } else {
        LOG(INFO) << "readSysfsChangeEvent:exit poll due to virtual dock";
    }
    // Nothing with a destructor is alive here: whether this call unwinds is up to the libc.
    pthread_exit(nullptr);
}

}  // namespace android::vus
