// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/hotplug.h"

#include <poll.h>
#include <string.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <chrono>

#include <android-base/logging.h>
#include <binder/IInterface.h>
#include <binder/IServiceManager.h>

#include "android/vus/paths.h"
#include "tools/hotplug/device_reader.h"

namespace android::vus::hotplug {

namespace {

using std::chrono::milliseconds;

constexpr char kUsbSubsystem[] = "usb";
constexpr char kInputSubsystem[] = "input";
constexpr char kUsbDeviceType[] = "usb_device";

// Drivers bind within a tenth of a second; a device that is not bound after this long has stopped
// answering, or has no driver for it to wait for.
constexpr std::chrono::seconds kSettleLimit(3);
// How often the service manager is asked while the daemon is away, and never otherwise.
constexpr milliseconds kServiceRetry(100);
// A burst of events (a hub with everything on it) must not be lost.
constexpr int kMonitorBufferBytes = 4 << 20;

std::string text(const char* value) {
    return value == nullptr ? "" : value;
}

}  // namespace

// Writes to an eventfd when the daemon dies.
class Hotplug::DeathNotice : public IBinder::DeathRecipient {
  public:
    explicit DeathNotice(int event) : event_(event) {}
    void binderDied(const wp<IBinder>& /*who*/) override { eventfd_write(event_, 1); }

  private:
    const int event_;
};

Hotplug::Hotplug(std::function<void(const std::string&)> print)
      : udev_(udev_new(), udev_unref),
        monitor_(nullptr, udev_monitor_unref),
        service_died_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
        settling_(kSettleLimit),
        reporter_(std::move(print)),
        death_notice_(new DeathNotice(service_died_.get())) {}

Hotplug::~Hotplug() {
    if (service_ != nullptr) service_->unlinkToDeath(death_notice_);
}

bool Hotplug::run_once() {
    if (!connect()) return false;
    reporter_.drain();
    return true;
}

void Hotplug::run() {
    // Before the first look around, so that nothing that appears meanwhile is missed.
    if (!listen()) {
        PLOG(ERROR) << "the kernel's events cannot be heard";
        return;
    }
    connect();
    while (true) wait();
}

bool Hotplug::listen() {
    monitor_.reset(udev_monitor_new_from_netlink(udev_.get(), "kernel"));
    if (monitor_ == nullptr) return false;
    udev_monitor* monitor = monitor_.get();
    udev_monitor_filter_add_match_subsystem_devtype(monitor, kUsbSubsystem, kUsbDeviceType);
    udev_monitor_filter_add_match_subsystem_devtype(monitor, kInputSubsystem, nullptr);
    udev_monitor_set_receive_buffer_size(monitor, kMonitorBufferBytes);
    return udev_monitor_enable_receiving(monitor) >= 0;
}

// Connects to the daemon if it is there, and tells it of everything that is present.
bool Hotplug::connect() {
    sp<IBinder> service = defaultServiceManager()->checkService(String16(kServiceName));
    if (service == nullptr || service->linkToDeath(death_notice_) != OK) return false;
    service_ = service;
    reporter_.set_service(interface_cast<IVUsbService>(service));
    report_present(kUsbSubsystem);
    report_present(kInputSubsystem);
    return true;
}

void Hotplug::report_present(const char* subsystem) {
    const std::unique_ptr<udev_enumerate, udev_enumerate* (*)(udev_enumerate*)>
            present(udev_enumerate_new(udev_.get()), udev_enumerate_unref);
    udev_enumerate_add_match_subsystem(present.get(), subsystem);
    udev_enumerate_scan_devices(present.get());
    udev_list_entry* item = nullptr;
    udev_list_entry_foreach(item, udev_enumerate_get_list_entry(present.get())) {
        const Device device(udev_device_new_from_syspath(udev_.get(),
                                                         udev_list_entry_get_name(item)),
                            udev_device_unref);
        if (device != nullptr) handle(device.get(), "present");
    }
}

void Hotplug::wait() {
    pollfd sources[] = {{udev_monitor_get_fd(monitor_.get()), POLLIN, 0},
                        {service_died_.get(), POLLIN, 0}};
    poll(sources, std::size(sources), timeout_ms());
    if (sources[0].revents != 0) handle_events();
    judge_overdue();
    follow_service();
}

// -1, which is for ever, while no device settles and the daemon is there.
int Hotplug::timeout_ms() const {
    auto wait = service_ == nullptr ? kServiceRetry : milliseconds::max();
    if (const auto deadline = settling_.next_deadline()) {
        const auto left = std::chrono::ceil<milliseconds>(*deadline - Settling::Clock::now());
        wait = std::min(wait, std::max(left, milliseconds(0)));
    }
    return wait == milliseconds::max() ? -1 : static_cast<int>(wait.count());
}

void Hotplug::handle_events() {
    while (true) {
        const Device device(udev_monitor_receive_device(monitor_.get()), udev_device_unref);
        if (device == nullptr) return;
        handle(device.get(), text(udev_device_get_action(device.get())));
    }
}

// `action` is the kernel's, or "present" for a device that was found and not announced.
void Hotplug::handle(udev_device* device, const std::string& action) {
    const std::string entry = text(udev_device_get_sysname(device));
    if (text(udev_device_get_subsystem(device)) == kInputSubsystem) {
        handle_input(device, entry, action);
    } else if (text(udev_device_get_devtype(device)) == kUsbDeviceType) {
        handle_usb(entry, action);
    }
}

void Hotplug::handle_usb(const std::string& entry, const std::string& action) {
    if (action == "add") {
        if (reporter_.knows(entry)) return;  // found present before this was read
        settling_.added(entry, Settling::Clock::now());
    } else if (action == "bind") {
        // A device that was judged before this, because its time was up or it was found present,
        // may have had none of its interfaces then. What it has become since counts.
        if (!settling_.bound(entry)) reporter_.removed(entry);
        judge_usb(entry);
    } else if (action == "remove") {
        if (!settling_.removed(entry)) reporter_.removed(entry);
    } else if (action == "present" && !settling_.waits_for(entry)) {
        judge_usb(entry);
    }
}

void Hotplug::handle_input(udev_device* device, const std::string& entry,
                           const std::string& action) {
    if (entry.compare(0, strlen("event"), "event") != 0) return;
    if (action == "remove") {
        reporter_.removed(entry);
        return;
    }
    if (action != "present" && (action != "add" || reporter_.knows(entry))) return;
    udev_device* const parent = udev_device_get_parent(device);
    const std::string input = parent == nullptr ? "" : text(udev_device_get_sysname(parent));
    const auto info = read_input_device(input, text(udev_device_get_devnode(device)));
    if (info) reporter_.judge(entry, *info);
}

void Hotplug::judge_usb(const std::string& entry) {
    if (!is_usb_device(entry)) return;
    const auto info = read_usb_device(entry);
    if (info && !is_hub(*info)) reporter_.judge(entry, *info);
}

void Hotplug::judge_overdue() {
    for (const std::string& entry : settling_.overdue(Settling::Clock::now())) judge_usb(entry);
}

void Hotplug::follow_service() {
    eventfd_t deaths = 0;
    if (eventfd_read(service_died_.get(), &deaths) == 0) {
        service_ = nullptr;
        reporter_.set_service(nullptr);
    }
    if (service_ == nullptr) connect();
}

}  // namespace android::vus::hotplug
