// SPDX-License-Identifier: Apache-2.0
//
// Settling: which of the USB devices that have appeared may be judged.
//
// A device appears before its interfaces do, and an interface before its driver has made a
// network interface or a serial port of it. The kernel's "bind" of the device itself comes last.
// A device that stops answering keeps the kernel probing for many seconds; it is judged when its
// time is up instead.
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

    explicit Settling(Clock::duration limit) : limit_(limit) {}

    // A device has appeared. Waiting starts anew if it was waited for already.
    void added(const std::string& device, Clock::time_point now);
    bool waits_for(const std::string& device) const { return deadlines_.count(device) != 0; }
    // True if the device was waited for and is to be judged now.
    bool bound(const std::string& device);
    // True if the device was still waited for: nobody has heard of it.
    bool removed(const std::string& device);
    // The devices whose time is up; they are no longer waited for.
    std::vector<std::string> overdue(Clock::time_point now);
    // When the next device's time is up; nothing while none is waited for.
    std::optional<Clock::time_point> next_deadline() const;

  private:
    const Clock::duration limit_;
    std::map<std::string, Clock::time_point> deadlines_;
};

}  // namespace android::vus::hotplug
