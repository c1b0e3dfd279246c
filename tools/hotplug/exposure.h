// SPDX-License-Identifier: Apache-2.0
//
// Exposure: what the meter says of a device, and how that is written. See meter.h.

#pragma once

#include <stdint.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace android::vus::hotplug {

// A moment by two clocks: one that never jumps and goes on while the machine sleeps, for
// differences, and the wall's, for people.
struct Moment {
    std::chrono::nanoseconds up;
    std::chrono::system_clock::time_point wall;
};

// Of CLOCK_BOOTTIME and the wall's clock.
Moment present_moment();

enum class MeteredVerdict { kNone, kAllowed, kRefused };

// Why a time is not known.
enum class Unmeasured {
    kNo,       // it is known
    kPresent,  // the device was there before anybody listened
    kLost,     // events were lost
};

struct Exposure {
    using Time = std::chrono::nanoseconds;

    std::string entry;    // in sysfs; of an input device that is held back, of what is behind it
    int32_t id = 0;       // as the daemon's list has it; 0 if that was never asked
    bool is_usb = false;  // or an input device
    int32_t vendor = 0;
    int32_t product = 0;
    std::string name;
    Moment appeared;
    MeteredVerdict verdict = MeteredVerdict::kNone;
    int turn = 1;  // verdicts may change while a device stays: the first, the second ...

    // Since the device appeared.
    std::optional<Time> verdict_after;
    std::optional<Time> driver_after;  // the first that it has had under this verdict, or before
    std::optional<Time> off_after;     // since when no driver has it

    // How long drivers had it while it was not allowed, and each of them. Complete only if the
    // exposure was measured.
    Unmeasured unmeasured = Unmeasured::kNo;
    Time exposed = Time::zero();
    std::vector<std::pair<std::string, Time>> drivers;

    bool on = false;        // a driver has it still
    bool held = false;      // it was asked about while a gate held it
    bool foreseen = false;  // a gate has let it in because the policy allows it
    bool gone = false;      // the device has gone
};

// A JSON object on one line, without a line end. Its members are in docs/integration.md.
std::string to_json(const Exposure& exposure);
// Events were lost at that moment: what happened then is in no other line.
std::string lost_events_json(const Moment& when);
// For people, on one line.
std::string to_text(const Exposure& exposure);

}  // namespace android::vus::hotplug
