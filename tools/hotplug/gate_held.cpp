// SPDX-License-Identifier: Apache-2.0
//
// What is held without being a device of its own yet: input devices of USB devices, and HID devices
// of other buses; and what the daemon said of them.

#include <stdlib.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "tools/hotplug/gate.h"

namespace android::vus::hotplug {

namespace {

// The ids of input devices that are none yet: far from those that the kernel counts up.
constexpr int32_t kFirstHeldOfUsb = 1'000'000'000;
constexpr int32_t kFirstHeldOfHid = 1'500'000'000;
constexpr int32_t kMostInterfaces = 256;

Subject held_subject(int32_t id) {
    return {"input" + std::to_string(id)};
}

HeldInput held_input(int32_t id, std::string behind, const Identity& identity, int32_t sources) {
    HeldInput held;
    held.subject = held_subject(id);
    held.behind = std::move(behind);
    held.info.deviceId = id;
    held.info.deviceType = kInputType;
    held.info.deviceClass = sources;
    held.info.vendorId = identity.vendorId;
    held.info.productId = identity.productId;
    held.info.deviceName = identity.deviceName;
    return held;
}

// A HID device's name is its bus, vendor, product and a number that is never used again, such as
// 0005:046D:B342.0003.
int32_t hexadecimal_after(const std::string& name, char letter, size_t nth) {
    size_t at = 0;
    while (nth-- > 0 && at != std::string::npos) at = name.find(letter, at + 1);
    return at == std::string::npos
                   ? 0
                   : static_cast<int32_t>(strtol(name.c_str() + at + 1, nullptr, 16));
}

// Whether it is an input device already, which is judged by itself.
bool is_one(const UsbInterface& interface) {
    const std::vector<HidDevice>& hid_devices = interface.hid_devices;
    return std::any_of(hid_devices.begin(), hid_devices.end(),
                       [](const HidDevice& one) { return one.has_driver; });
}

Identity hid_identity(const std::string& hid_device, std::string label) {
    Identity identity;
    identity.deviceName = std::move(label);
    identity.vendorId = hexadecimal_after(hid_device, ':', 1);
    identity.productId = hexadecimal_after(hid_device, ':', 2);
    return identity;
}

const std::string& name_in(const std::string& name) {
    return name;
}

template <typename Value>
const std::string& name_in(const std::pair<const std::string, Value>& entry) {
    return entry.first;
}

// Of a set, or of a map.
template <typename Container>
void keep_those(const std::set<std::string>& keys, Container* container) {
    for (auto at = container->begin(); at != container->end();) {
        at = keys.count(name_in(*at)) == 0 ? container->erase(at) : std::next(at);
    }
}

}  // namespace

void Gate::hold_inputs(const Subject& device, const State& state, const std::vector<Part>& parts,
                       Admission* admission) {
    std::set<std::string> behind;
    const MutexLock lock(mutex_);
    for (const Part& part : parts) {
        if (part.wanted || part.kind != Kind::kInput || admission->held || is_one(part.interface)) {
            continue;
        }
        HeldInput held = held_input(kFirstHeldOfUsb + device.number * kMostInterfaces +
                                            part.interface.number,
                                    part.interface.name, *state.identity, part.refused_sources);
        held.usb_device = device;
        held.incarnation = state.incarnation;
        behind.insert(held.behind);
        held_[held.subject.key()] = held;
        admission->inputs.push_back(std::move(held));
    }
    for (auto at = held_.begin(); at != held_.end();) {
        const HeldInput& held = at->second;
        if (held.usb_device.key() != device.key() || behind.count(held.behind) != 0) {
            ++at;
            continue;
        }
        admission->released.push_back(held.subject);
        at = held_.erase(at);
    }
}

Admission Gate::admit_hid(const std::string& hid_device) {
    driver_came();
    Admission admission;
    if (system_->hid_has_driver(hid_device) || is_refused(hid_device)) return admission;
    const Identity identity = hid_identity(hid_device, system_->hid_label(hid_device));
    const Foreseen foreseen = foresee_hid(hid_device, identity);
    const HeldInput held = held_input(kFirstHeldOfHid + hexadecimal_after(hid_device, '.', 1),
                                      hid_device, identity, /*sources=*/0);
    if (foreseen == Foreseen::kRefused) return hold_hid(held);
    admission.incomplete = !system_->probe_hid(hid_device);
    if (foreseen == Foreseen::kUnknown && system_->hid_has_driver(hid_device)) {
        const auto nature = parse_report_descriptor(system_->hid_report_descriptor(hid_device));
        if (!nature || !is_source_of_input(*nature)) return hold_vendors_hid(held);
    }
    const MutexLock lock(mutex_);
    if (held_.erase(held.subject.key()) != 0) admission.released.push_back(held.subject);
    return admission;
}

Foreseen Gate::foresee_hid(const std::string& hid_device, const Identity& identity) {
    bool is_vendors = false;
    {
        const MutexLock lock(mutex_);
        const auto said = said_of_hid_.find(hid_device);
        if (said != said_of_hid_.end()) {
            return said->second ? Foreseen::kAllowed : Foreseen::kRefused;
        }
        is_vendors = vendors_hid_.count(hid_device) != 0;
    }
    if (!is_vendors) return foreseen_of_any_input(preview_, identity.vendorId, identity.productId);
    const Claim claim = {0, {}, identity.vendorId, identity.productId};
    return preview_->of(claim) == Foreseen::kAllowed ? Foreseen::kAllowed : Foreseen::kRefused;
}

// None of its input devices would be asked about.
Admission Gate::hold_vendors_hid(HeldInput held) {
    switches_->unbind_hid(held.behind);
    {
        const MutexLock lock(mutex_);
        vendors_hid_.insert(held.behind);
    }
    return hold_hid(std::move(held));
}

Admission Gate::hold_hid(HeldInput held) {
    Admission admission;
    const MutexLock lock(mutex_);
    held_[held.subject.key()] = held;
    admission.inputs.push_back(std::move(held));
    return admission;
}

void Gate::policy_changed() {
    ++policies_;
    const MutexLock lock(mutex_);
    said_of_hid_.clear();
}

void Gate::answered(const Subject& subject, bool allowed, uint64_t incarnation) {
    if (subject.is_usb()) {
        const SharedState state = state_of(subject);
        const MutexLock lock(state->mutex);
        if (incarnation == 0 || incarnation == state->incarnation) state->said = allowed;
        return;
    }
    Subject usb_device;
    std::string behind;
    {
        const MutexLock lock(mutex_);
        const auto held = held_.find(subject.key());
        if (held == held_.end()) return;
        usb_device = held->second.usb_device;
        behind = held->second.behind;
        if (usb_device.number == 0) said_of_hid_[behind] = allowed;
    }
    if (usb_device.number == 0) return;
    const SharedState state = state_of(usb_device);
    const MutexLock lock(state->mutex);
    if (state->incarnation == incarnation) state->said_of_input[behind] = allowed;
}

bool Gate::is_allowed(const Subject& device) {
    const SharedState state = state_of(device);
    const MutexLock lock(state->mutex);
    return state->said.value_or(false);
}

std::vector<Subject> Gate::forget(const Subject& device) {
    std::vector<Subject> held;
    const MutexLock lock(mutex_);
    states_.erase(device.key());
    for (auto at = held_.begin(); at != held_.end();) {
        if (at->second.usb_device.key() != device.key()) {
            ++at;
            continue;
        }
        held.push_back(at->second.subject);
        at = held_.erase(at);
    }
    return held;
}

void Gate::forget_hid(const std::string& hid_device) {
    const MutexLock lock(mutex_);
    refused_hid_.erase(hid_device);
    said_of_hid_.erase(hid_device);
    vendors_hid_.erase(hid_device);
    for (auto at = held_.begin(); at != held_.end();) {
        at = at->second.behind == hid_device ? held_.erase(at) : std::next(at);
    }
}

std::vector<Subject> Gate::keep_only(const std::set<std::string>& keys) {
    drop_silenced_that_went();
    std::vector<Subject> gone;
    const MutexLock lock(mutex_);
    keep_those(keys, &states_);
    keep_those(keys, &refused_hid_);
    keep_those(keys, &said_of_hid_);
    keep_those(keys, &vendors_hid_);
    for (auto at = held_.begin(); at != held_.end();) {
        const HeldInput& held = at->second;
        const bool of_usb = held.usb_device.number != 0;
        if (keys.count(of_usb ? held.usb_device.key() : held.behind) != 0) {
            ++at;
            continue;
        }
        gone.push_back(held.subject);
        at = held_.erase(at);
    }
    return gone;
}

// One whose event node has not come yet is among nobody's keys.
void Gate::drop_silenced_that_went() {
    std::set<std::string> silenced;
    {
        const MutexLock lock(mutex_);
        silenced = silenced_;
    }
    for (const std::string& input : silenced) {
        if (!system_->is_of_a_bus(input)) forget_input(input);
    }
}

void Gate::input_appeared(const std::string& input) {
    if (!system_->is_of_a_bus(input)) return;
    // Noted afterwards: whoever has found it by itself and looks at it now would make it heard
    // before it is silenced. Its announcement is not over, and is followed by another look.
    switches_->hush_input(input);
    const MutexLock lock(mutex_);
    silenced_.insert(input);
}

// What is nothing to whoever reads input may be heard: it came of what was judged in another way.
// What could not be looked at stays as it is.
bool Gate::stays_silent(const std::string& input, Sighting* seen, bool anybody_there) {
    if (!seen->info && !seen->settled) return false;
    if (seen->info) {
        const DeviceInfo& info = *seen->info;
        const Claim claim = {info.deviceClass, {}, info.vendorId, info.productId};
        seen->vouched = anybody_there && preview_->of(claim) == Foreseen::kAllowed;
    }
    {
        const MutexLock lock(mutex_);
        if (silenced_.erase(input) == 0) return false;
    }
    if (seen->info && !seen->vouched) return true;
    // What cannot be heard at once is left to whoever hears a "yes", and tries again.
    return !switches_->unhush_input(input) && seen->info;
}

void Gate::forget_input(const std::string& input) {
    const MutexLock lock(mutex_);
    silenced_.erase(input);
}

std::set<std::string> Gate::held_keys() {
    const MutexLock lock(mutex_);
    std::set<std::string> keys;
    for (const auto& [key, held] : held_) {
        keys.insert(key);
        keys.insert(held.behind);
    }
    return keys;
}

}  // namespace android::vus::hotplug
