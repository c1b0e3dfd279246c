// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/gate.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "tools/hotplug/sysfs_paths.h"

namespace android::vus::hotplug {

namespace {

constexpr int32_t kHubClass = 9;

bool claims_to_be_a_hub(const std::vector<UsbInterface>& interfaces) {
    return !interfaces.empty() &&
           std::all_of(interfaces.begin(), interfaces.end(), [](const UsbInterface& interface) {
               return interface.class_code == kHubClass;
           });
}

std::string own_interface(const std::string& root_hub) {
    return root_hub.substr(strlen("usb")) + "-0:1.0";
}

}  // namespace

Gate::Gate(GateSystem* system, Switches* switches, Preview* preview,
           std::function<void(const std::string&)> notice, Composites composites)
      : system_(system),
        switches_(switches),
        preview_(preview),
        notice_(std::move(notice)),
        composites_(composites) {}

void Gate::shut() {
    shut_bus(kUsbAutoprobeFile);
    shut_bus(kHidAutoprobeFile);
    for (const std::string& hub : system_->root_hubs()) root_hub(hub);
    // Who held the door before may have been killed between two steps.
    for (const std::string& input : system_->silent_inputs()) {
        if (!system_->is_of_a_bus(input)) continue;
        const MutexLock lock(mutex_);
        silenced_.insert(input);
    }
}

void Gate::shut_bus(const char* file) {
    const bool done = system_->set_autoprobe(file, false);
    const int error = errno;
    const MutexLock lock(mutex_);
    if (done) {
        open_.erase(file);
    } else if (open_.insert(file).second) {
        notice_(std::string("the door is not shut by ") + file + ": " + strerror(error));
    }
}

// Once, however many buses there are: it is the kernel that does not have it.
void Gate::say_open(const char* part, int error) {
    const MutexLock lock(mutex_);
    if (!said_open_.insert(part).second) return;
    notice_(std::string("the door is not shut by ") + part + ": " + strerror(error));
}

void Gate::driver_came() {
    std::set<const char*> open;
    {
        const MutexLock lock(mutex_);
        open = open_;
    }
    for (const char* file : open) shut_bus(file);
}

void Gate::open_everything() {
    system_->set_autoprobe(kUsbAutoprobeFile, true);
    system_->set_autoprobe(kHidAutoprobeFile, true);
    for (const std::string& hub : system_->root_hubs()) {
        system_->set_interface_default(hub, true);
        if (!system_->has_driver(hub)) system_->probe(hub);
        if (!system_->has_driver(own_interface(hub))) {
            system_->authorize_root(hub, own_interface(hub));
            system_->probe(own_interface(hub));
        }
    }
    for (const Subject& device : system_->usb_devices()) {
        switches_->open_device(device);
        if (!system_->has_driver(device.name)) system_->probe(device.name);
        const auto interfaces = system_->interfaces(device).value_or(std::vector<UsbInterface>());
        for (const UsbInterface& interface : interfaces) {
            if (!interface.authorized)
                system_->authorize(device, /*incarnation=*/0, interface.name, true);
        }
        for (const UsbInterface& interface : interfaces) {
            if (!system_->has_driver(interface.name)) system_->probe(interface.name);
        }
    }
    for (const std::string& hid_device : system_->hid_devices()) {
        if (!system_->hid_has_driver(hid_device)) system_->probe_hid(hid_device);
    }
    for (const std::string& input : system_->silent_inputs()) switches_->unhush_input(input);
}

// The default first: what comes to the bus comes only when its hub is bound.
void Gate::root_hub(const std::string& root_hub) {
    if (!system_->set_interface_default(root_hub, false)) {
        const int error = errno;
        if (!system_->is_there(root_hub)) return;
        say_open(kInterfaceDefault, error);
    }
    configure(root_hub);
    const std::string own = own_interface(root_hub);
    if (system_->has_driver(own)) return;
    system_->authorize_root(root_hub, own);
    system_->bind(kHubDriver, own);
}

// Not by a look for drivers, which tries those for certain devices first.
void Gate::configure(const std::string& device) {
    if (system_->has_driver(device)) return;
    if (system_->bind(kDeviceDriver, device) == GateSystem::Bound::kNoSuchDriver) {
        system_->probe(device);
    }
}

// As its module is loaded, such a driver takes what it knows from the kernel's own, and has it
// configured anew, whether the kernel looks for drivers or not. Not a hub, which is none of ours:
// false if it cannot be told whether it is one.
bool Gate::unbind_from_other(const Subject& device) {
    const std::string driver = system_->driver_of(device.name);
    if (driver.empty() || driver == kDeviceDriver) return true;
    const auto interfaces = system_->interfaces(device);
    if (!interfaces) return false;
    if (is_hub(*interfaces)) return true;
    notice_("took " + device.name + " from " + driver + ": it is not let in");
    system_->unbind(driver, device);
    return true;
}

// False if that cannot be told.
bool Gate::recognise(const Subject& device, State* state) {
    const std::optional<uint64_t> incarnation = system_->incarnation(device);
    if (!incarnation) return false;
    if (*incarnation == state->incarnation) return true;
    state->incarnation = *incarnation;
    state->identity.reset();
    state->layout.clear();
    drop_natures(state);
    drop_answers(state);
    return true;
}

// What was said of a device was said of these interfaces.
void Gate::note_layout(const std::vector<UsbInterface>& interfaces, State* state) {
    std::string layout = layout_of(interfaces);
    if (layout == state->layout) return;
    state->layout = std::move(layout);
    drop_natures(state);
    drop_answers(state);
}

void Gate::drop_natures(State* state) {
    state->natures.clear();
    state->failures.clear();
    state->hid_devices.clear();
}

void Gate::drop_answers(State* state) {
    state->said.reset();
    state->said_of_input.clear();
}

Admission Gate::admit(const Subject& device, bool anybody_there) {
    driver_came();
    const SharedState state = state_of(device);
    const MutexLock lock(state->mutex);
    if (!recognise(device, state.get())) return unread();
    if (state->incarnation == 0) return {};  // it has gone, and another one may be about to come
    configure(device.name);
    auto interfaces = system_->interfaces(device);
    if (!interfaces) return unread();
    note_layout(*interfaces, state.get());
    const bool is_shut = shut_what_was_taken(device, state.get(), &*interfaces);
    if (claims_to_be_a_hub(*interfaces)) {
        const auto is_bound = bind_hub(device, state->incarnation, *interfaces);
        if (!is_bound) return system_->incarnation(device) == 0 ? Admission() : unread();
        if (*is_bound) return {};
        interfaces = system_->interfaces(device);
    }
    if (!anybody_there) return {};
    if (!interfaces) return unread();
    Admission admission = let_in(device, state.get(), std::move(*interfaces));
    admission.incomplete |= !is_shut;
    return admission;
}

Admission Gate::unread() {
    Admission admission;
    admission.unread = true;
    return admission;
}

// What is rebound after a reset, all drivers are tried on, whether the kernel looks for drivers or
// not. Nobody had a say in that.
bool Gate::shut_what_was_taken(const Subject& device, State* state,
                               std::vector<UsbInterface>* interfaces) {
    bool all = true;
    for (UsbInterface& interface : *interfaces) {
        const std::string& driver = interface.driver;
        if (driver.empty() || driver == kHidDriver || driver == kNodeDriver) continue;
        if (state->hid_devices.count(interface.name) == 0) continue;
        notice_("took " + interface.name + " from " + driver + ": it was HID's");
        state->natures.erase(interface.name);
        all &= shut_interface(device, state, &interface);
    }
    return all;
}

// What stays on is what it was.
bool Gate::shut_interface(const Subject& device, State* state, UsbInterface* interface) {
    if (!system_->authorize(device, state->incarnation, interface->name, false)) return false;
    state->hid_devices.erase(interface->name);
    interface->driver.clear();
    interface->hid_devices.clear();
    interface->authorized = false;
    return true;
}

// What is no hub is not switched on for the hub's driver either: another one may wait for it to
// fail.
std::optional<bool> Gate::bind_hub(const Subject& device, uint64_t incarnation,
                                   const std::vector<UsbInterface>& interfaces) {
    using Bound = GateSystem::Bound;
    const bool waits =
            std::any_of(interfaces.begin(), interfaces.end(),
                        [](const UsbInterface& interface) { return interface.driver.empty(); });
    if (waits && !system_->tells_hub(device).value_or(true)) return false;
    bool all = true;
    for (const UsbInterface& interface : interfaces) {
        if (!interface.driver.empty()) {
            all &= interface.driver == kHubDriver;
            continue;
        }
        const auto authorize = [&](bool on) {
            return system_->authorize(device, incarnation, interface.name, on);
        };
        const bool is_on = interface.authorized || authorize(true);
        const Bound bound = is_on ? system_->bind(kHubDriver, interface.name) : Bound::kNotTried;
        if (bound == Bound::kYes) continue;
        const bool is_off = authorize(false);
        if (bound == Bound::kNotTried || !is_off) return std::nullopt;
        all = false;
    }
    return all;
}

bool Gate::close_interfaces(const Subject& device) {
    const SharedState state = state_of(device);
    const MutexLock lock(state->mutex);
    const bool is_closed = switches_->close_interfaces(device);
    state->hid_devices.clear();
    return unbind_from_other(device) && is_closed;
}

// By the same rules: an input device of it may still be held.
bool Gate::open_interfaces(const Subject& device) {
    const SharedState state = state_of(device);
    const MutexLock lock(state->mutex);
    if (!recognise(device, state.get())) return false;
    if (state->incarnation == 0) return true;
    auto interfaces = system_->interfaces(device);
    if (!interfaces) return false;
    const Admission admission = let_in(device, state.get(), std::move(*interfaces));
    return !admission.unread && !admission.incomplete;
}

bool Gate::unbind_hid(const std::string& hid_device) {
    {
        const MutexLock lock(mutex_);
        refused_hid_.insert(hid_device);
    }
    return switches_->unbind_hid(hid_device);
}

void Gate::probe_hid(const std::string& hid_device) {
    {
        const MutexLock lock(mutex_);
        refused_hid_.erase(hid_device);
    }
    switches_->probe_hid(hid_device);
}

bool Gate::open_held(const Subject& usb_device, const std::string& what) {
    if (usb_device.number != 0) return open_interfaces(usb_device);
    return !admit_hid(what).incomplete;
}

bool Gate::is_refused(const std::string& hid_device) {
    const MutexLock lock(mutex_);
    return refused_hid_.count(hid_device) != 0;
}

Gate::SharedState Gate::state_of(const Subject& device) {
    const MutexLock lock(mutex_);
    SharedState& state = states_[device.key()];
    if (state == nullptr) state = std::make_shared<State>();
    return state;
}

}  // namespace android::vus::hotplug
