// SPDX-License-Identifier: Apache-2.0
//
// What the kernel's events mean to the meter: which devices there are, and what has a driver.

#include <iterator>
#include <vector>

#include <android-base/file.h>

#include "tools/hotplug/entry_names.h"
#include "tools/hotplug/meter.h"
#include "tools/hotplug/usb_entry.h"

namespace android::vus::hotplug {

namespace {

// The kernel's own, for USB devices as a whole; and what has an interface for a program that has
// the device's node, as a gate does to ask what it is.
constexpr char kUsbDriver[] = "usb";
constexpr char kUsbfsDriver[] = "usbfs";

bool is_off(const std::string& action) {
    return action == "unbind" || action == "remove";
}

}  // namespace

void Meter::heard(const Event& event) {
    const MutexLock lock(mutex_);
    if (event.subsystem == "usb") heard_usb(event);
    if (event.subsystem == "hid") heard_hid(event);
    if (event.subsystem == "input") heard_input(event);
}

void Meter::heard_usb(const Event& event) {
    const std::string name = base::Basename(event.path);
    const std::string device = device_of(name);
    if (!is_device_name(device)) return;
    if (device != name) return heard_interface(event);
    if (event.action == "add") {
        start_usb(name, event.number, Unmeasured::kNo);
    } else if (event.action == "remove") {
        end_named(name);
        end_behind(name);
    } else if (event.action == "bind" && event.driver != kUsbDriver) {
        bind({name, name, event.driver});
    } else if (event.action == "unbind") {
        unbind(name);
    }
}

void Meter::heard_interface(const Event& event) {
    const std::string name = base::Basename(event.path);
    if (is_off(event.action)) return unbind(name);
    if (event.action != "bind" || event.driver == kUsbfsDriver) return;
    if (event.driver != kHubDriver) return bind({name, name, event.driver});
    const auto device = devices_.find(device_of(name));
    if (device != devices_.end()) device->second.is_hub = true;
}

void Meter::heard_hid(const Event& event) {
    const std::string name = base::Basename(event.path);
    if (event.action == "add" && hid_devices_.size() < kMostDevices) hid_devices_[name] = now_();
    if (event.action == "bind") bind({name, parent_of(event.path), event.driver});
    if (is_off(event.action)) unbind(name);
    if (event.action != "remove") return;
    hid_devices_.erase(name);
    end_behind(name);
}

void Meter::heard_input(const Event& event) {
    const std::string name = base::Basename(event.path);
    if (!is_input_device(name)) return;
    if (event.action == "add") start_input(event.path, Unmeasured::kNo);
    if (event.action == "remove") end_named(name);
}

void Meter::found(const Event& device) {
    const MutexLock lock(mutex_);
    const std::string name = base::Basename(device.path);
    const auto known = devices_.find(name);
    const Unmeasured why = lost_ ? Unmeasured::kLost : Unmeasured::kPresent;
    if (device.subsystem == "usb" && is_device_name(name) && device_of(name) == name) {
        if (known == devices_.end() || known->second.number != device.number) {
            start_usb(name, device.number, why);
        }
    } else if (device.subsystem == "input" && is_input_device(name) && known == devices_.end()) {
        start_input(device.path, why);
    }
}

void Meter::events_lost() {
    const MutexLock lock(mutex_);
    lost_ = true;
    for (auto& [name, device] : devices_) device.known.unmeasured = Unmeasured::kLost;
    take_.events_lost(now_());
}

void Meter::keep_only(const std::set<std::string>& keys) {
    const MutexLock lock(mutex_);
    std::vector<std::string> gone;
    for (const auto& [name, device] : devices_) {
        const Subject subject = {name, device.number};
        // What is held goes with what it is held in: it may be about to be in the keys.
        const std::string& key = device.is_held() ? device.behind : subject.key();
        if (device.usb_device.empty() && keys.count(key) == 0) gone.push_back(name);
    }
    for (const std::string& name : gone) {
        end_named(name);
        end_behind(name);
    }
    for (auto at = hid_devices_.begin(); at != hid_devices_.end();) {
        at = keys.count(at->first) == 0 ? hid_devices_.erase(at) : std::next(at);
    }
}

// Null if there are too many.
Meter::Device* Meter::start(const std::string& name, const Moment& appeared) {
    end_named(name);
    if (devices_.size() >= kMostDevices) {
        take_.events_lost(now_());
        return nullptr;
    }
    Device& device = devices_[name];
    device.known.entry = name;
    device.known.appeared = appeared;
    device.counted = appeared.up;
    return &device;
}

void Meter::start_usb(const std::string& name, int32_t number, Unmeasured unmeasured) {
    const auto known = devices_.find(name);
    if (known != devices_.end() && known->second.number == number &&
        known->second.known.unmeasured == Unmeasured::kPresent) {
        return announced(name);
    }
    end_behind(name);
    Device* const device = start(name, now_());
    if (device == nullptr) return;
    device->number = number;
    device->known.is_usb = true;
    device->known.unmeasured = unmeasured;
}

void Meter::start_input(const std::string& path, Unmeasured unmeasured) {
    const std::string name = base::Basename(path);
    const auto known = devices_.find(name);
    if (known != devices_.end() && known->second.known.unmeasured == Unmeasured::kPresent) {
        return announced(name);
    }
    const std::string bearer = bearer_of(path);
    const bool is_hid = is_hid_name(bearer);
    if (is_hid) {
        // What was held there is this one now.
        const std::string interface = parent_of(base::Dirname(base::Dirname(path)));
        for (auto at = devices_.begin(); at != devices_.end();) {
            const std::string& behind = at->second.behind;
            const bool is_here = behind == interface || behind == bearer;
            at = at->second.is_held() && is_here ? devices_.erase(at) : std::next(at);
        }
    }
    Device* const device = start(name, now_());
    if (device == nullptr) return;
    device->known.unmeasured = unmeasured;
    if (is_hid) device->behind = bearer;
    bind_in(device, {is_hid ? bearer : name, "", ""});
}

// It was found before it was announced: nothing of it has been missed, whatever was told meanwhile.
void Meter::announced(const std::string& name) {
    for (auto& [known_as, device] : devices_) {
        if (known_as != name && device.usb_device != name) continue;
        if (device.known.unmeasured != Unmeasured::kPresent) continue;
        device.known.unmeasured = Unmeasured::kNo;
        if (device.told) tell(&device);
    }
}

// It appeared when what it is held in did; and what had that had it.
Meter::Device* Meter::start_held(const Subject& subject, const Sighting& seen) {
    const auto usb_device = devices_.find(seen.usb_device.name);
    const auto hid_device = hid_devices_.find(seen.hid_device);
    const bool of_usb = usb_device != devices_.end();
    const bool known = of_usb || hid_device != hid_devices_.end();
    const Moment appeared = of_usb  ? usb_device->second.known.appeared
                            : known ? hid_device->second
                                    : now_();
    Device* const device = start(subject.name, appeared);
    if (device == nullptr) return nullptr;
    device->known.entry = seen.hid_device;
    device->behind = seen.hid_device;
    device->usb_device = seen.usb_device.name;
    if (!known) device->known.unmeasured = lost_ ? Unmeasured::kLost : Unmeasured::kPresent;
    if (!of_usb) return device;
    Device& whole = usb_device->second;
    const Time now = now_().up;
    count(&whole, now);
    device->counted = now;
    device->known.unmeasured = whole.known.unmeasured;
    const auto tally = whole.of_interfaces.find(device->behind);
    if (tally != whole.of_interfaces.end()) device->tally = tally->second;
    for (const auto& [part, binding] : whole.bindings) {
        if (binding.interface == device->behind) device->bindings[part] = binding;
    }
    return device;
}

}  // namespace android::vus::hotplug
