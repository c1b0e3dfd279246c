// SPDX-License-Identifier: Apache-2.0
//
// Letting a USB device in, part by part: what its interfaces are, which of them are wanted, and how
// they get their drivers.

#include <algorithm>
#include <utility>

#include "android/vus/class_names.h"
#include "tools/hotplug/gate.h"

namespace android::vus::hotplug {

namespace {

// More than any device has HID interfaces that HID's driver does not take, as far as it means well.
constexpr int kMostTries = 16;

// How often a device is asked for what it would not tell: it takes a second each time.
constexpr int kMostFailures = 3;

// HID's driver alone makes nothing of it: it can be asked again.
bool is_of_no_use(const UsbInterface& interface) {
    return std::none_of(interface.hid_devices.begin(), interface.hid_devices.end(),
                        [](const HidDevice& one) { return one.has_driver; });
}

}  // namespace

Admission Gate::let_in(const Subject& device, State* state, std::vector<UsbInterface> interfaces) {
    Admission admission;
    // Once: a device that is stuck in its driver would keep who asks it again.
    if (!state->identity) state->identity = system_->identity(device);
    if (!state->identity) return system_->incarnation(device) == 0 ? admission : unread();
    const Identity& identity = *state->identity;
    if (state->policy != policies_) {
        state->policy = policies_;
        drop_answers(state);
        for (const auto& [interface, failures] : state->failures) state->natures.erase(interface);
        state->failures.clear();
    }
    admission.identity = identity;
    admission.incarnation = state->incarnation;
    // What has interfaces is configured.
    if (interfaces.empty() && system_->driver_of(device.name) != kDeviceDriver) {
        if (!judge_whole(device, state)) {
            admission.held = admission.is_question = true;
            admission.incomplete = !unbind_from_other(device);
            return admission;
        }
        auto configured = system_->interfaces(device);
        if (!configured) return unread();
        interfaces = std::move(*configured);
    }
    std::vector<Part> parts;
    bool is_in = false;
    for (int tries = 0; tries < kMostTries && !is_in; ++tries) {
        if (tries > 0) {
            auto again = system_->interfaces(device);
            if (!again) break;
            interfaces = std::move(*again);
        }
        parts = parts_of(device, state, interfaces);
        admission.held = !judge_parts(identity, state, &parts);
        is_in = bind_parts(device, state, &parts);
    }
    // Nothing of what was found here is of the one that has replaced it.
    const uint64_t now = system_->incarnation(device).value_or(0);
    if (now != 0 && now != state->incarnation) return unread();
    if (!is_in) {
        notice_("held " + device.name + ": it does not stay what it is");
        admission.held = true;
        for (Part& part : parts) part.wanted = false;
    }
    shut_parts(device, state, &parts);
    for (const Part& part : parts) {
        if (part.kind == Kind::kVendorHid) admission.vendor.insert(part.interface.name);
    }
    const bool are_as_seen = is_in && std::all_of(parts.begin(), parts.end(),
                                                  [](const Part& part) { return part.is_as_seen; });
    for (const Part& part : parts) {
        admission.incomplete |= !part.is_done || is_to_be_asked_again(part.interface, *state);
    }
    if (!are_as_seen) {
        auto left = system_->interfaces(device);
        admission.incomplete |= !left;
        interfaces = left ? std::move(*left) : std::vector<UsbInterface>();
    }
    admission.interfaces = std::move(interfaces);
    admission.is_question = is_question(parts, admission.interfaces);
    hold_inputs(device, *state, parts, &admission);
    if (admission.held && are_without_drivers(parts)) {
        admission.incomplete |= !unbind_from_other(device);
    }
    return admission;
}

// Of one that has no configuration no more is known than who made it.
bool Gate::judge_whole(const Subject& device, State* state) {
    const Identity& identity = *state->identity;
    const Claim claim = {0, {}, identity.vendorId, identity.productId};
    const bool allowed = state->said ? *state->said : preview_->of(claim) == Foreseen::kAllowed;
    if (allowed && !system_->has_driver(device.name)) {
        if (!is_still(device, *state)) return false;
        system_->probe(device.name);
        // A driver that has looked at it and does not want it has left it to the kernel's own.
        configure(device.name);
    }
    return allowed;
}

bool Gate::are_without_drivers(const std::vector<Part>& parts) {
    return std::all_of(parts.begin(), parts.end(),
                       [](const Part& part) { return part.interface.driver.empty(); });
}

// A device without interfaces is one as well: it may have had others. So is what was to be an input
// device and has become none.
bool Gate::is_question(const std::vector<Part>& parts,
                       const std::vector<UsbInterface>& interfaces) {
    const auto is_usb = [](const Part& part) { return part.kind != Kind::kInput; };
    if (parts.empty() || std::any_of(parts.begin(), parts.end(), is_usb)) return true;
    return std::any_of(interfaces.begin(), interfaces.end(), [](const UsbInterface& interface) {
        const std::vector<HidDevice>& hid_devices = interface.hid_devices;
        return std::any_of(hid_devices.begin(), hid_devices.end(), [](const HidDevice& one) {
            return one.has_driver && !one.has_input_device;
        });
    });
}

std::vector<Gate::Part> Gate::parts_of(const Subject& device, State* state,
                                       std::vector<UsbInterface> interfaces) {
    std::vector<Part> parts;
    note_layout(interfaces, state);
    for (UsbInterface& interface : interfaces) {
        const Kind kind = kind_of(device, &interface, state);
        // HID is asked, and has HID devices that are let in as well.
        const bool is_as_seen = interface.class_code != kHidClass;
        parts.push_back({std::move(interface), kind});
        parts.back().is_as_seen = is_as_seen;
    }
    return parts;
}

Gate::Kind Gate::kind_of(const Subject& device, UsbInterface* interface, State* state) {
    if (interface->class_code != kHidClass) return Kind::kUsb;
    if (reported_class(*interface) != kHidClass) return Kind::kVendorHid;
    drop_nature_of_another(*interface, state);
    if (is_to_be_asked_again(*interface, *state)) state->natures.erase(interface->name);
    auto nature = state->natures.find(interface->name);
    if (nature == state->natures.end()) {
        const std::vector<HidDevice>& hid_devices = interface->hid_devices;
        const bool is_input =
                std::any_of(hid_devices.begin(), hid_devices.end(),
                            [](const HidDevice& one) { return one.has_input_device; });
        const bool is_whole =
                std::all_of(hid_devices.begin(), hid_devices.end(), [this](const HidDevice& one) {
                    return one.has_driver || is_refused(one.name);
                });
        // Bound before the gate came, or by another's hand.
        if (!interface->driver.empty() && !hid_devices.empty() && is_whole) {
            state->hid_devices.emplace(interface->name, hid_devices.front().name);
            return is_input ? Kind::kInput : Kind::kVendorHid;
        }
        // Somebody was killed between two steps. What it is can only be asked without a driver.
        if (!interface->driver.empty()) shut_interface(device, state, interface);
        nature = state->natures.emplace(interface->name, nature_of(device, interface, state)).first;
    }
    return nature->second && is_source_of_input(*nature->second) ? Kind::kInput : Kind::kVendorHid;
}

bool Gate::is_to_be_asked_again(const UsbInterface& interface, const State& state) {
    const auto failures = state.failures.find(interface.name);
    return failures != state.failures.end() && failures->second < kMostFailures &&
           is_of_no_use(interface);
}

// What was said was said of what it was.
void Gate::drop_nature_of_another(const UsbInterface& interface, State* state) {
    const auto known = state->hid_devices.find(interface.name);
    if (known == state->hid_devices.end()) return;
    const std::vector<HidDevice>& hid_devices = interface.hid_devices;
    if (!hid_devices.empty() && hid_devices.front().name == known->second) return;
    state->hid_devices.erase(known);
    state->natures.erase(interface.name);
    drop_answers(state);
}

// It is on for that.
std::optional<HidNature> Gate::nature_of(const Subject& device, UsbInterface* interface,
                                         State* state) {
    const std::string& name = interface->name;
    const bool was_off = !interface->authorized;
    if (was_off) interface->authorized = system_->authorize(device, state->incarnation, name, true);
    const auto descriptor = system_->report_descriptor(device, *interface);
    if (was_off)
        interface->authorized = !system_->authorize(device, state->incarnation, name, false);
    if (!descriptor) {
        if (++state->failures[name] == 1) notice_(name + " says it is HID, but not what for");
        return std::nullopt;
    }
    state->failures.erase(name);
    return parse_report_descriptor(*descriptor);
}

// Answers whether the USB device is let in, as far as that is a question.
bool Gate::judge_parts(const Identity& identity, State* state, std::vector<Part>* parts) {
    Claim claim = {identity.deviceClass, {}, identity.vendorId, identity.productId};
    bool is_question = false;
    for (const Part& part : *parts) {
        is_question |= part.kind != Kind::kInput;
        claim.interfaceClasses.push_back(part.kind == Kind::kVendorHid ? kVendorSpecificClass
                                                                       : part.interface.class_code);
    }
    const bool allowed = !is_question ||
                         (state->said ? *state->said : preview_->of(claim) == Foreseen::kAllowed);
    const bool in_part = composites_ == Composites::kInPart && preview_->admits_by_class(claim);
    for (Part& part : *parts) {
        part.wanted = allowed;
        if (allowed && in_part && part.kind != Kind::kInput) {
            part.refused =
                    part.kind == Kind::kVendorHid || isRestrictedClass(part.interface.class_code);
            part.wanted = !part.refused;
        }
        if (allowed && part.kind == Kind::kInput) judge_input(identity, state, &part);
    }
    return allowed;
}

void Gate::judge_input(const Identity& identity, State* state, Part* part) {
    const auto nature = state->natures.find(part->interface.name);
    // One that had its driver before is judged by what it is.
    if (nature == state->natures.end() || !nature->second) return;
    const auto said = state->said_of_input.find(part->interface.name);
    int32_t all_sources = 0;
    for (const HidApplication& application : nature->second->applications) {
        if (application.sources == 0) continue;
        all_sources |= application.sources;
        const Foreseen foreseen =
                preview_->of({application.sources, {}, identity.vendorId, identity.productId});
        const bool allowed = foreseen == Foreseen::kAllowed;
        part->refused |= foreseen == Foreseen::kRefused;
        if (!allowed) part->refused_sources |= application.sources;
        part->wanted &= allowed;
    }
    // They come in together, so the daemon is asked about all that it has not allowed already.
    if (part->refused_sources == 0) part->refused_sources = all_sources;
    if (said == state->said_of_input.end()) return;
    part->wanted = said->second;
    part->refused = !said->second;
}

bool Gate::is_still(const Subject& device, const State& state) {
    return system_->incarnation(device) == state.incarnation;
}

bool Gate::are_still(const std::vector<Part>& parts) {
    return std::all_of(parts.begin(), parts.end(), [this](const Part& part) {
        return !part.wanted || system_->class_of(part.interface.name) == part.interface.class_code;
    });
}

// All but input devices are on before the first has its driver: one that serves two needs both.
// What a node's holder makes of the device meanwhile is another question.
bool Gate::bind_parts(const Subject& device, State* state, std::vector<Part>* parts) {
    const auto is_to_be_bound = [](const Part& part) {
        return part.wanted && part.interface.driver.empty();
    };
    if (std::any_of(parts->begin(), parts->end(), is_to_be_bound) &&
        !(is_still(device, *state) && are_still(*parts))) {
        return false;
    }
    for (Part& part : *parts) {
        if (!part.wanted || part.interface.authorized || part.kind == Kind::kInput) continue;
        part.is_as_seen = false;
        part.is_done = system_->authorize(device, state->incarnation, part.interface.name, true);
    }
    // What is off is not tried: a driver's "no" would say something of the device.
    for (Part& part : *parts) {
        if (!is_to_be_bound(part) || !part.is_done) continue;
        part.is_as_seen = false;
        if (!bind_part(device, &part, state)) return false;
    }
    if (!probe_hid_devices_of(device, state, *parts)) {
        for (Part& part : *parts) part.is_done &= !part.wanted;
    }
    return true;
}

bool Gate::bind_part(const Subject& device, Part* part, State* state) {
    const std::string& name = part->interface.name;
    if (part->kind == Kind::kInput) return bind_input(device, part, state);
    // It may have its neighbour's.
    if (!system_->has_driver(name)) part->is_done = system_->probe(name);
    return true;
}

// It is on for as long as HID's driver is tried, and stays so only with that: some modules try
// their drivers on whatever is on and has none, and ask nobody.
bool Gate::bind_input(const Subject& device, Part* part, State* state) {
    const UsbInterface& interface = part->interface;
    part->is_done = interface.authorized ||
                    system_->authorize(device, state->incarnation, interface.name, true);
    // A driver's "no" would say something of the device.
    if (!part->is_done) return true;
    const GateSystem::Bound bound = system_->bind(kHidDriver, interface.name);
    if (bound == GateSystem::Bound::kYes) return true;
    const bool is_off = system_->authorize(device, state->incarnation, interface.name, false);
    part->is_done = is_off && bound != GateSystem::Bound::kNotTried;
    if (bound != GateSystem::Bound::kNo) return true;
    state->natures[interface.name] = std::nullopt;
    return false;
}

// Not those of one that told HID's driver what it did not tell the gate. False if the kernel could
// not be asked.
bool Gate::probe_hid_devices_of(const Subject& device, State* state,
                                const std::vector<Part>& parts) {
    std::set<std::string> known;
    for (const Part& part : parts) {
        const auto nature = state->natures.find(part.interface.name);
        const bool has_told = nature != state->natures.end() && nature->second;
        if (part.wanted && has_told) known.insert(part.interface.name);
    }
    if (known.empty()) return true;
    const auto interfaces = system_->interfaces(device);
    if (!interfaces) return false;
    bool all = true;
    for (const UsbInterface& interface : *interfaces) {
        if (known.count(interface.name) == 0 || interface.hid_devices.empty()) continue;
        // Another one by now: it is asked when it is heard of.
        const std::string& name = interface.hid_devices.front().name;
        if (state->hid_devices.emplace(interface.name, name).first->second != name) continue;
        for (const HidDevice& hid_device : interface.hid_devices) {
            if (hid_device.has_driver || is_refused(hid_device.name)) continue;
            all &= system_->probe_hid(hid_device.name);
        }
    }
    return all;
}

void Gate::shut_parts(const Subject& device, State* state, std::vector<Part>* parts) {
    for (Part& part : *parts) {
        UsbInterface& interface = part.interface;
        if (part.wanted || !interface.authorized) continue;
        if (!part.refused && system_->has_driver(interface.name)) continue;
        part.is_done &= shut_interface(device, state, &interface);
        part.is_as_seen = false;
    }
}

}  // namespace android::vus::hotplug
