// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/exposure.h"

#include <time.h>

#include <android-base/stringprintf.h>

#include "tools/common/text.h"

namespace android::vus::hotplug {

namespace {

using base::StringPrintf;
using Time = Exposure::Time;

double milliseconds_of(Time time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

std::string milliseconds(Time time) {
    return StringPrintf("%.1f", milliseconds_of(time));
}

// By hand: a library for it would be the largest part of a component whose memory counts. What a
// device says of itself has no control character any more, nor bytes that are no UTF-8.
std::string quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : printable(text)) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

std::string utc(std::chrono::system_clock::time_point wall) {
    using std::chrono::milliseconds;
    const auto whole = std::chrono::floor<std::chrono::seconds>(wall);
    const time_t seconds = std::chrono::system_clock::to_time_t(whole);
    tm parts = {};
    gmtime_r(&seconds, &parts);
    const auto rest = std::chrono::duration_cast<milliseconds>(wall - whole).count();
    return StringPrintf("%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900,
                        parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                        static_cast<int>(rest));
}

std::string stamp(const Moment& moment) {
    return "\"time\":" + quoted(utc(moment.wall)) +
           StringPrintf(",\"uptimeMs\":%.3f", milliseconds_of(moment.up));
}

const char* text_of(MeteredVerdict verdict) {
    switch (verdict) {
        case MeteredVerdict::kNone:
            return "none";
        case MeteredVerdict::kAllowed:
            return "allowed";
        case MeteredVerdict::kRefused:
            return "refused";
    }
    return "none";
}

std::string member(const char* name, const std::optional<Time>& time) {
    if (!time) return "";
    return StringPrintf(",\"%s\":%.3f", name, milliseconds_of(*time));
}

std::string flag(const char* name, bool set) {
    return set ? StringPrintf(",\"%s\":true", name) : "";
}

std::string drivers_json(const Exposure& exposure) {
    std::string json;
    for (const auto& [driver, time] : exposure.drivers) {
        json += StringPrintf("%s{\"driver\":%s,\"ms\":%.3f}", json.empty() ? "" : ",",
                             quoted(driver).c_str(), milliseconds_of(time));
    }
    return "[" + json + "]";
}

std::string drivers_text(const Exposure& exposure) {
    std::string text;
    for (const auto& [driver, time] : exposure.drivers) {
        text += (text.empty() ? " (" : ", ") + printable(driver) + " " + milliseconds(time) + " ms";
    }
    return text.empty() ? "" : text + ")";
}

std::string exposed_text(const Exposure& exposure) {
    switch (exposure.unmeasured) {
        case Unmeasured::kPresent:
            return "exposure not measured: it was there before";
        case Unmeasured::kLost:
            return "exposure not measured: events were lost";
        case Unmeasured::kNo:
            break;
    }
    return (exposure.verdict == MeteredVerdict::kAllowed ? "before that in use for " : "exposed ") +
           milliseconds(exposure.exposed) + " ms" + drivers_text(exposure);
}

}  // namespace

Moment present_moment() {
    timespec up = {};
    clock_gettime(CLOCK_BOOTTIME, &up);
    return {std::chrono::seconds(up.tv_sec) + std::chrono::nanoseconds(up.tv_nsec),
            std::chrono::system_clock::now()};
}

std::string to_json(const Exposure& exposure) {
    std::string json = "{" + stamp(exposure.appeared);
    json += ",\"entry\":" + quoted(exposure.entry);
    json += StringPrintf(",\"deviceId\":%d,\"deviceType\":%d", exposure.id,
                         exposure.is_usb ? 0 : 1);
    json += StringPrintf(",\"vendorId\":%d,\"productId\":%d", exposure.vendor, exposure.product);
    json += ",\"deviceName\":" + quoted(exposure.name);
    json += StringPrintf(",\"verdict\":\"%s\",\"turn\":%d", text_of(exposure.verdict),
                         exposure.turn);
    json += member("verdictMs", exposure.verdict_after);
    json += member("driverMs", exposure.driver_after);
    json += member("offMs", exposure.off_after);
    if (exposure.unmeasured == Unmeasured::kNo) json += member("exposedMs", exposure.exposed);
    if (exposure.unmeasured == Unmeasured::kPresent) json += ",\"notMeasured\":\"present\"";
    if (exposure.unmeasured == Unmeasured::kLost) json += ",\"notMeasured\":\"lost\"";
    json += ",\"drivers\":" + drivers_json(exposure);
    json += flag("on", exposure.on) + flag("held", exposure.held);
    json += flag("foreseen", exposure.foreseen) + flag("gone", exposure.gone);
    return json + "}";
}

std::string lost_events_json(const Moment& when) {
    return "{" + stamp(when) + ",\"eventsLost\":true}";
}

std::string to_text(const Exposure& exposure) {
    std::string text =
            StringPrintf("%s %s %04x:%04x ", printable(exposure.entry).c_str(),
                         exposure.is_usb ? "usb" : "input", exposure.vendor, exposure.product);
    text += exposure.verdict == MeteredVerdict::kNone ? "not judged" : text_of(exposure.verdict);
    if (exposure.verdict_after) text += " after " + milliseconds(*exposure.verdict_after) + " ms";
    if (exposure.held) text += ", held until then";
    text += ", " + exposed_text(exposure);
    if (exposure.verdict == MeteredVerdict::kAllowed && exposure.driver_after) {
        text += ", first driver after " + milliseconds(*exposure.driver_after) + " ms";
    }
    if (exposure.on && exposure.verdict != MeteredVerdict::kAllowed) text += ", and still on";
    if (exposure.gone) text += ", gone";
    return text;
}

}  // namespace android::vus::hotplug
