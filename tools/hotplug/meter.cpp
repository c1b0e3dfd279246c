// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/meter.h"

#include "tools/hotplug/entry_names.h"

namespace android::vus::hotplug {

namespace {

// Of which a line tells.
constexpr size_t kMostDrivers = 16;

}  // namespace

void Meter::end_named(const std::string& name) {
    const auto device = devices_.find(name);
    if (device != devices_.end()) end(device);
}

// What was held in that device has gone with it.
void Meter::end_behind(const std::string& name) {
    for (auto at = devices_.begin(); at != devices_.end();) {
        const auto device = at++;
        if (device->second.usb_device == name || device->second.known.entry == name) end(device);
    }
}

void Meter::end(Devices::iterator device) {
    Device& gone = device->second;
    const Time now = now_().up;
    count(&gone, now);
    if (!gone.bindings.empty()) {
        gone.known.off_after = now - gone.known.appeared.up;
        gone.bindings.clear();
        if (gone.known.verdict != MeteredVerdict::kAllowed) gone.told = false;
    }
    gone.known.gone = true;
    tell_rest(&gone);
    devices_.erase(device);
}

void Meter::bind(const Binding& binding) {
    const auto usb_device = devices_.find(device_of(binding.interface));
    if (usb_device != devices_.end()) bind_in(&usb_device->second, binding);
    for (auto& [name, device] : devices_) {
        const std::string& behind = device.behind;
        if (behind.empty()) continue;
        if (behind == binding.part || behind == binding.interface) bind_in(&device, binding);
    }
}

void Meter::unbind(const std::string& part) {
    for (auto& [name, device] : devices_) {
        if (device.bindings.count(part) != 0) unbind_in(&device, part);
    }
}

void Meter::bind_in(Device* device, const Binding& binding) {
    const Time now = now_().up;
    count(device, now);
    const bool was_off = device->bindings.empty();
    Binding& known = device->bindings[binding.part];
    if (known.driver.empty() && !binding.driver.empty()) {
        // It had it all the time, and is called so.
        const auto nameless = device->tally.drivers.find("");
        if (nameless != device->tally.drivers.end()) {
            device->tally.drivers[binding.driver] += nameless->second;
            device->tally.drivers.erase(nameless);
        }
    }
    known = binding;
    if (!device->known.driver_after) device->known.driver_after = now - device->known.appeared.up;
    if (!was_off) return;
    device->known.off_after.reset();
    if (device->known.verdict == MeteredVerdict::kAllowed) {
        if (!device->told) tell(device);
    } else {
        device->told = false;
        // It may be about to become another input device: see start_input().
        if (device->known.verdict == MeteredVerdict::kRefused && !device->is_held()) tell(device);
    }
}

void Meter::unbind_in(Device* device, const std::string& part) {
    const Time now = now_().up;
    count(device, now);
    device->bindings.erase(part);
    if (!device->bindings.empty()) return;
    device->known.off_after = now - device->known.appeared.up;
    if (device->known.verdict == MeteredVerdict::kAllowed) return;
    device->told = false;
    if (device->known.verdict == MeteredVerdict::kRefused) tell(device);
}

// What has passed since it was counted last, as things have been since.
void Meter::count(Device* device, Time now) {
    const Time passed = now - device->counted;
    device->counted = now;
    if (device->known.verdict == MeteredVerdict::kAllowed || device->bindings.empty()) return;
    const auto add = [passed](Tally* tally, const std::set<std::string>& drivers) {
        tally->exposed += passed;
        for (const std::string& driver : drivers) tally->drivers[driver] += passed;
    };
    std::set<std::string> all;
    std::map<std::string, std::set<std::string>> by_interface;
    for (const auto& [part, binding] : device->bindings) {
        all.insert(binding.driver);
        if (device->known.is_usb) by_interface[binding.interface].insert(binding.driver);
    }
    add(&device->tally, all);
    for (const auto& [interface, drivers] : by_interface) {
        add(&device->of_interfaces[interface], drivers);
    }
}

void Meter::asked(const Subject& subject, const Sighting& seen) {
    if (!seen.info) return;
    const MutexLock lock(mutex_);
    const auto behind_it = devices_.find(seen.usb_device.name);
    if (!subject.is_usb() && behind_it != devices_.end()) behind_it->second.has_inputs = true;
    Device* device = find(subject);
    if (device == nullptr && seen.held && !subject.is_usb()) device = start_held(subject, seen);
    if (device == nullptr) return;
    device->asked = true;
    device->held = seen.held;
    device->vouched = seen.vouched;
    device->known.id = seen.info->deviceId;
    device->known.vendor = seen.info->vendorId;
    device->known.product = seen.info->productId;
    device->known.name = seen.info->deviceName;
}

void Meter::answered(const Subject& subject, bool allowed) {
    const MutexLock lock(mutex_);
    Device* const device = find(subject);
    if (device == nullptr) return;
    // It will be another one, and be judged as that.
    if (allowed && !device->known.is_usb && device->held) {
        devices_.erase(subject.name);
        return;
    }
    const auto verdict = allowed ? MeteredVerdict::kAllowed : MeteredVerdict::kRefused;
    if (device->known.verdict == verdict) return;
    judged(device, verdict, now_().up);
    if (!allowed || device->known.driver_after) tell(device);
}

void Meter::judged(Device* device, MeteredVerdict verdict, Time now) {
    count(device, now);
    Exposure& known = device->known;
    if (known.verdict != MeteredVerdict::kNone) {
        ++known.turn;
        device->tally = {};
        known.driver_after.reset();
        known.off_after.reset();
        if (!device->bindings.empty()) known.driver_after = now - known.appeared.up;
    }
    known.verdict = verdict;
    known.verdict_after = now - known.appeared.up;
    known.held = device->held;
    known.foreseen = device->vouched;
    device->told = false;
    device->times_told = 0;
}

void Meter::silenced(const std::string& input, bool silent) {
    const MutexLock lock(mutex_);
    const auto device = devices_.find(input);
    if (device == devices_.end() || !device->second.behind.empty()) return;
    const bool was_silent = device->second.bindings.empty();
    if (silent && !was_silent) unbind_in(&device->second, input);
    if (!silent && was_silent) bind_in(&device->second, {input, "", ""});
}

void Meter::finish() {
    const MutexLock lock(mutex_);
    const Time now = now_().up;
    for (auto& [name, device] : devices_) {
        count(&device, now);
        if (!device.bindings.empty() && device.known.verdict != MeteredVerdict::kAllowed) {
            device.told = false;
        }
        tell_rest(&device);
    }
}

void Meter::tell_rest(Device* device) {
    if (device->told) return;
    const Exposure& known = device->known;
    if (known.verdict == MeteredVerdict::kNone) {
        // None of these was the daemon's to judge; or nobody knows.
        if (!known.is_usb && !device->asked) return;
        if (known.is_usb && device->has_inputs) return;
        if (device->is_hub && !known.driver_after) return;
        if (known.unmeasured != Unmeasured::kNo && !device->asked) return;
    }
    device->times_told = 0;
    tell(device);
}

void Meter::tell(Device* device) {
    if (device->times_told == kMostTold) return;
    ++device->times_told;
    device->told = true;
    Exposure exposure = device->known;
    exposure.exposed = device->tally.exposed;
    exposure.on = !device->bindings.empty();
    for (const auto& [driver, time] : device->tally.drivers) {
        if (driver.empty() || exposure.drivers.size() == kMostDrivers) continue;
        exposure.drivers.emplace_back(driver, time);
    }
    take_.device(exposure);
}

Meter::Device* Meter::find(const Subject& subject) {
    const auto device = devices_.find(subject.name);
    if (device == devices_.end() || device->second.number != subject.number) return nullptr;
    return &device->second;
}

}  // namespace android::vus::hotplug
