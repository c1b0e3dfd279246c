// SPDX-License-Identifier: Apache-2.0
//
// Settling: which of the USB devices that have appeared may be judged.
//
// A device appears before its interfaces do, and an interface before its driver has made a
// network interface or a serial port of it. The kernel's "bind" of the device itself comes last.
// Interfaces that appear without it belong to a device whose configuration was changed; no event
// ends that, so they are waited for until none has come for a while, though not for ever: somebody
// may go on changing it.
//
// Not thread-safe. Times are the caller's, so that a test need not wait.

#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace android::vus::hotplug {

class Settling {
  public:
    using Clock = std::chrono::steady_clock;

    // `bind_limit`: how long a new device is waited for. `quiet_time`: how long a device's
    // interfaces are, after the last of them, and at most twice that after the first.
    Settling(Clock::duration bind_limit, Clock::duration quiet_time)
          : bind_limit_(bind_limit), quiet_time_(quiet_time) {}

    // A device has appeared. Waiting starts anew if it was waited for already.
    void added(const std::string& device, Clock::time_point now);
    // An interface of the device has appeared, or has got its driver; the latter is no reason to
    // wait if there was none.
    void interface_added(const std::string& device, Clock::time_point now);
    void interface_bound(const std::string& device, Clock::time_point now);
    // The device is waited for no longer: it is bound, or it has gone.
    void forget(const std::string& device) { waits_.erase(device); }

    bool waits_for(const std::string& device) const { return waits_.count(device) != 0; }
    // For the first of its drivers.
    bool waits_for_bind(const std::string& device) const {
        const auto wait = waits_.find(device);
        return wait != waits_.end() && wait->second.for_bind;
    }
    // The devices whose time is up; they are no longer waited for.
    std::vector<std::string> overdue(Clock::time_point now);
    // When the next device's time is up; nothing while none is waited for.
    std::optional<Clock::time_point> next_deadline() const;

  private:
    struct Wait {
        Clock::time_point deadline;
        Clock::time_point limit;  // of deadline
        bool for_bind;
    };

    const Clock::duration bind_limit_;
    const Clock::duration quiet_time_;
    std::map<std::string, Wait> waits_;
};

}  // namespace android::vus::hotplug
