// SPDX-License-Identifier: Apache-2.0
//
// Meter: for each device, whether it worked before it was allowed, and for how long.
//
// A device is exposed while a driver has it and nobody has allowed it: before its verdict, and
// after a refusal until the last of its interfaces is off, and again whenever one comes back. What
// has a driver is known from the kernel's events alone, not from what was asked of the kernel. The
// kernel's own drivers for devices as a whole, and for hubs, are no exposure; nor is usbfs, by
// which a program that has the device's node gets at it.
//
// It is honest about what it does not know:
//  - Times are those at which events were heard: the kernel's carry none. A driver begins before
//    its binding is told; and who is kept from running hears late, and measures too little.
//  - Of a device that was there before anybody listened, and of all that were there when events
//    were lost, the exposure is not measured. That is said, and is not 0.
//  - An input device is on from the moment it appears, until its HID device has lost its driver:
//    while it is merely silenced the same input comes by hidraw. One without a HID device is off
//    when it is silenced.
//  - An input device that is held back by a gate is off unless something has a driver where it is
//    held.
//  - A device that nobody has judged before it went is told as such. What is no hub and has no
//  input
//    to be judged on its own is to be judged as a USB device.
//
// A device is told when it is judged, of an allowed one when it has its first driver; and of a
// refused one whenever it comes on or goes off again, because nobody may be there later. What is
// told later of the same device and turn replaces what was told before.
//
// The memory is bounded: what comes beyond kMostDevices is told as lost events are.
//
// Thread-safe. `take` is called under a lock, so that what is told of a device stays in order: it
// neither waits nor calls back.

#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "android/vus/mutex.h"
#include "tools/hotplug/exposure.h"
#include "tools/hotplug/subject.h"
#include "tools/hotplug/tracker.h"

namespace android::vus::hotplug {

class Meter {
  public:
    struct Take {
        std::function<void(const Exposure&)> device;
        std::function<void(const Moment&)> events_lost;
    };

    static constexpr size_t kMostDevices = 1024;
    // What is told of a device while it stays; the rest when it goes.
    static constexpr int kMostTold = 64;

    Meter(std::function<Moment()> now, Take take) : now_(std::move(now)), take_(std::move(take)) {}

    // An event of the kernel's, in their order, before anything follows from it.
    void heard(const Event& event);
    // What was there without an event.
    void found(const Event& device);
    void events_lost();
    // All that is there, as keys (see Present): whatever is not has gone.
    void keep_only(const std::set<std::string>& keys);

    // The daemon is asked, and has answered.
    void asked(const Subject& device, const Sighting& seen);
    void answered(const Subject& device, bool allowed);
    // An input device is silent from now on, or no longer.
    void silenced(const std::string& input, bool silent);

    // Tells all that was not told yet.
    void finish();

  private:
    using Time = Exposure::Time;

    // A driver has a part of a device.
    struct Binding {
        std::string part;       // an interface, a HID device or an input device
        std::string interface;  // of a USB device, in which that is
        std::string driver;     // empty: not known, or not yet
    };

    struct Tally {
        Time exposed = Time::zero();
        std::map<std::string, Time> drivers;
    };

    struct Device {
        Exposure known;  // but the tally, and what is told of it
        int32_t number = 0;
        std::map<std::string, Binding> bindings;  // by part
        std::string behind;      // of an input device: its HID device, or where it is held
        std::string usb_device;  // of one that is held: whose interface that is
        // What it was when it was asked about last, if it was.
        bool asked = false;
        bool held = false;
        bool vouched = false;
        bool is_hub = false;
        bool has_inputs = false;      // that are judged by themselves
        Time counted = Time::zero();  // until then all is in the tallies
        Tally tally;
        std::map<std::string, Tally> of_interfaces;
        bool told = false;  // what is so now
        int times_told = 0;

        bool is_held() const { return !behind.empty() && behind == known.entry; }
    };
    using Devices = std::map<std::string, Device>;  // by name in sysfs

    void heard_usb(const Event& event) REQUIRES(mutex_);
    void heard_interface(const Event& event) REQUIRES(mutex_);
    void heard_hid(const Event& event) REQUIRES(mutex_);
    void heard_input(const Event& event) REQUIRES(mutex_);
    Device* start(const std::string& name, const Moment& appeared) REQUIRES(mutex_);
    void start_usb(const std::string& name, int32_t number, Unmeasured unmeasured) REQUIRES(mutex_);
    void start_input(const std::string& path, Unmeasured unmeasured) REQUIRES(mutex_);
    Device* start_held(const Subject& device, const Sighting& seen) REQUIRES(mutex_);
    void announced(const std::string& name) REQUIRES(mutex_);
    void end(Devices::iterator device) REQUIRES(mutex_);
    void end_named(const std::string& name) REQUIRES(mutex_);
    void end_behind(const std::string& name) REQUIRES(mutex_);
    void bind(const Binding& binding) REQUIRES(mutex_);
    void unbind(const std::string& part) REQUIRES(mutex_);
    void bind_in(Device* device, const Binding& binding) REQUIRES(mutex_);
    void unbind_in(Device* device, const std::string& part) REQUIRES(mutex_);
    void tell(Device* device) REQUIRES(mutex_);
    void tell_rest(Device* device) REQUIRES(mutex_);
    Device* find(const Subject& device) REQUIRES(mutex_);

    static void count(Device* device, Time now);
    static void judged(Device* device, MeteredVerdict verdict, Time now);

    const std::function<Moment()> now_;
    const Take take_;
    Mutex mutex_;
    Devices devices_ GUARDED_BY(mutex_);
    std::map<std::string, Moment> hid_devices_ GUARDED_BY(mutex_);  // when they appeared
    bool lost_ GUARDED_BY(mutex_) = false;                          // events, ever
};

}  // namespace android::vus::hotplug
