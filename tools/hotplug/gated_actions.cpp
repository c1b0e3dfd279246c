// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/gated_actions.h"

#include <string>
#include <utility>

#include "tools/hotplug/device_reader.h"

namespace android::vus::hotplug {

namespace {

void follow(const Admission& admission, Reporter* reporter) {
    if (admission.incomplete) reporter->look_again_later();
    for (const Subject& held : admission.released) reporter->held_no_more(held);
    for (const HeldInput& held : admission.inputs) {
        Sighting seen;
        seen.info = held.info;
        seen.hid_device = held.behind;
        seen.usb_device = held.usb_device;
        seen.incarnation = held.incarnation;
        seen.held = true;
        reporter->judge(held.subject, [seen] { return seen; });
    }
}

void judge_what_was_bound(const Subject& device, Reporter* reporter) {
    const auto look = [&] {
        const Sighting seen = read_usb_device(device);
        return seen.bare ? Sighting() : seen;
    };
    reporter->judge_here(device, look, Ask::kFoundAlone);
}

// Nobody's answer is waited for while the device is let in: that takes the device's time.
void let_in_and_judge(const Subject& device, Ask when, Gate* gate, Reporter* reporter) {
    const bool anybody_there = reporter->has_service();
    const Admission admission = gate->admit(device, anybody_there);
    if (!anybody_there) {
        if (when == Ask::kFoundAlone) judge_what_was_bound(device, reporter);
        return;
    }
    follow(admission, reporter);
    // A hub, which may have been closed while it could not be read.
    if (!admission.identity && !admission.unread) return reporter->forget_here(device);
    bool has_drivers = false;
    const auto look = [&] {
        if (admission.unread) {
            Sighting seen;
            seen.unread = true;
            return seen;
        }
        // Nothing to be told, and nothing to be kept of what it was before.
        if (!admission.is_question) return Sighting();
        // None may mean that it has gone.
        Sighting seen =
                admission.interfaces.empty()
                        ? look_at_usb_device(device, *admission.identity, admission.vendor)
                        : sighting_of(*admission.identity, admission.interfaces, admission.vendor);
        has_drivers = !seen.bare;
        // One that was bound before the gate came has its drivers, allowed or not: the reporter has
        // to take them.
        seen.incarnation = admission.incarnation;
        seen.held = admission.held && seen.bare;
        seen.vouched = !admission.held;
        // What is off is known for what it is.
        seen.bare = false;
        return seen;
    };
    reporter->judge_here(device, look, when);
    // The reporter opens what it knows to be closed. What the gate had shut beside those drivers,
    // until somebody said yes, it does not know.
    if (admission.held && has_drivers && gate->is_allowed(device)) {
        follow(gate->admit(device, anybody_there), reporter);
    }
}

Sighting read_input(const std::string& input, const std::string& event, Gate* gate,
                    Reporter* reporter) {
    Sighting seen = read_input_device(input, event);
    if (gate->stays_silent(input, &seen, reporter->has_service())) {
        reporter->came_silenced({input});
    }
    return seen;
}

}  // namespace

Tracker::Actions gated_actions(Gate* gate, Reporter* reporter,
                               std::function<void()> report_present) {
    Tracker::Actions actions;
    actions.judge_usb = [gate, reporter](const Subject& device, Ask when) {
        reporter->run(
                device, [=] { let_in_and_judge(device, when, gate, reporter); },
                Reporter::judgement(when));
    };
    // It is looked at before anybody's patience begins: what is let in by that is not closed by
    // silence.
    actions.judge_input = [gate, reporter](const std::string& input, const std::string& event,
                                           Ask when) {
        reporter->run(
                {input},
                [=] {
                    Sighting seen = read_input(input, event, gate, reporter);
                    reporter->judge_here(
                            {input}, [&] { return seen; }, when);
                },
                Reporter::judgement(when));
    };
    actions.removed = [gate, reporter](const Subject& device) {
        if (device.is_usb()) {
            reporter->run(
                    device,
                    [=] {
                        for (const Subject& held : gate->forget(device)) {
                            reporter->held_no_more(held);
                        }
                    },
                    Lanes::Job::kForgetting);
        } else {
            gate->forget_input(device.name);
        }
        reporter->removed(device);
    };
    // What comes back is off, and judged by what it is.
    actions.interface_back = [](const Subject&) {};
    actions.hid_removed = [gate, reporter](const std::string& hid_device) {
        reporter->run({hid_device}, [=] { gate->forget_hid(hid_device); });
        reporter->hid_removed(hid_device);
    };
    actions.root_hub = [gate, reporter](const std::string& root_hub) {
        reporter->run({root_hub}, [=] { gate->root_hub(root_hub); });
    };
    actions.hid_appeared = [gate, reporter](const std::string& hid_device) {
        reporter->run({hid_device}, [=] {
            if (reporter->has_service()) follow(gate->admit_hid(hid_device), reporter);
        });
    };
    // At once: its event node is about to come.
    actions.input_appeared = [gate](const std::string& input, const std::string& /*hid_device*/) {
        gate->input_appeared(input);
    };
    actions.driver_came = [gate, report_present = std::move(report_present)] {
        gate->driver_came();
        report_present();
    };
    return actions;
}

}  // namespace android::vus::hotplug
