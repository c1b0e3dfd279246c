// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/hotplug.h"

#include <errno.h>
#include <poll.h>

#include <algorithm>
#include <chrono>

#include <binder/IInterface.h>

#include "tools/hotplug/device_reader.h"

namespace android::vus::hotplug {

namespace {

using std::chrono::milliseconds;

constexpr char kUsbSubsystem[] = "usb";
constexpr char kInputSubsystem[] = "input";

// How often the service manager is asked while the daemon is away, and never otherwise.
constexpr milliseconds kServiceRetry(100);
// A burst of events (a hub with everything on it) should not be lost.
constexpr int kMonitorBufferBytes = 4 << 20;

using Device = std::unique_ptr<udev_device, udev_device* (*)(udev_device*)>;
using Enumeration = std::unique_ptr<udev_enumerate, udev_enumerate* (*)(udev_enumerate*)>;

std::string text(const char* value) {
    return value == nullptr ? "" : value;
}

Tracker::Actions actions_of(Reporter* reporter) {
    return {[reporter](const std::string& device) {
                reporter->judge(device, [device] { return read_usb_device(device); });
            },
            [reporter](const std::string& input, const std::string& event) {
                reporter->judge(input, [input, event] { return read_input_device(input, event); });
            },
            [reporter](const std::string& device) { reporter->removed(device); }};
}

}  // namespace

Hotplug::Hotplug(std::function<FoundService()> find, std::function<void(const std::string&)> print)
      : find_(std::move(find)),
        udev_(udev_new(), udev_unref),
        monitor_(nullptr, udev_monitor_unref),
        reporter_(std::move(print)),
        tracker_(actions_of(&reporter_)),
        death_notice_(new DeathNotice) {}

Hotplug::~Hotplug() {
    if (service_ != nullptr) service_->unlinkToDeath(death_notice_);
}

bool Hotplug::run_once(std::string* why_not) {
    if (!connect(why_not)) return false;
    reporter_.drain();
    return true;
}

bool Hotplug::run(int stop_fd) {
    // Before the first look around, so that nothing that appears meanwhile is missed.
    if (!listen()) return false;
    std::string why_not;
    connect(&why_not);
    while (true) {
        pollfd sources[] = {{udev_monitor_get_fd(monitor_.get()), POLLIN, 0},
                            {death_notice_->fd(), POLLIN, 0},
                            {stop_fd, POLLIN, 0}};
        poll(sources, std::size(sources), timeout_ms());
        if (sources[2].revents != 0) return true;
        if (sources[0].revents != 0) handle_events();
        tracker_.judge_overdue(Tracker::Clock::now());
        follow_service();
    }
}

bool Hotplug::listen() {
    monitor_.reset(udev_monitor_new_from_netlink(udev_.get(), "kernel"));
    if (monitor_ == nullptr) return false;
    udev_monitor* const monitor = monitor_.get();
    udev_monitor_filter_add_match_subsystem_devtype(monitor, kUsbSubsystem, nullptr);
    udev_monitor_filter_add_match_subsystem_devtype(monitor, kInputSubsystem, nullptr);
    udev_monitor_set_receive_buffer_size(monitor, kMonitorBufferBytes);
    return udev_monitor_enable_receiving(monitor) >= 0;
}

// Connects to the daemon if it is there, and tells it of everything that is present.
bool Hotplug::connect(std::string* why_not) {
    const FoundService found = find_();
    *why_not = found.why_not;
    if (found.service == nullptr) return false;
    const sp<IBinder> binder = IInterface::asBinder(found.service);
    if (binder->linkToDeath(death_notice_) != OK) {
        *why_not = "the daemon has just ended";
        return false;
    }
    service_ = binder;
    reporter_.set_service(found.service);
    report_present();
    return true;
}

void Hotplug::report_present() {
    std::set<std::string> present = report_present_of(kUsbSubsystem);
    present.merge(report_present_of(kInputSubsystem));
    reporter_.keep_only(present);
}

// Goes by the paths alone: asking libudev for more would read files that the kernel keeps from us
// as long as it is busy with a device.
std::set<std::string> Hotplug::report_present_of(const char* subsystem) {
    const Enumeration enumeration(udev_enumerate_new(udev_.get()), udev_enumerate_unref);
    udev_enumerate_add_match_subsystem(enumeration.get(), subsystem);
    udev_enumerate_scan_devices(enumeration.get());
    std::set<std::string> present;
    udev_list_entry* item = nullptr;
    udev_list_entry_foreach(item, udev_enumerate_get_list_entry(enumeration.get())) {
        const std::string name = tracker_.found(subsystem, udev_list_entry_get_name(item));
        if (!name.empty()) present.insert(name);
    }
    return present;
}

// -1, which is for ever, while no device settles and the daemon is there.
int Hotplug::timeout_ms() const {
    auto wait = service_ == nullptr ? kServiceRetry : milliseconds::max();
    if (const auto deadline = tracker_.next_deadline()) {
        const auto left = std::chrono::ceil<milliseconds>(*deadline - Tracker::Clock::now());
        wait = std::min(wait, std::max(left, milliseconds(0)));
    }
    return wait == milliseconds::max() ? -1 : static_cast<int>(wait.count());
}

// One message a call of poll() would do, but poll() costs as much as a message.
void Hotplug::handle_events() {
    while (true) {
        const Device device(udev_monitor_receive_device(monitor_.get()), udev_device_unref);
        if (device == nullptr) break;
        tracker_.handle({text(udev_device_get_action(device.get())),
                         text(udev_device_get_subsystem(device.get())),
                         text(udev_device_get_syspath(device.get()))},
                        Tracker::Clock::now());
    }
    // The kernel had no room for an event, or one could not be read: it may have been anything.
    if (errno != EAGAIN && errno != EINTR) report_present();
}

void Hotplug::follow_service() {
    if (death_notice_->taken()) {
        service_ = nullptr;
        reporter_.set_service(nullptr);
    }
    std::string why_not;
    if (service_ == nullptr) connect(&why_not);
}

}  // namespace android::vus::hotplug
