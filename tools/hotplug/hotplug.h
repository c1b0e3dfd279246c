// SPDX-License-Identifier: Apache-2.0
//
// Hotplug: the platform component of a Linux host.
//
// Listens to the kernel's own events (no udev daemon is needed), and reports USB devices that have
// settled, input devices, and removals to the daemon. When the daemon goes it waits for it to come
// back, and then reports everything that is present, because a new daemon knows of nothing.
//
// One thread runs the loop; it sleeps until the kernel, the daemon's death or a deadline wakes it.
// The reports themselves are made by the Reporter's threads.

#pragma once

#include <functional>
#include <memory>
#include <string>

#include <android-base/unique_fd.h>
#include <binder/IBinder.h>
#include <libudev.h>

#include "tools/hotplug/reporter.h"
#include "tools/hotplug/settling.h"

namespace android::vus::hotplug {

class Hotplug {
  public:
    // `print` gets a line a report, if it is set.
    explicit Hotplug(std::function<void(const std::string&)> print);
    ~Hotplug();

    // Reports what is present and returns when all of it is judged; false without a daemon.
    bool run_once();
    // Runs until the kernel's events can no longer be heard.
    void run();

  private:
    class DeathNotice;
    using Udev = std::unique_ptr<udev, udev* (*)(udev*)>;
    using Monitor = std::unique_ptr<udev_monitor, udev_monitor* (*)(udev_monitor*)>;
    using Device = std::unique_ptr<udev_device, udev_device* (*)(udev_device*)>;

    bool listen();
    bool connect();
    void report_present(const char* subsystem);
    void wait();
    int timeout_ms() const;
    void handle_events();
    void handle(udev_device* device, const std::string& action);
    void handle_usb(const std::string& entry, const std::string& action);
    void handle_input(udev_device* device, const std::string& entry, const std::string& action);
    void judge_usb(const std::string& entry);
    void judge_overdue();
    void follow_service();

    Udev udev_;
    Monitor monitor_;
    base::unique_fd service_died_;  // an eventfd that the death notice writes to
    Settling settling_;
    Reporter reporter_;
    sp<IBinder> service_;  // null while the daemon is away
    sp<DeathNotice> death_notice_;
};

}  // namespace android::vus::hotplug
