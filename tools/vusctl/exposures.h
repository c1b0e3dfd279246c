// SPDX-License-Identifier: Apache-2.0
//
// Exposures: what the lines of `vus_hotplug --events` come to. A line replaces an earlier one of
// the same device and verdict; one that is none is counted. Not thread-safe.

#pragma once

#include <map>
#include <string>
#include <tuple>
#include <utility>

#include <json/value.h>

namespace android::vus::ctl {

// Where the shipped units have the lines written.
inline constexpr char kEventsFile[] = "/var/lib/vus-hotplug/events.jsonl";

class Exposures {
  public:
    // Without its line end.
    void add(const std::string& line);

    // For people, over one or more lines.
    std::string to_text() const;
    Json::Value to_json() const;
    // The longest time that a device worked without being allowed, as far as it was measured; more
    // than any if one of them works still.
    double worst_ms() const;

  private:
    struct Case {
        std::string verdict;
        double exposed_ms = 0;
        std::string not_measured;  // why; empty: it was
        bool on = false;
        Json::Value line;

        bool is_allowed() const { return verdict == "allowed"; }
    };
    using Device = std::tuple<std::string, double, std::string>;  // when it appeared, and where

    struct Sum {
        int devices = 0;
        int refused = 0;     // whatever else was said of them
        int not_judged = 0;  // before they went
        int present = 0;     // there before the reporter: not measured
        int unheard = 0;     // there while events were lost: not measured
        int unmeasured_refusals = 0;
        double exposed_ms = 0;
        const Case* worst = nullptr;
        const Case* still_on = nullptr;
        int on = 0;
        const Case* early = nullptr;  // the one that was used longest before it was allowed
    };

    bool add_device(const Json::Value& line);
    Sum sum() const;
    std::string notes(const Sum& sum) const;
    static std::string describe(const Case& device);

    std::map<std::pair<Device, int>, Case> cases_;  // by turn
    int events_lost_ = 0;
    int lines_lost_ = 0;
    int malformed_ = 0;
};

}  // namespace android::vus::ctl
