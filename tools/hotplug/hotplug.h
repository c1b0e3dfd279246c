// SPDX-License-Identifier: Apache-2.0
//
// Hotplug: the platform component of a Linux host.
//
// Listens to the kernel's own events (no udev daemon is needed), and reports USB devices that have
// settled, input devices, and removals to the daemon. When the daemon goes it waits for it to come
// back, and then reports everything that is present, because a new daemon knows of nothing. When
// the kernel had more events than it could deliver, everything present is compared with what is
// known. So it is when the daemon has put another policy in force: nothing that is attached keeps
// the verdict of the one before.
//
// With a gate, devices are held back until they are judged; see gate.h.
//
// One thread runs the loop; it sleeps until the kernel, the daemon's death or a deadline wakes it.
// Devices are read, reported and switched by the Reporter's threads, so that no device holds up
// the loop.

#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <android-base/unique_fd.h>
#include <binder/IBinder.h>

#include "tools/common/death_notice.h"
#include "tools/common/service_finder.h"
#include "tools/hotplug/gate.h"
#include "tools/hotplug/meter.h"
#include "tools/hotplug/policy_watch.h"
#include "tools/hotplug/reporter.h"
#include "tools/hotplug/switches.h"
#include "tools/hotplug/tracker.h"
#include "tools/hotplug/uevents.h"

namespace android::vus::hotplug {

class Hotplug {
  public:
    // `find` answers the daemon's service, or at once why there is none. `switches` outlives this
    // object. So does `gate`, if there is one, which the switches are then to be; and `meter`, if
    // there is one, which hears what this object hears.
    Hotplug(std::function<FoundService()> find, Switches* switches, Reporter::Manner manner,
            Gate* gate = nullptr, Meter* meter = nullptr);
    ~Hotplug();

    // Reports what is present and returns when all of it is judged. False without a daemon;
    // `why_not` tells why there is none.
    bool run_once(std::string* why_not);
    // Runs until `stop_fd` is readable; false if the kernel's events cannot be heard (errno says
    // why).
    bool run(int stop_fd);

  private:
    Reporter::Manner waking(Reporter::Manner manner) const;
    bool connect(std::string* why_not);
    void tell_of_little_room() const;
    void report_present(Ask when);
    int timeout_ms() const;
    void handle_events();
    void handle_event(Event* event);
    void follow_service(bool may_have_ended);
    void follow_policy(bool may_be_new, Tracker::Clock::time_point now);

    const std::function<FoundService()> find_;
    UeventSocket events_;
    Gate* const gate_;
    Meter* const meter_;
    const Reporter::Print notice_;
    const base::unique_fd wake_;  // the loop; the reporter's threads use it
    Reporter reporter_;
    Tracker tracker_;
    sp<IBinder> service_;  // null while the daemon is away
    sp<DeathNotice> death_notice_;
    PolicyWatch policy_watch_;
    std::optional<Tracker::Clock::time_point> ask_again_at_;  // about everything present
};

}  // namespace android::vus::hotplug
